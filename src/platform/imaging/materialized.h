// Materialized: a random-access source over any source, made by decoding the input once into
// a PixelBuffer from the pool. It is what a rotation or a vertical flip stands on when the
// decoder can only stream its rows top to bottom. The rows are decoded as far as a request
// needs them, so a caller that asks top to bottom still sees the decode progress band by
// band; once every row is in, the input is released.
//
// Thread rules: as every source, one thread at a time.
#pragma once

#include <memory>

#include "platform/imaging/bitmap_source.h"

namespace orvanta::imaging {

// The input untouched when it already has Access::Random (or is null).
std::unique_ptr<BitmapSource> Materialized(std::unique_ptr<BitmapSource> source);

}  // namespace orvanta::imaging

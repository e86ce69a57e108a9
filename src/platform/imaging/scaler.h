// The scaler: a stage that resizes its input with a separable filter (nearest neighbour,
// linear, cubic, or Fant: area averaging with exact box coverage). Linear and cubic widen
// their support by the reduction factor, so a strong reduction averages rather than
// aliases. Weights are computed once in 14-bit fixed point; rows are filtered horizontally
// as they arrive into a ring that holds only the source rows the current output row needs,
// then combined vertically. The input is pulled band by band, top to bottom for a top to
// bottom caller, so a reduction of a 100-megapixel picture never holds it at full size and
// works over a sequential decoder. It keeps its input's access pattern.
//
// Works on 8-bit samples of 1 to 4 channels (Gray8, GrayAlpha16, Rgb24, Bgr24, Rgba32,
// Bgra32, Pbgra32, Bgr32, Cmyk32); channels are filtered independently, and a premultiplied
// result is kept valid (colour never above alpha after cubic ringing). Other formats are
// converted first by the caller.
//
// Thread rules: as every source, one thread at a time.
#pragma once

#include <memory>

#include "platform/imaging/bitmap_source.h"

namespace orvanta::imaging {

enum class Interpolation { NearestNeighbor, Linear, Cubic, Fant };

// True when the scaler works on `format` directly.
bool CanScale(PixelFormat format);

// The input untouched when `size` is its size. A frame is first asked for a codec-side
// reduction to at least `size` (DCT scaling, raw half size), and the stage scales what it
// gives. nullptr for a null input, a format CanScale() refuses, an unacceptable size, or a
// shape whose scratch would be out of all proportion (a gigapixel in one row).
std::unique_ptr<BitmapSource> Scaled(std::unique_ptr<BitmapSource> source, PixelSize size,
                                     Interpolation interpolation);

}  // namespace orvanta::imaging

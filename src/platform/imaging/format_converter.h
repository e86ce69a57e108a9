// The format converter: a stage that turns any source format of pixel_format.h into one of
// the display formats (Pbgra32, Bgra32, Bgr32, Bgr24, Bgr565, Bgr555). No dithering and no
// colour management: 16-bit samples round to 8 bits, CMYK inverts naively, indexed formats
// go through their palette, premultiplication rounds exactly (round(c * a / 255)) and
// premultiplied sources are unpremultiplied where the target is straight. It pulls only the
// rows it is asked for, band by band, through scratch it keeps between calls, and keeps its
// input's access pattern.
//
// Thread rules: as every source, one thread at a time.
#pragma once

#include <memory>

#include "platform/imaging/bitmap_source.h"

namespace orvanta::imaging {

// True when Converted() can make `target` from `source`.
bool CanConvert(PixelFormat source, PixelFormat target);

// The input untouched when it is already in `target`. A frame is first asked for a variant
// straight in `target` (a codec's own colour converter beats a stage over it). nullptr for a
// null input or a pair CanConvert() refuses.
std::unique_ptr<BitmapSource> Converted(std::unique_ptr<BitmapSource> source, PixelFormat target);

}  // namespace orvanta::imaging

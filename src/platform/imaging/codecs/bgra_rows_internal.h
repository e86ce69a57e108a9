// Conversion of one row of any non-CMYK pixel format to Bgra32, for codecs that take pixels
// from another decoder (the PNG entries of icons) and must emit Bgra32 themselves.
// Premultiplied rows come out straight; 16-bit samples are rounded to 8 bits. Pure functions.
#pragma once

#include <cstdint>
#include <span>

#include "platform/imaging/pixel_format.h"

namespace orvanta::imaging::codecs {

bool CanConvertToBgra32(PixelFormat format);

// Converts `width` pixels of `src` (a row of `format`, starting at its first pixel) into
// `dst`. `palette` is the source's colour table for indexed formats (indexes past its end
// give opaque black). Does nothing and returns false for a format CanConvertToBgra32 refuses.
bool ConvertRowToBgra32(PixelFormat format, std::span<const std::uint32_t> palette,
                        const std::uint8_t* src, std::uint32_t width, std::uint8_t* dst);

}  // namespace orvanta::imaging::codecs

// The pixel format a decoded picture is made in, so that the view draws it without another
// conversion: by the back buffer's format on the accelerated path, by the screen's depth on
// the raster path. Pure functions; thread-safe.
#pragma once

#include <cstdint>

#include "platform/imaging/pixel_format.h"

namespace orvanta::decode {

// Back-buffer formats by their Direct3D numbers, which the presenter reports.
enum class BackBufferFormat : std::uint32_t {
    None = 0,
    R8G8B8 = 20,
    A8R8G8B8 = 21,
    R5G6B5 = 23,
    X1R5G5B5 = 24,
};

// None and any format not named: 32bppPBGRA.
imaging::PixelFormat OutputFormatForBackBuffer(BackBufferFormat format);

struct ScreenDepth {
    std::uint32_t bitsPerPixel = 32;
    std::uint32_t planes = 1;
    bool palette = false;
    std::uint32_t greenMaskBits = 0;  // bits set in the green mask of a 16-bit screen
};

// 16 bits (not a palette device, planes x bits not 24): 565 with a 6-bit green mask, else
// 555; 24 bits: 24bppBGR; anything else 32bppPBGRA.
imaging::PixelFormat OutputFormatForScreen(const ScreenDepth& screen);

}  // namespace orvanta::decode

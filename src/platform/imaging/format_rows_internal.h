// Row kernels of the format converter: every source format unpacks to 8-bit B, G, R, A
// (straight, or premultiplied for the premultiplied sources going to a premultiplied
// target), and every display format packs from it; the hot pairs have a direct kernel.
// Pure functions over caller-owned rows; rows of packed formats start at their first
// pixel's most significant bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/imaging/pixel_format.h"

namespace orvanta::imaging::rows {

// An indexed format's colours as B, G, R, A words (0xAARRGGBB); indices past the file's
// table read as opaque black.
using PaletteTable = std::array<std::uint32_t, 256>;

using Unpack = void (*)(const std::uint8_t* src, std::uint8_t* bgra, std::size_t width,
                        const PaletteTable& palette);
using Pack = void (*)(const std::uint8_t* bgra, std::uint8_t* dst, std::size_t width);
using Direct = void (*)(const std::uint8_t* src, std::uint8_t* dst, std::size_t width);

// nullptr for a format without one.
Unpack StraightUnpacker(PixelFormat source);
Unpack PremultipliedUnpacker(PixelFormat source);  // Pbgra32 and Prgba64 only
Pack StraightPacker(PixelFormat target);           // the display formats
Direct DirectKernel(PixelFormat source, PixelFormat target);

// round(c * a / 255) for c, a in [0, 255], exact, in 16-bit lanes.
constexpr std::uint8_t Premultiply(std::uint32_t c, std::uint32_t a) {
    const auto t = static_cast<std::uint16_t>(c * a + 128);
    return static_cast<std::uint8_t>((t + (t >> 8)) >> 8);
}
// The colour that premultiplies back to p; 0 where alpha is 0.
constexpr std::uint8_t Unpremultiply(std::uint32_t p, std::uint32_t a) {
    if (a == 0) {
        return 0;
    }
    const std::uint32_t c = (p * 255 + a / 2) / a;
    return static_cast<std::uint8_t>(c > 255 ? 255 : c);
}
// round(v / 257): a 16-bit sample to 8 bits.
constexpr std::uint8_t To8(std::uint32_t v) {
    return static_cast<std::uint8_t>((v + 128) / 257);
}

}  // namespace orvanta::imaging::rows

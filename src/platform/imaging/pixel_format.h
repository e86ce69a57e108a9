// Pixel formats: the display formats of the design's tables and the source formats the
// codecs produce, each with its platform identifier and bits per pixel. Immutable tables.
//
// Byte order follows the names: Bgra32 is B, G, R, A in memory; Rgb48 is three 16-bit
// little-endian (native) samples R, G, B. Premultiplied formats carry colour already
// multiplied by alpha. Gray and 16-bit samples are linear in the file's own encoding (no
// gamma change happens in a format conversion).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/imaging/guid.h"

namespace orvanta::imaging {

enum class PixelFormat : std::uint8_t {
    Unknown,
    // display formats
    Pbgra32,  // 32bppPBGRA
    Bgra32,   // 32bppBGRA
    Bgr32,    // 32bppBGR (fourth byte unused)
    Bgr24,    // 24bppBGR
    Bgr565,   // 16bppBGR565
    Bgr555,   // 16bppBGR555
    // source formats
    BlackWhite,  // 1 bit, 0 black
    Indexed1,
    Indexed2,
    Indexed4,
    Indexed8,
    Gray8,
    Gray16,
    Rgb24,
    Rgba32,
    Rgb48,
    Rgba64,
    Prgba64,
    Bgra64,
    Cmyk32,
    Cmyk64,
    GrayAlpha16,  // 8-bit gray then 8-bit alpha (PNG, WebP lossless gray)
    GrayAlpha32,  // 16-bit gray then 16-bit alpha
};

struct PixelFormatInfo {
    PixelFormat format;
    Guid id;
    std::uint32_t bitsPerPixel;
    std::uint32_t channels;
    std::uint32_t bitsPerChannel;
    bool hasAlpha;
    bool premultiplied;
    bool indexed;
    std::string_view name;  // as the command-line tool prints it, e.g. "32bppPBGRA"
};

const PixelFormatInfo& Info(PixelFormat format);
std::span<const PixelFormatInfo> AllPixelFormats();
// Unknown when the identifier names no format of the table.
PixelFormat PixelFormatFromGuid(const Guid& id);
inline std::uint32_t BitsPerPixel(PixelFormat format) {
    return Info(format).bitsPerPixel;
}

}  // namespace orvanta::imaging

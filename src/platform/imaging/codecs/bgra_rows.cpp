#include <cstring>

#include "platform/imaging/codecs/bgra_rows_internal.h"

namespace orvanta::imaging::codecs {

namespace {

std::uint8_t To8(std::uint16_t v) {
    return static_cast<std::uint8_t>((v + 128u) / 257u);
}

std::uint16_t Sample16(const std::uint8_t* p, std::size_t index) {
    std::uint16_t v;
    std::memcpy(&v, p + index * 2, 2);  // native-endian samples
    return v;
}

std::uint8_t Unpremultiply(std::uint8_t c, std::uint8_t a) {
    if (a == 0) {
        return 0;
    }
    const unsigned v = (c * 255u + a / 2u) / a;
    return static_cast<std::uint8_t>(v > 255 ? 255 : v);
}

void Put(std::uint8_t* dst, std::uint32_t i, unsigned b, unsigned g, unsigned r, unsigned a) {
    dst[i * 4] = static_cast<std::uint8_t>(b);
    dst[i * 4 + 1] = static_cast<std::uint8_t>(g);
    dst[i * 4 + 2] = static_cast<std::uint8_t>(r);
    dst[i * 4 + 3] = static_cast<std::uint8_t>(a);
}

unsigned Expand5(unsigned v) {
    return (v << 3) | (v >> 2);
}
unsigned Expand6(unsigned v) {
    return (v << 2) | (v >> 4);
}

}  // namespace

bool CanConvertToBgra32(PixelFormat format) {
    switch (format) {
        case PixelFormat::Unknown:
        case PixelFormat::Cmyk32:
        case PixelFormat::Cmyk64:
        case PixelFormat::Prgba64:
            return false;
        default:
            return true;
    }
}

bool ConvertRowToBgra32(PixelFormat format, std::span<const std::uint32_t> palette,
                        const std::uint8_t* src, std::uint32_t width, std::uint8_t* dst) {
    const std::uint32_t bits = BitsPerPixel(format);
    switch (format) {
        case PixelFormat::Bgra32:
            std::memcpy(dst, src, std::size_t{width} * 4);
            return true;
        case PixelFormat::Bgr32:
        case PixelFormat::Pbgra32:
            for (std::uint32_t i = 0; i < width; ++i) {
                const std::uint8_t* p = src + std::size_t{i} * 4;
                if (format == PixelFormat::Bgr32) {
                    Put(dst, i, p[0], p[1], p[2], 255);
                } else {
                    Put(dst, i, Unpremultiply(p[0], p[3]), Unpremultiply(p[1], p[3]),
                        Unpremultiply(p[2], p[3]), p[3]);
                }
            }
            return true;
        case PixelFormat::Bgr24:
        case PixelFormat::Rgb24:
        case PixelFormat::Rgba32: {
            const std::size_t k = bits / 8;
            const bool rgb = format != PixelFormat::Bgr24;
            for (std::uint32_t i = 0; i < width; ++i) {
                const std::uint8_t* p = src + i * k;
                Put(dst, i, rgb ? p[2] : p[0], p[1], rgb ? p[0] : p[2], k == 4 ? p[3] : 255);
            }
            return true;
        }
        case PixelFormat::Bgr565:
        case PixelFormat::Bgr555:
            for (std::uint32_t i = 0; i < width; ++i) {
                const unsigned v = src[i * 2] | (src[i * 2 + 1] << 8);
                if (format == PixelFormat::Bgr565) {
                    Put(dst, i, Expand5(v & 31), Expand6((v >> 5) & 63), Expand5(v >> 11), 255);
                } else {
                    Put(dst, i, Expand5(v & 31), Expand5((v >> 5) & 31), Expand5((v >> 10) & 31),
                        255);
                }
            }
            return true;
        case PixelFormat::BlackWhite:
        case PixelFormat::Indexed1:
        case PixelFormat::Indexed2:
        case PixelFormat::Indexed4:
        case PixelFormat::Indexed8:
            for (std::uint32_t i = 0; i < width; ++i) {
                const std::size_t bit = std::size_t{i} * bits;
                const unsigned index = (src[bit / 8] >> (8 - bits - bit % 8)) & ((1u << bits) - 1);
                if (format == PixelFormat::BlackWhite) {
                    const unsigned v = index ? 255 : 0;
                    Put(dst, i, v, v, v, 255);
                } else {
                    const std::uint32_t c = index < palette.size() ? palette[index] : 0xFF000000u;
                    Put(dst, i, c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF, c >> 24);
                }
            }
            return true;
        case PixelFormat::Gray8:
        case PixelFormat::GrayAlpha16:
            for (std::uint32_t i = 0; i < width; ++i) {
                const bool alpha = format == PixelFormat::GrayAlpha16;
                const unsigned g = alpha ? src[i * 2] : src[i];
                Put(dst, i, g, g, g, alpha ? src[i * 2 + 1] : 255);
            }
            return true;
        case PixelFormat::Gray16:
        case PixelFormat::GrayAlpha32:
            for (std::uint32_t i = 0; i < width; ++i) {
                const bool alpha = format == PixelFormat::GrayAlpha32;
                const unsigned g = To8(Sample16(src, alpha ? i * 2 : i));
                Put(dst, i, g, g, g, alpha ? To8(Sample16(src, i * 2 + 1)) : 255);
            }
            return true;
        case PixelFormat::Rgb48:
        case PixelFormat::Rgba64:
        case PixelFormat::Bgra64: {
            const std::size_t k = format == PixelFormat::Rgb48 ? 3 : 4;
            const bool bgr = format == PixelFormat::Bgra64;
            for (std::uint32_t i = 0; i < width; ++i) {
                const std::size_t p = i * k;
                const unsigned c0 = To8(Sample16(src, p));
                const unsigned c2 = To8(Sample16(src, p + 2));
                Put(dst, i, bgr ? c0 : c2, To8(Sample16(src, p + 1)), bgr ? c2 : c0,
                    k == 4 ? To8(Sample16(src, p + 3)) : 255);
            }
            return true;
        }
        default:
            return false;
    }
}

}  // namespace orvanta::imaging::codecs

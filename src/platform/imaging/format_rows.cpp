#include <bit>
#include <cstring>

#include "platform/imaging/format_rows_internal.h"

namespace orvanta::imaging::rows {

namespace {

// The direct kernels work in blocks of a fixed pixel count: g++ -O2 (the very cheap cost
// model) vectorises a loop only when its trip count is a known multiple of the vector.
constexpr std::size_t kBlock = 16;

std::uint32_t Load16(const std::uint8_t* p) {
    std::uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

void Store16(std::uint8_t* p, std::uint32_t v) {
    const auto value = static_cast<std::uint16_t>(v);
    std::memcpy(p, &value, 2);
}

void Put(std::uint8_t* d, std::uint32_t b, std::uint32_t g, std::uint32_t r, std::uint32_t a) {
    d[0] = static_cast<std::uint8_t>(b);
    d[1] = static_cast<std::uint8_t>(g);
    d[2] = static_cast<std::uint8_t>(r);
    d[3] = static_cast<std::uint8_t>(a);
}

void PutWord(std::uint8_t* d, std::uint32_t argb) {
    Put(d, argb & 0xFF, (argb >> 8) & 0xFF, (argb >> 16) & 0xFF, argb >> 24);
}

// 16-bit premultiplied colour back to straight, at full precision before the rounding to 8.
std::uint32_t Unpremultiply16(std::uint32_t p, std::uint32_t a) {
    if (a == 0) {
        return 0;
    }
    const std::uint32_t c = (p * 65535u + a / 2) / a;
    return c > 65535 ? 65535 : c;
}

// Inversion without a profile: each ink takes its share of the light, black takes the rest.
std::uint32_t Ink8(std::uint32_t c, std::uint32_t k) {
    return Premultiply(255 - c, 255 - k);
}
std::uint32_t Ink16(std::uint32_t c, std::uint32_t k) {
    return To8(((65535 - c) * (65535 - k) + 32767) / 65535);
}

std::uint32_t Expand5(std::uint32_t v) {
    return (v << 3) | (v >> 2);
}
std::uint32_t Expand6(std::uint32_t v) {
    return (v << 2) | (v >> 4);
}
std::uint32_t Reduce5(std::uint32_t v) {
    return (v * 31 + 127) / 255;
}
std::uint32_t Reduce6(std::uint32_t v) {
    return (v * 63 + 127) / 255;
}

// --- unpackers to B, G, R, A ---------------------------------------------------------

void UnpackBlackWhite(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t v = ((s[i >> 3] >> (7 - (i & 7))) & 1) != 0 ? 255 : 0;
        Put(d + 4 * i, v, v, v, 255);
    }
}

template <unsigned kBits>
void UnpackIndexed(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable& p) {
    constexpr unsigned kPerByte = 8 / kBits;
    constexpr unsigned kMask = (1u << kBits) - 1;
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned shift = 8 - kBits * (1 + static_cast<unsigned>(i % kPerByte));
        PutWord(d + 4 * i, p[(s[i / kPerByte] >> shift) & kMask]);
    }
}

void UnpackGray8(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[i], s[i], s[i], 255);
    }
}

void UnpackGray16(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t v = To8(Load16(s + 2 * i));
        Put(d + 4 * i, v, v, v, 255);
    }
}

void UnpackGrayAlpha16(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[2 * i], s[2 * i], s[2 * i], s[2 * i + 1]);
    }
}

void UnpackGrayAlpha32(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t v = To8(Load16(s + 4 * i));
        Put(d + 4 * i, v, v, v, To8(Load16(s + 4 * i + 2)));
    }
}

void UnpackRgb24(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[3 * i + 2], s[3 * i + 1], s[3 * i], 255);
    }
}

void UnpackRgba32(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[4 * i + 2], s[4 * i + 1], s[4 * i], s[4 * i + 3]);
    }
}

void UnpackRgb48(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 6 * i;
        Put(d + 4 * i, To8(Load16(p + 4)), To8(Load16(p + 2)), To8(Load16(p)), 255);
    }
}

void UnpackRgba64(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 8 * i;
        Put(d + 4 * i, To8(Load16(p + 4)), To8(Load16(p + 2)), To8(Load16(p)), To8(Load16(p + 6)));
    }
}

void UnpackBgra64(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 8 * i;
        Put(d + 4 * i, To8(Load16(p)), To8(Load16(p + 2)), To8(Load16(p + 4)), To8(Load16(p + 6)));
    }
}

void UnpackPrgba64Straight(const std::uint8_t* s, std::uint8_t* d, std::size_t n,
                           const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 8 * i;
        const std::uint32_t a = Load16(p + 6);
        Put(d + 4 * i, To8(Unpremultiply16(Load16(p + 4), a)),
            To8(Unpremultiply16(Load16(p + 2), a)), To8(Unpremultiply16(Load16(p), a)), To8(a));
    }
}

void UnpackPrgba64Premultiplied(const std::uint8_t* s, std::uint8_t* d, std::size_t n,
                                const PaletteTable& p) {
    // Rounding is monotonic, so colour <= alpha still holds after it.
    UnpackRgba64(s, d, n, p);
}

void UnpackCmyk32(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 4 * i;
        Put(d + 4 * i, Ink8(p[2], p[3]), Ink8(p[1], p[3]), Ink8(p[0], p[3]), 255);
    }
}

void UnpackCmyk64(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 8 * i;
        const std::uint32_t k = Load16(p + 6);
        Put(d + 4 * i, Ink16(Load16(p + 4), k), Ink16(Load16(p + 2), k), Ink16(Load16(p), k), 255);
    }
}

void UnpackBgr24(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[3 * i], s[3 * i + 1], s[3 * i + 2], 255);
    }
}

void UnpackBgr32(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[4 * i], s[4 * i + 1], s[4 * i + 2], 255);
    }
}

void UnpackCopy32(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    std::memcpy(d, s, 4 * n);
}

void UnpackPbgra32Straight(const std::uint8_t* s, std::uint8_t* d, std::size_t n,
                           const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 4 * i;
        Put(d + 4 * i, Unpremultiply(p[0], p[3]), Unpremultiply(p[1], p[3]),
            Unpremultiply(p[2], p[3]), p[3]);
    }
}

void UnpackBgr565(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t v = Load16(s + 2 * i);
        Put(d + 4 * i, Expand5(v & 0x1F), Expand6((v >> 5) & 0x3F), Expand5(v >> 11), 255);
    }
}

void UnpackBgr555(const std::uint8_t* s, std::uint8_t* d, std::size_t n, const PaletteTable&) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t v = Load16(s + 2 * i);
        Put(d + 4 * i, Expand5(v & 0x1F), Expand5((v >> 5) & 0x1F), Expand5((v >> 10) & 0x1F), 255);
    }
}

// --- packers from straight B, G, R, A ------------------------------------------------

void PackCopy32(const std::uint8_t* s, std::uint8_t* d, std::size_t n) {
    std::memcpy(d, s, 4 * n);
}

void PackPbgra32(const std::uint8_t* __restrict s, std::uint8_t* __restrict d, std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        const std::uint8_t* __restrict bs = s + 4 * i;
        std::uint8_t* __restrict bd = d + 4 * i;
        for (std::size_t k = 0; k < kBlock; ++k) {
            const std::uint16_t a = bs[4 * k + 3];
            bd[4 * k] = Premultiply(bs[4 * k], a);
            bd[4 * k + 1] = Premultiply(bs[4 * k + 1], a);
            bd[4 * k + 2] = Premultiply(bs[4 * k + 2], a);
            bd[4 * k + 3] = static_cast<std::uint8_t>(a);
        }
    }
    for (; i < n; ++i) {
        const std::uint8_t* p = s + 4 * i;
        Put(d + 4 * i, Premultiply(p[0], p[3]), Premultiply(p[1], p[3]), Premultiply(p[2], p[3]),
            p[3]);
    }
}

void PackBgr32(const std::uint8_t* s, std::uint8_t* d, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        Put(d + 4 * i, s[4 * i], s[4 * i + 1], s[4 * i + 2], 255);
    }
}

void PackBgr24(const std::uint8_t* s, std::uint8_t* d, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        d[3 * i] = s[4 * i];
        d[3 * i + 1] = s[4 * i + 1];
        d[3 * i + 2] = s[4 * i + 2];
    }
}

void PackBgr565(const std::uint8_t* s, std::uint8_t* d, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 4 * i;
        Store16(d + 2 * i, Reduce5(p[0]) | (Reduce6(p[1]) << 5) | (Reduce5(p[2]) << 11));
    }
}

void PackBgr555(const std::uint8_t* s, std::uint8_t* d, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t* p = s + 4 * i;
        Store16(d + 2 * i, Reduce5(p[0]) | (Reduce5(p[1]) << 5) | (Reduce5(p[2]) << 10));
    }
}

// --- direct kernels for the hot pairs -------------------------------------------------

// B, G, R, A as one 32-bit word in memory order.
constexpr std::uint32_t kOpaque = std::endian::native == std::endian::little ? 0xFF000000u : 0xFFu;
constexpr std::uint32_t kGrayToWord =
    std::endian::native == std::endian::little ? 0x00010101u : 0x01010100u;

// Three bytes in reverse order to B, G, R, 255 (Rgb24 to any 32-bit display format). The
// byte shuffle it needs is not in the base instruction set; where the processor has AVX2,
// a build that uses it is chosen at load time.
[[gnu::target_clones("avx2", "default")]] void RgbToBgrx(const std::uint8_t* __restrict s,
                                                         std::uint8_t* __restrict d,
                                                         std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        const std::uint8_t* __restrict bs = s + 3 * i;
        std::uint32_t words[kBlock];
        for (std::size_t k = 0; k < kBlock; ++k) {
            words[k] = std::endian::native == std::endian::little
                           ? std::uint32_t{bs[3 * k]} << 16 | std::uint32_t{bs[3 * k + 1]} << 8 |
                                 bs[3 * k + 2] | kOpaque
                           : std::uint32_t{bs[3 * k + 2]} << 24 |
                                 std::uint32_t{bs[3 * k + 1]} << 16 |
                                 std::uint32_t{bs[3 * k]} << 8 | kOpaque;
        }
        std::memcpy(d + 4 * i, words, sizeof words);
    }
    for (; i < n; ++i) {
        Put(d + 4 * i, s[3 * i + 2], s[3 * i + 1], s[3 * i], 255);
    }
}

void BgrToBgrx(const std::uint8_t* __restrict s, std::uint8_t* __restrict d, std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        const std::uint8_t* __restrict bs = s + 3 * i;
        std::uint8_t* __restrict bd = d + 4 * i;
        for (std::size_t k = 0; k < kBlock; ++k) {
            bd[4 * k] = bs[3 * k];
            bd[4 * k + 1] = bs[3 * k + 1];
            bd[4 * k + 2] = bs[3 * k + 2];
            bd[4 * k + 3] = 255;
        }
    }
    for (; i < n; ++i) {
        Put(d + 4 * i, s[3 * i], s[3 * i + 1], s[3 * i + 2], 255);
    }
}

void GrayToBgrx(const std::uint8_t* __restrict s, std::uint8_t* __restrict d, std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        std::uint32_t words[kBlock];
        for (std::size_t k = 0; k < kBlock; ++k) {
            words[k] = s[i + k] * kGrayToWord | kOpaque;
        }
        std::memcpy(d + 4 * i, words, sizeof words);
    }
    for (; i < n; ++i) {
        Put(d + 4 * i, s[i], s[i], s[i], 255);
    }
}

void BgrxToBgra(const std::uint8_t* __restrict s, std::uint8_t* __restrict d, std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        std::uint32_t words[kBlock];
        std::memcpy(words, s + 4 * i, sizeof words);
        for (std::size_t k = 0; k < kBlock; ++k) {
            words[k] |= kOpaque;
        }
        std::memcpy(d + 4 * i, words, sizeof words);
    }
    for (; i < n; ++i) {
        Put(d + 4 * i, s[4 * i], s[4 * i + 1], s[4 * i + 2], 255);
    }
}

void RgbaToBgra(const std::uint8_t* __restrict s, std::uint8_t* __restrict d, std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        const std::uint8_t* __restrict bs = s + 4 * i;
        std::uint8_t* __restrict bd = d + 4 * i;
        for (std::size_t k = 0; k < kBlock; ++k) {
            bd[4 * k] = bs[4 * k + 2];
            bd[4 * k + 1] = bs[4 * k + 1];
            bd[4 * k + 2] = bs[4 * k];
            bd[4 * k + 3] = bs[4 * k + 3];
        }
    }
    for (; i < n; ++i) {
        Put(d + 4 * i, s[4 * i + 2], s[4 * i + 1], s[4 * i], s[4 * i + 3]);
    }
}

void RgbaToPbgra(const std::uint8_t* __restrict s, std::uint8_t* __restrict d, std::size_t n) {
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        const std::uint8_t* __restrict bs = s + 4 * i;
        std::uint8_t* __restrict bd = d + 4 * i;
        for (std::size_t k = 0; k < kBlock; ++k) {
            const std::uint16_t a = bs[4 * k + 3];
            bd[4 * k] = Premultiply(bs[4 * k + 2], a);
            bd[4 * k + 1] = Premultiply(bs[4 * k + 1], a);
            bd[4 * k + 2] = Premultiply(bs[4 * k], a);
            bd[4 * k + 3] = static_cast<std::uint8_t>(a);
        }
    }
    for (; i < n; ++i) {
        const std::uint8_t* p = s + 4 * i;
        Put(d + 4 * i, Premultiply(p[2], p[3]), Premultiply(p[1], p[3]), Premultiply(p[0], p[3]),
            p[3]);
    }
}

bool IsBgrx(PixelFormat target) {
    return target == PixelFormat::Pbgra32 || target == PixelFormat::Bgra32 ||
           target == PixelFormat::Bgr32;
}

}  // namespace

Unpack StraightUnpacker(PixelFormat source) {
    switch (source) {
        case PixelFormat::BlackWhite:
            return UnpackBlackWhite;
        case PixelFormat::Indexed1:
            return UnpackIndexed<1>;
        case PixelFormat::Indexed2:
            return UnpackIndexed<2>;
        case PixelFormat::Indexed4:
            return UnpackIndexed<4>;
        case PixelFormat::Indexed8:
            return UnpackIndexed<8>;
        case PixelFormat::Gray8:
            return UnpackGray8;
        case PixelFormat::Gray16:
            return UnpackGray16;
        case PixelFormat::GrayAlpha16:
            return UnpackGrayAlpha16;
        case PixelFormat::GrayAlpha32:
            return UnpackGrayAlpha32;
        case PixelFormat::Rgb24:
            return UnpackRgb24;
        case PixelFormat::Rgba32:
            return UnpackRgba32;
        case PixelFormat::Rgb48:
            return UnpackRgb48;
        case PixelFormat::Rgba64:
            return UnpackRgba64;
        case PixelFormat::Prgba64:
            return UnpackPrgba64Straight;
        case PixelFormat::Bgra64:
            return UnpackBgra64;
        case PixelFormat::Cmyk32:
            return UnpackCmyk32;
        case PixelFormat::Cmyk64:
            return UnpackCmyk64;
        case PixelFormat::Bgr24:
            return UnpackBgr24;
        case PixelFormat::Bgr32:
            return UnpackBgr32;
        case PixelFormat::Bgra32:
            return UnpackCopy32;
        case PixelFormat::Pbgra32:
            return UnpackPbgra32Straight;
        case PixelFormat::Bgr565:
            return UnpackBgr565;
        case PixelFormat::Bgr555:
            return UnpackBgr555;
        case PixelFormat::Unknown:
            break;
    }
    return nullptr;
}

Unpack PremultipliedUnpacker(PixelFormat source) {
    switch (source) {
        case PixelFormat::Pbgra32:
            return UnpackCopy32;
        case PixelFormat::Prgba64:
            return UnpackPrgba64Premultiplied;
        default:
            return nullptr;
    }
}

Pack StraightPacker(PixelFormat target) {
    switch (target) {
        case PixelFormat::Pbgra32:
            return PackPbgra32;
        case PixelFormat::Bgra32:
            return PackCopy32;
        case PixelFormat::Bgr32:
            return PackBgr32;
        case PixelFormat::Bgr24:
            return PackBgr24;
        case PixelFormat::Bgr565:
            return PackBgr565;
        case PixelFormat::Bgr555:
            return PackBgr555;
        default:
            return nullptr;
    }
}

Direct DirectKernel(PixelFormat source, PixelFormat target) {
    switch (source) {
        case PixelFormat::Rgb24:
            return IsBgrx(target) ? RgbToBgrx : nullptr;
        case PixelFormat::Bgr24:
            return IsBgrx(target) ? BgrToBgrx : nullptr;
        case PixelFormat::Gray8:
            return IsBgrx(target) ? GrayToBgrx : nullptr;
        case PixelFormat::Bgr32:
            return target == PixelFormat::Pbgra32 || target == PixelFormat::Bgra32 ? BgrxToBgra
                                                                                   : nullptr;
        case PixelFormat::Rgba32:
            return target == PixelFormat::Pbgra32  ? RgbaToPbgra
                   : target == PixelFormat::Bgra32 ? RgbaToBgra
                                                   : nullptr;
        case PixelFormat::Bgra32:
            return target == PixelFormat::Pbgra32 ? PackPbgra32
                   : target == PixelFormat::Bgr32 ? BgrxToBgra
                                                  : nullptr;
        default:
            return nullptr;
    }
}

}  // namespace orvanta::imaging::rows

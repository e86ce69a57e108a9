#include <algorithm>
#include <cstring>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/codecs/little_endian_internal.h"
#include "platform/imaging/codecs/tga_header_internal.h"

namespace orvanta::imaging::codecs {

namespace {

constexpr std::size_t kHeaderSize = 18;
constexpr std::size_t kFooterSize = 26;
constexpr std::size_t kExtensionSize = 495;
constexpr std::size_t kAttributesField = 494;       // attributes type, inside the extension area
constexpr char kSignature[] = "TRUEVISION-XFILE.";  // with its NUL: the footer's last 18 bytes

struct RawHeader {
    std::uint8_t idLength;
    std::uint8_t mapType;
    std::uint8_t imageType;
    std::uint16_t mapFirst;
    std::uint16_t mapLength;
    std::uint8_t mapEntrySize;
    std::uint16_t width;
    std::uint16_t height;
    std::uint8_t depth;
    std::uint8_t descriptor;
};

RawHeader Parse(std::span<const std::uint8_t> b) {
    return RawHeader{
        b[0],  b[1], b[2], LoadLe16(b, 3), LoadLe16(b, 5), b[7], LoadLe16(b, 12), LoadLe16(b, 14),
        b[16], b[17]};
}

bool ValidEntrySize(std::uint8_t size) {
    return size == 15 || size == 16 || size == 24 || size == 32;
}

// What every decode needs. `strict` adds what a content test needs: no stray colour-map
// fields, no interleaving bits, an attribute-bit count that fits the depth.
bool Plausible(const RawHeader& h, bool strict) {
    const std::uint8_t base = h.imageType & 7;
    if (h.mapType > 1 || h.width == 0 || h.height == 0 ||
        (h.imageType != base && h.imageType != base + 8) || base < 1 || base > 3) {
        return false;
    }
    if (h.mapType == 1 && (!ValidEntrySize(h.mapEntrySize) || h.mapLength == 0)) {
        return false;
    }
    const unsigned alphaBits = h.descriptor & 15u;
    switch (base) {
        case 1:
            if (h.mapType != 1 || (h.depth != 8 && h.depth != 16)) {
                return false;
            }
            // Attribute bits of an index describe the map's entries: 0, 1 or 8 occur.
            if (strict && (h.depth != 8 || (alphaBits > 1 && alphaBits != 8))) {
                return false;
            }
            break;
        case 2:
            if (h.depth != 15 && h.depth != 16 && h.depth != 24 && h.depth != 32) {
                return false;
            }
            if (strict && alphaBits != 0 && !(h.depth == 32 && alphaBits == 8) &&
                !(h.depth == 16 && alphaBits == 1)) {
                return false;
            }
            break;
        default:
            if (h.depth != 8 && h.depth != 16) {
                return false;
            }
            if (strict && alphaBits != 0 && !(h.depth == 16 && alphaBits == 8)) {
                return false;
            }
            break;
    }
    if (strict) {
        if ((h.descriptor & 0xC0) != 0) {
            return false;
        }
        if (h.mapType == 0 && (h.mapFirst != 0 || h.mapLength != 0 ||
                               (h.mapEntrySize != 0 && !ValidEntrySize(h.mapEntrySize)))) {
            return false;
        }
    }
    return true;
}

unsigned Expand5(unsigned v) {
    return (v << 3) | (v >> 2);
}

std::uint32_t MapEntry(std::span<const std::uint8_t> b, std::size_t p, std::uint8_t size,
                       TgaAlpha alpha) {
    std::uint32_t r = 0;
    std::uint32_t g = 0;
    std::uint32_t bl = 0;
    std::uint32_t a = 255;
    if (size <= 16) {
        const unsigned v = LoadLe16(b, p);
        bl = Expand5(v & 31);
        g = Expand5((v >> 5) & 31);
        r = Expand5((v >> 10) & 31);
        if (size == 16 && alpha != TgaAlpha::None) {
            a = (v & 0x8000) ? 255 : 0;
        }
    } else {
        bl = b[p];
        g = b[p + 1];
        r = b[p + 2];
        if (size == 32 && alpha != TgaAlpha::None) {
            a = b[p + 3];
            if (alpha == TgaAlpha::Premultiplied && a != 0) {
                r = std::min<std::uint32_t>(255, (r * 255 + a / 2) / a);
                g = std::min<std::uint32_t>(255, (g * 255 + a / 2) / a);
                bl = std::min<std::uint32_t>(255, (bl * 255 + a / 2) / a);
            }
        }
    }
    return (a << 24) | (r << 16) | (g << 8) | bl;
}

// The extension area's attributes type, when the file has a footer that points to one.
std::optional<std::uint8_t> AttributesType(std::span<const std::uint8_t> file) {
    if (file.size() < kHeaderSize + kFooterSize) {
        return std::nullopt;
    }
    const std::size_t footer = file.size() - kFooterSize;
    if (std::memcmp(file.data() + footer + 8, kSignature, sizeof kSignature) != 0) {
        return std::nullopt;
    }
    const std::size_t extension = LoadLe32(file, footer);
    if (extension < kHeaderSize || extension > footer || footer - extension < kExtensionSize ||
        LoadLe16(file, extension) < kExtensionSize) {
        return std::nullopt;
    }
    return file[extension + kAttributesField];
}

}  // namespace

bool LooksLikeTga(std::span<const std::uint8_t> head) {
    return head.size() >= kHeaderSize && Plausible(Parse(head), true);
}

Result ReadTgaLayout(std::span<const std::uint8_t> file, TgaLayout& layout) {
    layout = {};
    if (file.size() < kHeaderSize) {
        return E_FAIL;
    }
    const RawHeader h = Parse(file);
    if (h.imageType == 32 || h.imageType == 33) {
        return E_UNSUPPORTED_TYPE;  // Huffman/delta coded, from one old writer
    }
    if (!Plausible(h, false)) {
        return E_FAIL;
    }
    const std::uint8_t base = h.imageType & 7;
    if (base == 1 && h.depth != 8) {
        return E_UNSUPPORTED_TYPE;
    }
    layout.width = h.width;
    layout.height = h.height;
    if (!AcceptableSize({layout.width, layout.height})) {
        return E_OUTOFMEMORY;
    }
    layout.depth = h.depth;
    layout.bytesPerPixel = (h.depth + 7u) / 8;
    layout.colorMapped = base == 1;
    layout.gray = base == 3;
    layout.rle = h.imageType >= 8;
    layout.topDown = (h.descriptor & 0x20) != 0;
    layout.rightToLeft = (h.descriptor & 0x10) != 0;

    const std::size_t entryBytes = h.mapType == 1 ? (h.mapEntrySize + 7u) / 8 : 0;
    const std::size_t mapOffset = kHeaderSize + h.idLength;
    const std::size_t mapBytes = std::size_t{h.mapLength} * entryBytes;  // < 2^18
    if (mapOffset + mapBytes > file.size()) {
        return E_FAIL;
    }
    layout.dataOffset = mapOffset + mapBytes;

    // Alpha: the extension area's word is final; without one, the attribute-bit count.
    const std::optional<std::uint8_t> attributes = AttributesType(file);
    const bool mayHaveAlpha =
        h.depth == 32 || (h.depth == 16 && !layout.colorMapped) ||
        (layout.colorMapped && (h.mapEntrySize == 32 || h.mapEntrySize == 16));
    if (mayHaveAlpha) {
        if (attributes && *attributes <= 4) {
            layout.alpha = *attributes == 3   ? TgaAlpha::Straight
                           : *attributes == 4 ? TgaAlpha::Premultiplied
                                              : TgaAlpha::None;
        } else if ((h.descriptor & 15u) != 0 || layout.colorMapped) {
            // A colour map's 32-bit entries carry alpha even when the index's count is 0.
            layout.alpha = TgaAlpha::Straight;
            layout.alphaGuessed = true;
        }
    }
    if (h.depth == 16 && layout.alpha == TgaAlpha::Premultiplied) {
        // One bit of alpha is the same either way; gray with alpha has no premultiplied form
        // here and is shown straight.
        layout.alpha = TgaAlpha::Straight;
    }

    if (layout.colorMapped) {
        layout.palette.assign(256, 0xFF000000u);
        bool anyAlpha = false;
        for (std::size_t v = h.mapFirst; v < 256 && v < std::size_t{h.mapFirst} + h.mapLength;
             ++v) {
            layout.palette[v] = MapEntry(file, mapOffset + (v - h.mapFirst) * entryBytes,
                                         h.mapEntrySize, layout.alpha);
            anyAlpha = anyAlpha || (layout.palette[v] >> 24) != 0;
        }
        if (layout.alphaGuessed && !anyAlpha) {
            for (std::uint32_t& c : layout.palette) {
                c |= 0xFF000000u;
            }
            layout.alpha = TgaAlpha::None;
        }
    }
    return S_OK;
}

std::uint64_t CountRlePixels(std::span<const std::uint8_t> data, const TgaLayout& layout,
                             bool& truncated) {
    const std::uint64_t total = std::uint64_t{layout.width} * layout.height;
    const std::size_t bpp = layout.bytesPerPixel;
    std::uint64_t pixels = 0;
    std::size_t p = 0;
    truncated = false;
    while (pixels < total) {
        if (p >= data.size()) {
            truncated = true;
            break;
        }
        const std::uint8_t packet = data[p++];
        const std::uint64_t count = (packet & 0x7Fu) + 1u;
        // Raw packets may end early: the pixels that are there still count.
        const std::uint64_t available =
            (packet & 0x80) ? ((data.size() - p) >= bpp ? count : 0)
                            : std::min<std::uint64_t>(count, (data.size() - p) / bpp);
        pixels += std::min(available, total - pixels);
        if (available < count) {
            truncated = pixels < total;
            break;
        }
        p += (packet & 0x80) ? bpp : count * bpp;
    }
    return pixels;
}

}  // namespace orvanta::imaging::codecs

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/checked.h"
#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/codecs/dib_reader_internal.h"
#include "platform/imaging/codecs/little_endian_internal.h"

namespace orvanta::imaging::codecs {

namespace {

enum class HeaderKind : std::uint8_t { Core, Os2, Windows };

// 'MBED': the V5 header's colour-space type when a profile is embedded after the pixels.
constexpr std::uint32_t kProfileEmbedded = 0x4D424544;

std::optional<HeaderKind> KindOfHeader(std::uint32_t headerSize) {
    if (headerSize == 12) {
        return HeaderKind::Core;
    }
    if (headerSize == 40 || headerSize == 52 || headerSize == 56 || headerSize >= 108) {
        return HeaderKind::Windows;
    }
    // OS/2 2.x headers may be cut after any field from 16 bytes on; the absent fields are 0.
    if (headerSize >= 16 && headerSize <= 64) {
        return HeaderKind::Os2;
    }
    return std::nullopt;
}

bool ValidDepth(DibCompression compression, std::uint32_t bitCount) {
    switch (compression) {
        case DibCompression::None:
            return bitCount == 1 || bitCount == 2 || bitCount == 4 || bitCount == 8 ||
                   bitCount == 16 || bitCount == 24 || bitCount == 32;
        case DibCompression::Rle8:
            return bitCount == 8;
        case DibCompression::Rle4:
            return bitCount == 4;
        case DibCompression::Bitfields:
            return bitCount == 16 || bitCount == 32;
    }
    return false;
}

}  // namespace

Result ReadDibHeader(std::span<const std::uint8_t> bytes, std::size_t offset,
                     std::optional<std::size_t> fileBitsOffset, DibHeader& header) {
    header = {};
    const std::size_t size = bytes.size();
    if (!RangeInside(offset, 4, size)) {
        return E_FAIL;
    }
    const std::uint32_t headerSize = LoadLe32(bytes, offset);
    const std::optional<HeaderKind> kind = KindOfHeader(headerSize);
    if (!kind || !RangeInside(offset, headerSize, size)) {
        return E_FAIL;
    }
    auto le16 = [&](std::size_t field) { return LoadLe16(bytes, offset + field); };
    auto le32 = [&](std::size_t field) { return LoadLe32(bytes, offset + field); };

    std::int64_t width = 0;
    std::int64_t height = 0;
    std::uint32_t code = 0;
    std::uint32_t colorsUsed = 0;
    if (*kind == HeaderKind::Core) {
        width = le16(4);
        height = le16(6);
        header.bitCount = le16(10);
    } else {
        width = static_cast<std::int32_t>(le32(4));
        height = static_cast<std::int32_t>(le32(8));
        header.bitCount = le16(14);
        code = headerSize >= 20 ? le32(16) : 0;
        colorsUsed = headerSize >= 36 ? le32(32) : 0;
    }
    if (width <= 0 || height == 0) {
        return E_FAIL;
    }
    header.headerSize = headerSize;
    header.topDown = height < 0;
    header.width = static_cast<std::uint32_t>(width);
    header.height = static_cast<std::uint32_t>(height < 0 ? -height : height);
    if (!AcceptableSize({header.width, header.height})) {
        return E_OUTOFMEMORY;
    }

    bool alphaMaskFollows = false;
    switch (code) {
        case 0:
            header.compression = DibCompression::None;
            break;
        case 1:
            header.compression = DibCompression::Rle8;
            break;
        case 2:
            header.compression = DibCompression::Rle4;
            break;
        case 3:
            // OS/2 2.x uses 3 for its 1-bit Huffman coding.
            if (*kind == HeaderKind::Os2) {
                return E_UNSUPPORTED_TYPE;
            }
            header.compression = DibCompression::Bitfields;
            break;
        case 6:
            if (*kind == HeaderKind::Os2) {
                return E_FAIL;
            }
            header.compression = DibCompression::Bitfields;
            alphaMaskFollows = true;
            break;
        default:
            // 4 and 5: embedded JPEG or PNG (RLE24 under OS/2); above: CMYK variants.
            return E_UNSUPPORTED_TYPE;
    }
    const std::uint32_t bitCount = header.bitCount;
    if (!ValidDepth(header.compression, bitCount)) {
        return E_FAIL;
    }
    const bool rle =
        header.compression == DibCompression::Rle8 || header.compression == DibCompression::Rle4;
    if (rle && header.topDown) {
        return E_FAIL;
    }

    std::size_t tableStart = offset + headerSize;
    if (header.compression == DibCompression::Bitfields) {
        if (headerSize == 40) {
            const std::size_t count = alphaMaskFollows ? 4 : 3;
            if (!RangeInside(tableStart, count * 4, size)) {
                return E_FAIL;
            }
            for (std::size_t i = 0; i < count; ++i) {
                header.masks[i] = LoadLe32(bytes, tableStart + i * 4);
            }
            tableStart += count * 4;
        } else {
            header.masks = {le32(40), le32(44), le32(48), headerSize >= 56 ? le32(52) : 0u};
        }
        if (bitCount == 16) {
            for (std::uint32_t& mask : header.masks) {
                mask &= 0xFFFFu;
            }
        }
    }
    if (header.masks[0] == 0 && header.masks[1] == 0 && header.masks[2] == 0) {
        if (bitCount == 16) {
            header.masks = {0x7C00u, 0x03E0u, 0x001Fu, 0};
        } else if (bitCount == 32) {
            header.masks = {0x00FF0000u, 0x0000FF00u, 0x000000FFu, 0};
        }
    }

    // The colour table: a full one for 1 to 8 bits unless the header says fewer colours; an
    // optional one (a hint for palette displays) that the pixels follow for deeper images.
    const std::uint64_t entrySize = *kind == HeaderKind::Core ? 3 : 4;
    std::uint64_t colors = colorsUsed;
    if (bitCount <= 8) {
        const std::uint64_t full = 1ull << bitCount;
        colors =
            (*kind == HeaderKind::Core || colorsUsed == 0 || colorsUsed > full) ? full : colorsUsed;
    }
    // An offset past the end means no pixel data at all (every pixel missing).
    const std::uint64_t tableEnd = tableStart + colors * entrySize;  // < 2^35 + size
    if (fileBitsOffset && *fileBitsOffset >= tableStart) {
        header.bitsOffset = std::min(*fileBitsOffset, size);
    } else {
        header.bitsOffset = static_cast<std::size_t>(std::min<std::uint64_t>(tableEnd, size));
    }
    if (bitCount <= 8) {
        // A short table ends where the pixels begin; indexes past it show black.
        const std::size_t limit = std::min(size, header.bitsOffset);
        const std::uint64_t readable =
            std::min<std::uint64_t>(colors, (limit - tableStart) / entrySize);
        header.palette.assign(std::size_t{1} << bitCount, 0xFF000000u);
        for (std::size_t i = 0; i < readable; ++i) {
            const std::size_t p = tableStart + i * entrySize;
            header.palette[i] = 0xFF000000u | (std::uint32_t{bytes[p + 2]} << 16) |
                                (std::uint32_t{bytes[p + 1]} << 8) | bytes[p];
        }
    }
    if (!rle) {
        header.stride =
            static_cast<std::size_t>((std::uint64_t{header.width} * bitCount + 31) / 32 * 4);
    }

    if (*kind == HeaderKind::Windows && headerSize >= 124 && le32(56) == kProfileEmbedded) {
        // The profile's offset counts from the start of the header.
        const auto start = CheckedAdd<std::size_t>(offset, le32(112));
        const std::size_t length = le32(116);
        if (start && length > 0 && RangeInside(*start, length, size)) {
            header.iccOffset = *start;
            header.iccSize = length;
        }
    }
    return S_OK;
}

bool LooksLikeDibHeader(std::span<const std::uint8_t> head) {
    if (head.size() < 16) {
        return false;
    }
    const std::uint32_t headerSize = LoadLe32(head, 0);
    if (headerSize == 12) {
        const std::uint16_t bitCount = LoadLe16(head, 10);
        return LoadLe16(head, 4) > 0 && LoadLe16(head, 6) > 0 && LoadLe16(head, 8) == 1 &&
               (bitCount == 1 || bitCount == 4 || bitCount == 8 || bitCount == 24);
    }
    if (headerSize != 40 && headerSize != 52 && headerSize != 56 && headerSize != 108 &&
        headerSize != 124) {
        return false;
    }
    if (head.size() < 20) {
        return false;
    }
    const auto width = static_cast<std::int32_t>(LoadLe32(head, 4));
    const auto height = static_cast<std::int32_t>(LoadLe32(head, 8));
    const std::uint32_t bitCount = LoadLe16(head, 14);
    const std::uint32_t code = LoadLe32(head, 16);
    if (width <= 0 || height == 0 || LoadLe16(head, 12) != 1) {
        return false;
    }
    switch (code) {
        case 0:
            return ValidDepth(DibCompression::None, bitCount);
        case 1:
            return bitCount == 8;
        case 2:
            return bitCount == 4;
        case 3:
        case 6:
            return bitCount == 16 || bitCount == 32;
        default:
            return false;
    }
}

PixelFormat NaturalDibFormat(const DibHeader& header) {
    if (header.compression == DibCompression::Rle8 || header.compression == DibCompression::Rle4) {
        return PixelFormat::Bgra32;
    }
    const auto& m = header.masks;
    switch (header.bitCount) {
        case 1:
            return PixelFormat::Indexed1;
        case 2:
            return PixelFormat::Indexed2;
        case 4:
            return PixelFormat::Indexed4;
        case 8:
            return PixelFormat::Indexed8;
        case 16:
            if (m[3] == 0 && m[0] == 0x7C00 && m[1] == 0x03E0 && m[2] == 0x001F) {
                return PixelFormat::Bgr555;
            }
            if (m[3] == 0 && m[0] == 0xF800 && m[1] == 0x07E0 && m[2] == 0x001F) {
                return PixelFormat::Bgr565;
            }
            break;
        case 24:
            return PixelFormat::Bgr24;
        default:
            break;
    }
    return header.HasAlphaMask() ? PixelFormat::Bgra32 : PixelFormat::Bgr32;
}

// --- rows ------------------------------------------------------------------------------

std::uint8_t DibRowReader::Channel::Scale(std::uint32_t pixel) const {
    if (bits == 0) {
        return 0;
    }
    const std::uint64_t value = (pixel & mask) >> shift;
    const std::uint64_t max = (std::uint64_t{1} << bits) - 1;
    return static_cast<std::uint8_t>((value * 255 + max / 2) / max);
}

DibRowReader::DibRowReader(const DibHeader& header, PixelFormat format)
    : header_(header), format_(format) {
    for (std::size_t i = 0; i < 4; ++i) {
        const std::uint32_t mask = header_.masks[i];
        channels_[i].mask = mask;
        if (mask != 0) {
            channels_[i].shift = std::countr_zero(mask);
            channels_[i].bits = std::bit_width(mask >> channels_[i].shift);
        }
    }
    const std::uint32_t bitCount = header_.bitCount;
    const bool standard32 = bitCount == 32 && header_.masks[0] == 0x00FF0000u &&
                            header_.masks[1] == 0x0000FF00u && header_.masks[2] == 0x000000FFu;
    if (Info(format).indexed) {
        mode_ = Mode::CopyBits;
    } else if (format == PixelFormat::Bgra32) {
        if (bitCount <= 8) {
            mode_ = Mode::Palette;
        } else if (bitCount == 24) {
            mode_ = Mode::Expand24;
        } else if (standard32 && (header_.masks[3] == 0xFF000000u || header_.masks[3] == 0)) {
            // With no alpha mask the fourth byte is replaced by 255 in Convert().
            mode_ = header_.masks[3] != 0 ? Mode::CopyBytes : Mode::Masks;
        } else {
            mode_ = Mode::Masks;
        }
    } else if (format == PixelFormat::Bgr32 && !standard32) {
        mode_ = Mode::Masks;
    } else {
        mode_ = Mode::CopyBytes;  // Bgr555, Bgr565, Bgr24, Bgr32 as stored
    }
}

std::uint32_t DibRowReader::StoredPixel(std::span<const std::uint8_t> row, std::uint32_t x) const {
    switch (header_.bitCount) {
        case 1:
            return (row[x >> 3] >> (7 - (x & 7))) & 1u;
        case 2:
            return (row[x >> 2] >> (6 - 2 * (x & 3))) & 3u;
        case 4:
            return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 15u;
        case 8:
            return row[x];
        case 16:
            return LoadLe16(row, std::size_t{x} * 2);
        case 24: {
            const std::size_t p = std::size_t{x} * 3;
            return row[p] | (std::uint32_t{row[p + 1]} << 8) | (std::uint32_t{row[p + 2]} << 16);
        }
        default:
            return LoadLe32(row, std::size_t{x} * 4);
    }
}

void DibRowReader::Convert(std::span<const std::uint8_t> row, std::uint32_t x, std::uint32_t count,
                           std::uint8_t* out, bool opaque) const {
    const std::uint32_t bitCount = header_.bitCount;
    // Pixels wholly inside the row (all of them unless the file is cut short).
    const std::uint64_t present =
        std::min<std::uint64_t>(std::uint64_t{row.size()} * 8 / bitCount, header_.width);
    const std::uint32_t have =
        present > x ? static_cast<std::uint32_t>(std::min<std::uint64_t>(count, present - x)) : 0;

    if (mode_ == Mode::CopyBits) {
        const std::size_t bits = std::size_t{count} * bitCount;
        const std::size_t bitPos = std::size_t{x} * bitCount;
        auto at = [&](std::size_t i) -> unsigned { return i < row.size() ? row[i] : 0u; };
        for (std::size_t i = 0; i < (bits + 7) / 8; ++i) {
            const std::size_t p = bitPos + i * 8;
            const unsigned s = p & 7;
            unsigned v = at(p >> 3) << s;
            if (s != 0) {
                v |= at((p >> 3) + 1) >> (8 - s);
            }
            const std::size_t left = bits - i * 8;
            if (left < 8) {
                v &= 0xFFu << (8 - left);  // no bits of pixels past the rectangle
            }
            out[i] = static_cast<std::uint8_t>(v);
        }
        return;
    }
    const std::size_t outPixel = BitsPerPixel(format_) / 8;
    std::memset(out + std::size_t{have} * outPixel, 0, std::size_t{count - have} * outPixel);
    if (have == 0) {
        return;
    }
    switch (mode_) {
        case Mode::CopyBytes: {
            const std::size_t k = bitCount / 8;
            std::memcpy(out, row.data() + std::size_t{x} * k, std::size_t{have} * k);
            if (opaque && format_ == PixelFormat::Bgra32) {
                for (std::uint32_t i = 0; i < have; ++i) {
                    out[i * 4 + 3] = 0xFF;
                }
            }
            break;
        }
        case Mode::Palette:
            for (std::uint32_t i = 0; i < have; ++i) {
                const std::uint32_t c = header_.palette[StoredPixel(row, x + i)];
                out[i * 4] = static_cast<std::uint8_t>(c);
                out[i * 4 + 1] = static_cast<std::uint8_t>(c >> 8);
                out[i * 4 + 2] = static_cast<std::uint8_t>(c >> 16);
                out[i * 4 + 3] = 0xFF;
            }
            break;
        case Mode::Expand24:
            for (std::uint32_t i = 0; i < have; ++i) {
                std::memcpy(out + i * 4, row.data() + (std::size_t{x} + i) * 3, 3);
                out[i * 4 + 3] = 0xFF;
            }
            break;
        case Mode::Masks: {
            const bool alpha = HasAlpha() && !opaque;
            for (std::uint32_t i = 0; i < have; ++i) {
                const std::uint32_t v = StoredPixel(row, x + i);
                out[i * 4] = channels_[2].Scale(v);
                out[i * 4 + 1] = channels_[1].Scale(v);
                out[i * 4 + 2] = channels_[0].Scale(v);
                out[i * 4 + 3] = alpha ? channels_[3].Scale(v) : 0xFF;
            }
            break;
        }
        case Mode::CopyBits:
            break;
    }
}

bool DibRowReader::AnyAlpha(std::span<const std::uint8_t> row) const {
    if (!header_.HasAlphaMask() || header_.bitCount < 16) {
        return false;
    }
    const std::uint64_t present =
        std::min<std::uint64_t>(std::uint64_t{row.size()} * 8 / header_.bitCount, header_.width);
    for (std::uint32_t x = 0; x < present; ++x) {
        if ((StoredPixel(row, x) & header_.masks[3]) != 0) {
            return true;
        }
    }
    return false;
}

}  // namespace orvanta::imaging::codecs

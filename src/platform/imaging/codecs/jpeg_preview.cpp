// The embedded preview of a JPEG: cameras store a large preview (often 1920 pixels wide)
// after the main image and list it in the MPF segment; the EXIF thumbnail is the small
// one. Both are reached through TIFF-structured blocks read here with bounds checks.
#include <optional>

#include "platform/checked.h"
#include "platform/imaging/codecs/jpeg_markers_internal.h"

namespace orvanta::imaging::codecs {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint16_t kMpEntryTag = 0xB002;
constexpr std::uint16_t kThumbnailOffsetTag = 0x0201;
constexpr std::uint16_t kThumbnailLengthTag = 0x0202;
constexpr std::size_t kMpEntryBytes = 16;
// A TIFF entry: tag, type, count and a four-byte value or offset.
constexpr std::size_t kEntryBytes = 12;

class TiffBlock {
public:
    static std::optional<TiffBlock> Open(Bytes data) {
        if (data.size() < 8) {
            return std::nullopt;
        }
        if (data[0] == 'I' && data[1] == 'I' && data[2] == 42 && data[3] == 0) {
            return TiffBlock(data, true);
        }
        if (data[0] == 'M' && data[1] == 'M' && data[2] == 0 && data[3] == 42) {
            return TiffBlock(data, false);
        }
        return std::nullopt;
    }

    std::optional<std::uint16_t> U16(std::size_t at) const {
        if (!RangeInside(at, 2, data_.size())) {
            return std::nullopt;
        }
        const std::uint8_t* p = data_.data() + at;
        return static_cast<std::uint16_t>(little_ ? p[0] | p[1] << 8 : p[0] << 8 | p[1]);
    }
    std::optional<std::uint32_t> U32(std::size_t at) const {
        const auto a = U16(at);
        const auto b = U16(at + 2);
        if (!a || !b) {
            return std::nullopt;
        }
        return little_ ? std::uint32_t{*b} << 16 | *a : std::uint32_t{*a} << 16 | *b;
    }
    std::optional<std::uint32_t> FirstIfd() const { return U32(4); }
    // The value or offset field of the entry with `tag` in the directory at `ifd`.
    std::optional<std::uint32_t> FindEntry(std::uint32_t ifd, std::uint16_t tag) const {
        const auto count = U16(ifd);
        if (!count) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < *count; ++i) {
            const std::size_t entry = ifd + 2 + i * kEntryBytes;
            const auto entryTag = U16(entry);
            if (!entryTag) {
                return std::nullopt;
            }
            if (*entryTag == tag) {
                return U32(entry + 8);
            }
        }
        return std::nullopt;
    }
    std::optional<std::uint32_t> EntryCount(std::uint32_t ifd, std::uint16_t tag) const {
        const auto count = U16(ifd);
        if (!count) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < *count; ++i) {
            const std::size_t entry = ifd + 2 + i * kEntryBytes;
            if (U16(entry) == tag) {
                return U32(entry + 4);
            }
        }
        return std::nullopt;
    }
    std::optional<std::uint32_t> NextIfd(std::uint32_t ifd) const {
        const auto count = U16(ifd);
        if (!count) {
            return std::nullopt;
        }
        return U32(ifd + 2 + std::size_t{*count} * kEntryBytes);
    }
    Bytes Slice(std::size_t offset, std::size_t length) const {
        return RangeInside(offset, length, data_.size()) ? data_.subspan(offset, length) : Bytes{};
    }

private:
    TiffBlock(Bytes data, bool little) : data_(data), little_(little) {}

    Bytes data_;
    bool little_;
};

std::uint64_t Pixels(const JpegHeader& header) {
    return std::uint64_t{header.size.width} * header.size.height;
}

// Pixels of the EXIF thumbnail (IFD1's JPEG), 0 when there is none.
std::uint64_t ThumbnailPixels(Bytes exif) {
    const auto tiff = TiffBlock::Open(exif);
    if (!tiff) {
        return 0;
    }
    const auto ifd0 = tiff->FirstIfd();
    const auto ifd1 = ifd0 ? tiff->NextIfd(*ifd0) : std::nullopt;
    if (!ifd1 || *ifd1 == 0) {
        return 0;
    }
    const auto offset = tiff->FindEntry(*ifd1, kThumbnailOffsetTag);
    const auto length = tiff->FindEntry(*ifd1, kThumbnailLengthTag);
    if (!offset || !length) {
        return 0;
    }
    JpegHeader thumbnail;
    if (ReadJpegHeader(tiff->Slice(*offset, *length), thumbnail).Failed()) {
        return 0;
    }
    return Pixels(thumbnail);
}

}  // namespace

std::optional<Bytes> FindLargestPreview(Bytes stream, const JpegHeader& header) {
    const auto tiff = TiffBlock::Open(header.mpf);
    if (!tiff) {
        return std::nullopt;
    }
    const auto ifd = tiff->FirstIfd();
    const auto entriesAt = ifd ? tiff->FindEntry(*ifd, kMpEntryTag) : std::nullopt;
    const auto entriesBytes = ifd ? tiff->EntryCount(*ifd, kMpEntryTag) : std::nullopt;
    if (!entriesAt || !entriesBytes) {
        return std::nullopt;
    }
    std::uint64_t best = ThumbnailPixels(header.exif);
    std::optional<Bytes> preview;
    for (std::size_t i = 0; i < *entriesBytes / kMpEntryBytes; ++i) {
        const std::size_t entry = *entriesAt + i * kMpEntryBytes;
        const auto size = tiff->U32(entry + 4);
        const auto offset = tiff->U32(entry + 8);
        if (!size || !offset) {
            break;
        }
        // Offset 0 is the main image itself; the others count from the MPF block.
        if (*offset == 0) {
            continue;
        }
        const auto start = CheckedAdd<std::size_t>(header.mpfOffset, *offset);
        if (!start || !RangeInside(*start, *size, stream.size())) {
            continue;
        }
        const Bytes candidate = stream.subspan(*start, *size);
        JpegHeader candidateHeader;
        if (ReadJpegHeader(candidate, candidateHeader).Failed()) {
            continue;
        }
        if (Pixels(candidateHeader) > best) {
            best = Pixels(candidateHeader);
            preview = candidate;
        }
    }
    return preview;
}

}  // namespace orvanta::imaging::codecs

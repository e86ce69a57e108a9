#include <algorithm>
#include <cstring>

#include "platform/checked.h"
#include "platform/imaging/codecs/wmp_container_internal.h"

namespace orvanta::imaging::codecs {

namespace {

constexpr std::uint16_t kTagXmp = 0x02BC;
constexpr std::uint16_t kTagIptc = 0x83BB;
constexpr std::uint16_t kTagExif = 0x8769;
constexpr std::uint16_t kTagIcc = 0x8773;
constexpr std::uint16_t kTagGps = 0x8825;
constexpr std::uint16_t kTagInteroperability = 0xA005;
constexpr std::uint16_t kTagPixelFormat = 0xBC01;
constexpr std::uint16_t kTagTransformation = 0xBC02;
constexpr std::uint16_t kTagImageOffset = 0xBCC0;
constexpr std::uint16_t kTagImageByteCount = 0xBCC1;
constexpr std::uint16_t kTagAlphaOffset = 0xBCC2;
constexpr std::uint16_t kTagAlphaByteCount = 0xBCC3;
constexpr std::size_t kEntrySize = 12;

struct Entry {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::uint32_t value;  // the value itself when it fits, else the offset of the data
};

std::uint32_t Read32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

std::uint16_t Read16(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

void Write16(std::uint8_t* out, std::uint16_t value) {
    out[0] = static_cast<std::uint8_t>(value);
    out[1] = static_cast<std::uint8_t>(value >> 8);
}

void Write32(std::uint8_t* out, std::uint32_t value) {
    Write16(out, static_cast<std::uint16_t>(value));
    Write16(out + 2, static_cast<std::uint16_t>(value >> 16));
}

std::uint64_t TypeSize(std::uint16_t type) {
    switch (type) {
        case 1:
        case 2:
        case 6:
        case 7:
            return 1;
        case 3:
        case 8:
            return 2;
        case 4:
        case 9:
        case 11:
        case 13:
            return 4;
        case 5:
        case 10:
        case 12:
            return 8;
        default:
            return 0;
    }
}

// The entries of the IFD at `offset`, or nullopt when it does not lie inside the file.
std::optional<std::vector<Entry>> ReadIfd(std::span<const std::uint8_t> bytes,
                                          std::uint64_t offset) {
    if (!RangeInside(offset, 2, bytes.size())) {
        return std::nullopt;
    }
    const std::uint16_t count = Read16(bytes, offset);
    if (!RangeInside(offset, 2 + count * kEntrySize + 4, bytes.size())) {
        return std::nullopt;
    }
    std::vector<Entry> entries(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = offset + 2 + i * kEntrySize;
        entries[i] = {Read16(bytes, at), Read16(bytes, at + 2), Read32(bytes, at + 4),
                      Read32(bytes, at + 8)};
    }
    return entries;
}

// Where an entry's data lies: inline data has no range of its own.
std::optional<WmpByteRange> DataRange(const Entry& entry, std::size_t fileSize) {
    const std::uint64_t size = TypeSize(entry.type) * entry.count;
    if (size == 0 || size > UINT32_MAX || !RangeInside(entry.value, size, fileSize)) {
        return std::nullopt;
    }
    return WmpByteRange{entry.value, static_cast<std::uint32_t>(size)};
}

std::span<const std::uint8_t> DataSpan(std::span<const std::uint8_t> bytes, const Entry& entry) {
    if (TypeSize(entry.type) * entry.count <= 4) {
        return {};
    }
    const auto range = DataRange(entry, bytes.size());
    return range ? bytes.subspan(range->offset, range->size) : std::span<const std::uint8_t>{};
}

const Entry* Find(const std::vector<Entry>& entries, std::uint16_t tag) {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [tag](const Entry& entry) { return entry.tag == tag; });
    return found == entries.end() ? nullptr : &*found;
}

// A plain LONG value (offsets and byte counts), as jxrlib reads it.
std::optional<std::uint32_t> SingleValue(const Entry* entry) {
    if (entry == nullptr || entry->count != 1 || TypeSize(entry->type) > 4) {
        return std::nullopt;
    }
    return entry->value;
}

bool Overlaps(WmpByteRange a, std::uint64_t offset, std::uint64_t size) {
    return a.offset < offset + size && offset < std::uint64_t{a.offset} + a.size;
}

// The end of an IFD and of every out-of-line value in it, following the EXIF, GPS and
// interoperability pointers one level down.
std::uint64_t MetadataEnd(std::span<const std::uint8_t> bytes, std::uint64_t offset, int depth) {
    const auto entries = ReadIfd(bytes, offset);
    if (!entries) {
        return 0;
    }
    std::uint64_t end = offset + 2 + entries->size() * kEntrySize + 4;
    for (const Entry& entry : *entries) {
        if (entry.tag >= kTagImageOffset && entry.tag <= 0xBCC5) {
            continue;  // plane offsets and counts are values, not data of this IFD
        }
        const bool pointer =
            entry.tag == kTagExif || entry.tag == kTagGps || entry.tag == kTagInteroperability;
        if (pointer && depth < 2 && entry.count == 1) {
            end = std::max(end, MetadataEnd(bytes, entry.value, depth + 1));
        } else if (TypeSize(entry.type) * entry.count > 4) {
            if (const auto range = DataRange(entry, bytes.size())) {
                end = std::max<std::uint64_t>(end, std::uint64_t{range->offset} + range->size);
            }
        }
    }
    return end;
}

}  // namespace

bool LooksLikeWmp(std::span<const std::uint8_t> head) {
    return head.size() >= 4 && head[0] == 'I' && head[1] == 'I' && head[2] == 0xBC &&
           (head[3] == 0 || head[3] == 1);
}

std::optional<WmpContainer> ReadWmpContainer(std::span<const std::uint8_t> bytes) {
    if (!LooksLikeWmp(bytes) || bytes.size() < 8 || bytes.size() > UINT32_MAX) {
        return std::nullopt;
    }
    WmpContainer container;
    container.directoryOffset = Read32(bytes, 4);
    const auto entries = ReadIfd(bytes, container.directoryOffset);
    if (!entries || entries->empty()) {
        return std::nullopt;
    }
    const std::uint64_t directoryEnd =
        std::uint64_t{container.directoryOffset} + 2 + entries->size() * kEntrySize + 4;

    // The pixel format: sixteen bytes outside the directory that jxrlib will see cleaned.
    const Entry* format = Find(*entries, kTagPixelFormat);
    const auto formatRange = format != nullptr && format->count == 16 && TypeSize(format->type) == 1
                                 ? DataRange(*format, bytes.size())
                                 : std::nullopt;
    const WmpByteRange directoryRange{
        container.directoryOffset,
        static_cast<std::uint32_t>(directoryEnd - container.directoryOffset)};
    if (!formatRange || Overlaps(directoryRange, formatRange->offset, 16)) {
        return std::nullopt;
    }
    std::memcpy(container.pixelFormat.data(), bytes.data() + formatRange->offset, 16);

    const auto plane = [&](std::uint16_t offsetTag,
                           std::uint16_t countTag) -> std::optional<WmpByteRange> {
        const auto offset = SingleValue(Find(*entries, offsetTag));
        auto size = SingleValue(Find(*entries, countTag));
        if (!offset || !size || *offset >= bytes.size()) {
            return std::nullopt;
        }
        // jxrlib's own encoder writes the alpha plane's end offset as its byte count, so
        // a plane that runs past the file is cut at its end rather than refused.
        size = std::min<std::uint64_t>(*size, bytes.size() - *offset);
        if (*size == 0 || Overlaps(directoryRange, *offset, *size)) {
            return std::nullopt;
        }
        return WmpByteRange{*offset, *size};
    };
    const auto image = plane(kTagImageOffset, kTagImageByteCount);
    if (!image) {
        return std::nullopt;
    }
    container.image = *image;
    if (Find(*entries, kTagAlphaOffset) != nullptr ||
        Find(*entries, kTagAlphaByteCount) != nullptr) {
        container.alpha = plane(kTagAlphaOffset, kTagAlphaByteCount);
        if (!container.alpha) {
            return std::nullopt;
        }
    }
    if (const auto orientation = SingleValue(Find(*entries, kTagTransformation))) {
        container.orientation = *orientation < 8 ? *orientation : 0;
    }

    // The directory jxrlib reads: the same place, only the tags it needs, ascending.
    std::vector<Entry> kept = {{kTagPixelFormat, 1, 16, formatRange->offset},
                               {kTagImageOffset, 4, 1, container.image.offset},
                               {kTagImageByteCount, 4, 1, container.image.size}};
    if (container.alpha) {
        kept.push_back({kTagAlphaOffset, 4, 1, container.alpha->offset});
        kept.push_back({kTagAlphaByteCount, 4, 1, container.alpha->size});
    }
    // Never larger than the original: it kept at least these entries.
    container.directory.resize(2 + kept.size() * kEntrySize + 4);
    Write16(container.directory.data(), static_cast<std::uint16_t>(kept.size()));
    for (std::size_t i = 0; i < kept.size(); ++i) {
        std::uint8_t* out = container.directory.data() + 2 + i * kEntrySize;
        Write16(out, kept[i].tag);
        Write16(out + 2, kept[i].type);
        Write32(out + 4, kept[i].count);
        Write32(out + 8, kept[i].value);
    }

    for (const Entry& entry : *entries) {
        switch (entry.tag) {
            case kTagXmp:
                container.xmp = DataSpan(bytes, entry);
                break;
            case kTagIcc:
                container.icc = DataSpan(bytes, entry);
                break;
            case kTagIptc:
                container.iptc = DataSpan(bytes, entry);
                break;
            case kTagExif:
            case kTagGps:
                container.exifEnd = 1;
                break;
            default:
                break;
        }
    }
    if (container.exifEnd != 0) {
        container.exifEnd = static_cast<std::uint32_t>(std::min<std::uint64_t>(
            MetadataEnd(bytes, container.directoryOffset, 0), bytes.size()));
    }
    return container;
}

std::vector<std::uint8_t> WmpExifBlock(std::span<const std::uint8_t> bytes,
                                       const WmpContainer& container) {
    if (container.exifEnd < 8 || container.exifEnd > bytes.size()) {
        return {};
    }
    std::vector<std::uint8_t> block(bytes.begin(), bytes.begin() + container.exifEnd);
    std::memcpy(block.data(), "II*\0", 4);
    // The next-IFD offset of the container's directory may point past the block.
    const std::size_t next =
        container.directoryOffset + 2 + Read16(bytes, container.directoryOffset) * kEntrySize;
    if (next + 4 <= block.size()) {
        Write32(block.data() + next, 0);
    }
    return block;
}

}  // namespace orvanta::imaging::codecs

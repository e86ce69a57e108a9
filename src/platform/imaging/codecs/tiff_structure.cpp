#include <unordered_set>

#include "platform/checked.h"
#include "platform/imaging/codecs/tiff_structure_internal.h"

namespace orvanta::imaging::codecs {

namespace {

class Reader {
public:
    Reader(std::span<const std::uint8_t> bytes, bool bigEndian)
        : bytes_(bytes), bigEndian_(bigEndian) {}

    std::optional<std::uint64_t> Read(std::uint64_t offset, unsigned size) const {
        if (!RangeInside(offset, size, bytes_.size())) {
            return std::nullopt;
        }
        std::uint64_t value = 0;
        for (unsigned i = 0; i < size; ++i) {
            const std::uint64_t byte = bytes_[offset + (bigEndian_ ? i : size - 1 - i)];
            value = (value << 8) | byte;
        }
        return value;
    }

private:
    std::span<const std::uint8_t> bytes_;
    bool bigEndian_;
};

// Bytes per value of each field type; 0 for types this reader does not know.
std::uint64_t TypeSize(std::uint16_t type) {
    switch (type) {
        case 1:  // BYTE
        case 2:  // ASCII
        case 6:  // SBYTE
        case 7:  // UNDEFINED
            return 1;
        case 3:  // SHORT
        case 8:  // SSHORT
            return 2;
        case 4:   // LONG
        case 9:   // SLONG
        case 11:  // FLOAT
        case 13:  // IFD
            return 4;
        case 5:   // RATIONAL
        case 10:  // SRATIONAL
        case 12:  // DOUBLE
        case 16:  // LONG8
        case 17:  // SLONG8
        case 18:  // IFD8
            return 8;
        default:
            return 0;
    }
}

struct Layout {
    unsigned countSize;  // bytes of the entry count
    unsigned entrySize;  // bytes of one entry
    unsigned valueSize;  // bytes of the value field (and of the next-IFD offset)
};

Layout LayoutOf(const TiffStructure& structure) {
    return structure.bigTiff ? Layout{8, 20, 8} : Layout{2, 12, 4};
}

// The entry count of the IFD at `offset` when the whole IFD (entries and next offset) lies
// inside the file.
std::optional<std::uint64_t> EntryCount(const Reader& reader, std::size_t fileSize,
                                        const Layout& layout, std::uint64_t offset) {
    const auto count = reader.Read(offset, layout.countSize);
    if (!count) {
        return std::nullopt;
    }
    const auto entries = CheckedMul<std::uint64_t>(*count, layout.entrySize);
    const auto body = entries
                          ? CheckedAdd<std::uint64_t>(*entries, layout.countSize + layout.valueSize)
                          : std::nullopt;
    if (!body || !RangeInside(offset, *body, fileSize)) {
        return std::nullopt;
    }
    return count;
}

}  // namespace

bool LooksLikeTiff(std::span<const std::uint8_t> head) {
    if (head.size() < 4) {
        return false;
    }
    const bool little =
        head[0] == 'I' && head[1] == 'I' && head[3] == 0 && (head[2] == 42 || head[2] == 43);
    const bool big =
        head[0] == 'M' && head[1] == 'M' && head[2] == 0 && (head[3] == 42 || head[3] == 43);
    return little || big;
}

std::optional<TiffStructure> ReadTiffStructure(std::span<const std::uint8_t> bytes,
                                               std::uint32_t maxPages) {
    if (!LooksLikeTiff(bytes)) {
        return std::nullopt;
    }
    TiffStructure structure;
    structure.bigEndian = bytes[0] == 'M';
    const Reader reader(bytes, structure.bigEndian);
    structure.bigTiff = reader.Read(2, 2) == 43u;
    std::optional<std::uint64_t> next;
    if (structure.bigTiff) {
        // BigTIFF: offset size 8, a reserved zero, then the first IFD offset.
        if (reader.Read(4, 2) != 8u || reader.Read(6, 2) != 0u) {
            return std::nullopt;
        }
        next = reader.Read(8, 8);
    } else {
        next = reader.Read(4, 4);
    }
    const Layout layout = LayoutOf(structure);
    // Offsets seen so far, to stop at a loop in the chain.
    std::unordered_set<std::uint64_t> seen;
    while (next && *next != 0 && structure.pages.size() < maxPages) {
        const std::uint64_t offset = *next;
        const auto count = EntryCount(reader, bytes.size(), layout, offset);
        if (!count || !seen.insert(offset).second) {
            break;
        }
        structure.pages.push_back(offset);
        next = reader.Read(offset + layout.countSize + *count * layout.entrySize, layout.valueSize);
    }
    if (structure.pages.empty()) {
        return std::nullopt;
    }
    return structure;
}

std::span<const std::uint8_t> TiffTagData(std::span<const std::uint8_t> bytes,
                                          const TiffStructure& structure, std::uint64_t ifdOffset,
                                          std::uint16_t tag) {
    const Reader reader(bytes, structure.bigEndian);
    const Layout layout = LayoutOf(structure);
    const auto count = EntryCount(reader, bytes.size(), layout, ifdOffset);
    if (!count) {
        return {};
    }
    for (std::uint64_t i = 0; i < *count; ++i) {
        const std::uint64_t entry = ifdOffset + layout.countSize + i * layout.entrySize;
        if (reader.Read(entry, 2) != tag) {
            continue;
        }
        const auto type = reader.Read(entry + 2, 2);
        const auto values = reader.Read(entry + 4, layout.valueSize);
        const std::uint64_t typeSize = type ? TypeSize(static_cast<std::uint16_t>(*type)) : 0;
        const auto size =
            values && typeSize ? CheckedMul<std::uint64_t>(*values, typeSize) : std::nullopt;
        if (!size) {
            return {};
        }
        const std::uint64_t field = entry + 4 + layout.valueSize;
        if (*size <= layout.valueSize) {
            return bytes.subspan(field, *size);
        }
        const auto dataOffset = reader.Read(field, layout.valueSize);
        if (!dataOffset || !RangeInside(*dataOffset, *size, bytes.size())) {
            return {};
        }
        return bytes.subspan(*dataOffset, *size);
    }
    return {};
}

}  // namespace orvanta::imaging::codecs

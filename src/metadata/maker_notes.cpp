#include "metadata/maker_notes.h"

#include <cmath>
#include <cstring>
#include <optional>

#include "platform/checked.h"

namespace orvanta::metadata {

namespace {

constexpr std::size_t kEntrySize = 12;
constexpr std::uint16_t kTypeShort = 3;
constexpr std::uint16_t kTypeUndefined = 7;
constexpr std::uint16_t kTypeIfd = 13;

// A directory entry: tag, type, count, and the value-or-offset field, in the blob's order.
struct Entry {
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::size_t at;  // offset of the entry in the blob
};

// Reads 16- and 32-bit numbers of one byte order from a blob; callers check the range
// first (Fits), so reads never leave the blob.
class Bytes {
public:
    Bytes(std::span<const std::uint8_t> blob, bool bigEndian) : blob_(blob), big_(bigEndian) {}

    bool Fits(std::size_t offset, std::size_t length) const {
        return RangeInside(offset, length, blob_.size());
    }
    std::uint16_t U16(std::size_t at) const {
        return big_ ? static_cast<std::uint16_t>(blob_[at] << 8 | blob_[at + 1])
                    : static_cast<std::uint16_t>(blob_[at + 1] << 8 | blob_[at]);
    }
    std::uint32_t U32(std::size_t at) const {
        const std::uint32_t high = U16(at), low = U16(at + 2);
        return big_ ? high << 16 | low : low << 16 | high;
    }
    std::size_t Size() const { return blob_.size(); }
    std::uint8_t At(std::size_t at) const { return blob_[at]; }
    bool BigEndian() const { return big_; }

private:
    std::span<const std::uint8_t> blob_;
    bool big_;
};

// Calls `visit` with each entry of the directory at `ifd` until it returns true; false
// when the entry count or any entry lies outside the blob.
template <typename Visit>
bool WalkDirectory(const Bytes& bytes, std::size_t ifd, Visit visit) {
    if (!bytes.Fits(ifd, 2)) {
        return false;
    }
    const std::uint16_t count = bytes.U16(ifd);
    if (!bytes.Fits(ifd + 2, std::size_t{count} * kEntrySize)) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = ifd + 2 + i * kEntrySize;
        if (visit(Entry{bytes.U16(at), bytes.U16(at + 2), bytes.U32(at + 4), at})) {
            return true;
        }
    }
    return true;
}

// The Nikon type-3 layout: "Nikon\0", 2, 0x10 or 0, 0, 0, then a TIFF header at byte 10
// whose offsets count from that header.
constexpr std::size_t kNikonTiffHeader = 10;

struct NikonLayout {
    Bytes bytes;
    std::size_t ifd;
};

std::optional<NikonLayout> ReadNikonLayout(std::span<const std::uint8_t> blob) {
    static constexpr std::uint8_t kSignature[6] = {'N', 'i', 'k', 'o', 'n', 0};
    if (blob.size() < 10 || std::memcmp(blob.data(), kSignature, 6) != 0 || blob[6] != 2 ||
        (blob[7] != 0x10 && blob[7] != 0) || blob[8] != 0 || blob[9] != 0 || blob.size() < 18) {
        return std::nullopt;
    }
    bool bigEndian = false;
    if (blob[10] == 'M' && blob[11] == 'M') {
        bigEndian = true;
    } else if (blob[10] != 'I' || blob[11] != 'I') {
        return std::nullopt;
    }
    const Bytes bytes(blob, bigEndian);
    const auto ifd = CheckedAdd<std::size_t>(kNikonTiffHeader, bytes.U32(14));
    if (!ifd) {
        return std::nullopt;
    }
    return NikonLayout{bytes, *ifd};
}

// The ISO speed a Nikon ISO-info byte stands for: 100 x 2^(b/12 - 5), rounded to a whole
// number and then to a multiple of 5 (the byte counts twelfths of a stop from ISO 3.125).
std::int32_t NikonIsoFromInfoByte(std::uint8_t b) {
    const double nominal = std::trunc(100 * std::exp2(b / 12.0 - 5) + 0.5);
    return 5 * static_cast<std::int32_t>(std::trunc((nominal + 2.5) * 0.2));
}

}  // namespace

std::int32_t NikonIsoFromMakerNote(std::span<const std::uint8_t> makerNote) {
    const auto layout = ReadNikonLayout(makerNote);
    if (!layout) {
        return 0;
    }
    const Bytes& bytes = layout->bytes;
    std::int32_t iso = 0;
    WalkDirectory(bytes, layout->ifd, [&](const Entry& entry) {
        if (entry.tag == 0x0002 && entry.type == kTypeShort && entry.count == 2) {
            iso = bytes.U16(entry.at + 10);
            return true;
        }
        if (entry.tag == 0x0025 && bytes.BigEndian()) {
            const auto data = CheckedAdd<std::size_t>(kNikonTiffHeader, bytes.U32(entry.at + 8));
            if (data && entry.count > 0 && bytes.Fits(*data, entry.count)) {
                iso = NikonIsoFromInfoByte(bytes.At(*data));
                return true;
            }
        }
        return false;
    });
    return iso;
}

std::int32_t NikonColourSpaceFromMakerNote(std::span<const std::uint8_t> makerNote) {
    const auto layout = ReadNikonLayout(makerNote);
    if (!layout) {
        return -1;
    }
    std::int32_t space = -1;
    WalkDirectory(layout->bytes, layout->ifd, [&](const Entry& entry) {
        if (entry.tag == 0x001E && entry.type == kTypeShort && entry.count == 1) {
            space = layout->bytes.U16(entry.at + 8);
            return true;
        }
        return false;
    });
    return space;
}

std::int32_t CanonColourSpaceFromMakerNote(std::span<const std::uint8_t> makerNote) {
    const Bytes bytes(makerNote, false);
    std::int32_t space = -1;
    WalkDirectory(bytes, 0, [&](const Entry& entry) {
        if (entry.tag == 0x00B4 && entry.type == kTypeShort && entry.count == 1) {
            space = bytes.U16(entry.at + 8);
            return true;
        }
        return false;
    });
    return space;
}

std::int32_t OlympusColourSpaceFromMakerNote(std::span<const std::uint8_t> makerNote) {
    const std::span<const std::uint8_t> blob = makerNote;
    if (blob.size() <= 11) {
        return -1;
    }
    static constexpr std::uint8_t kOldSignature[6] = {'O', 'L', 'Y', 'M', 'P', 0};
    static constexpr std::uint8_t kNewSignature[8] = {'O', 'L', 'Y', 'M', 'P', 'U', 'S', 0};
    bool bigEndian = false;
    std::uint16_t version = 0;
    std::size_t ifd = 0;
    if (std::memcmp(blob.data(), kNewSignature, 8) == 0) {
        bigEndian = blob[8] == 'M' && blob[9] == 'M';
        version = Bytes(blob, bigEndian).U16(10);
        ifd = 12;
    } else if (std::memcmp(blob.data(), kOldSignature, 6) == 0) {
        version = Bytes(blob, false).U16(6);
        ifd = 8;
    } else {
        return -1;
    }
    const Bytes bytes(blob, bigEndian);
    std::uint32_t settings = 0;
    bool found = false;
    WalkDirectory(bytes, ifd, [&](const Entry& entry) {
        if (entry.tag == 0x2020 && (entry.type == kTypeUndefined || entry.type == kTypeIfd)) {
            settings = bytes.U32(entry.at + 8);
            found = true;
            return true;
        }
        return false;
    });
    if (!found) {
        return -1;
    }
    // The camera-settings block is found by its first entry (tag 0, undefined, count 4,
    // the block's version as four digits) rather than by the 0x2020 offset, which counts from
    // the EXIF header in older cameras and so cannot be followed inside the blob. Those
    // cameras' blocks are told by their entry count matching the 0x2020 value; where none
    // matches (the E-1 family), the first block holding a colour space is taken.
    static constexpr std::uint8_t kFirstBig[8] = {0, 0, 0, 7, 0, 0, 0, 4};
    static constexpr std::uint8_t kFirstLittle[8] = {0, 0, 7, 0, 4, 0, 0, 0};
    const std::uint8_t* first = bigEndian ? kFirstBig : kFirstLittle;
    const auto isDigit = [&](std::size_t at) { return bytes.At(at) >= '0' && bytes.At(at) <= '9'; };
    const auto search = [&](bool checkCount) {
        for (std::size_t match = 2; bytes.Fits(match, 8 + 3); ++match) {
            if (std::memcmp(blob.data() + match, first, 8) != 0 || !isDigit(match + 8) ||
                !isDigit(match + 9) || !isDigit(match + 10)) {
                continue;
            }
            if (checkCount && version <= 2 && bytes.U16(match - 2) != settings / kEntrySize) {
                continue;
            }
            std::int32_t space = -1;
            WalkDirectory(bytes, match - 2, [&](const Entry& entry) {
                if (entry.tag == 0x0507 && entry.type == kTypeShort && entry.count == 1) {
                    space = bytes.U16(entry.at + 8) + 1;
                    return true;
                }
                return false;
            });
            if (space != -1) {
                return space;
            }
        }
        return -1;
    };
    const std::int32_t space = search(true);
    return space != -1 || version > 2 ? space : search(false);
}

}  // namespace orvanta::metadata

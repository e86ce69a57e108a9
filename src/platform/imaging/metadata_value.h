// A value answered by the metadata query reader, typed as the design's readers expect it:
// integers for the EXIF counts and codes, rationals packed into 64 bits, FILETIME dates,
// UTF-8 strings (XMP values are always strings), string lists for XMP arrays and repeated
// IPTC data sets, and byte blobs (maker notes, ICC profiles). Immutable value types.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "platform/imaging/file_time.h"

namespace orvanta::imaging {

// A rational as the platform hands it out: the numerator in the low 32 bits and the
// denominator in the high 32 bits, each half read as signed by the rational readers.
struct PackedRational {
    std::uint64_t bits = 0;

    static constexpr PackedRational From(std::uint32_t numerator, std::uint32_t denominator) {
        return {static_cast<std::uint64_t>(denominator) << 32 | numerator};
    }
    constexpr std::int32_t Numerator() const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
    }
    constexpr std::int32_t Denominator() const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits >> 32));
    }
    constexpr bool operator==(const PackedRational&) const = default;
};

using MetadataBlob = std::vector<std::uint8_t>;

using MetadataValue = std::variant<std::monostate, std::int64_t, PackedRational, FileTime,
                                   std::string, std::vector<std::string>, MetadataBlob,
                                   std::vector<std::int64_t>, std::vector<PackedRational>>;

}  // namespace orvanta::imaging

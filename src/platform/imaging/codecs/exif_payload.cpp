#include <array>
#include <cstring>

#include "platform/checked.h"
#include "platform/imaging/codecs/exif_payload_internal.h"

namespace orvanta::imaging::codecs {

bool StartsWithTiffHeader(std::span<const std::uint8_t> bytes) {
    static constexpr std::array<std::uint8_t, 4> kIntel{'I', 'I', 0x2A, 0x00};
    static constexpr std::array<std::uint8_t, 4> kMotorola{'M', 'M', 0x00, 0x2A};
    return bytes.size() >= 4 && (std::memcmp(bytes.data(), kIntel.data(), 4) == 0 ||
                                 std::memcmp(bytes.data(), kMotorola.data(), 4) == 0);
}

std::optional<std::size_t> FindExifTiffHeader(std::span<const std::uint8_t> payload) {
    if (payload.size() < 4) {
        return std::nullopt;
    }
    const std::uint32_t offset = static_cast<std::uint32_t>(payload[0]) << 24 |
                                 static_cast<std::uint32_t>(payload[1]) << 16 |
                                 static_cast<std::uint32_t>(payload[2]) << 8 | payload[3];
    // The stated offset first, then right after the offset field, then after "Exif\0\0".
    const std::optional<std::size_t> stated = CheckedAdd<std::size_t>(4, offset);
    for (const std::optional<std::size_t> start :
         {stated, std::optional<std::size_t>(4), std::optional<std::size_t>(10)}) {
        if (start && *start < payload.size() && StartsWithTiffHeader(payload.subspan(*start))) {
            return start;
        }
    }
    return std::nullopt;
}

}  // namespace orvanta::imaging::codecs

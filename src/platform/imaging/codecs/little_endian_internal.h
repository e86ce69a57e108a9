// Little-endian loads for the codecs that parse their containers themselves (BMP, ICO,
// TGA). The caller has checked the range with RangeInside(); these only assemble bytes.
// Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace orvanta::imaging::codecs {

inline std::uint16_t LoadLe16(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

inline std::uint32_t LoadLe32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) |
           (static_cast<std::uint32_t>(bytes[offset + 1]) << 8) |
           (static_cast<std::uint32_t>(bytes[offset + 2]) << 16) |
           (static_cast<std::uint32_t>(bytes[offset + 3]) << 24);
}

}  // namespace orvanta::imaging::codecs

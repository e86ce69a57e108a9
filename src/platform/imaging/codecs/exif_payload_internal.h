// The EXIF payload of ISO base media files (the HEIF "Exif" item) and of JPEG XL's "Exif"
// box: a 32-bit big-endian offset, then that many bytes (often "Exif\0\0"), then the TIFF
// structure. Pure function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace orvanta::imaging::codecs {

// True when `bytes` start with a TIFF header ("II*\0" or "MM\0*").
bool StartsWithTiffHeader(std::span<const std::uint8_t> bytes);

// Where the TIFF header of such a payload starts; nullopt when there is none. Writers that
// got the offset wrong are common enough that the two usual places are tried as well.
std::optional<std::size_t> FindExifTiffHeader(std::span<const std::uint8_t> payload);

}  // namespace orvanta::imaging::codecs

// Facts that cameras keep only in their maker notes: the ISO speed of Nikon cameras that
// leave the EXIF ISO out, and the colour space that Nikon, Canon and Olympus cameras were
// set to. Each reader takes the maker-note blob as the file holds it, walks its directory
// with every offset and count checked against the blob's length, and never reads outside
// it: a damaged or hostile blob gives 0 or -1. Pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <span>

namespace orvanta::metadata {

// The ISO speed from a Nikon maker note (tag 0x0002, or the ISO byte of tag 0x0025 in the
// big-endian layout); 0 when none.
std::int32_t NikonIsoFromMakerNote(std::span<const std::uint8_t> makerNote);
// The colour-space code (tag 0x001E) of a Nikon maker note; -1 when none.
std::int32_t NikonColourSpaceFromMakerNote(std::span<const std::uint8_t> makerNote);
// The colour-space code (tag 0x00B4) of a Canon maker note; -1 when none.
std::int32_t CanonColourSpaceFromMakerNote(std::span<const std::uint8_t> makerNote);
// The colour space (tag 0x0507 of the camera-settings block, plus 1) of an Olympus maker
// note; -1 when none.
std::int32_t OlympusColourSpaceFromMakerNote(std::span<const std::uint8_t> makerNote);

}  // namespace orvanta::metadata

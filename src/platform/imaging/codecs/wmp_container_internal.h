// The HD Photo container, read and checked here before jxrlib sees a byte of it: jxrlib
// trusts the container's offsets and counts, so every one of them is checked against the
// file length, and jxrlib is handed a cleaned directory (pixel format, image and alpha
// planes only) in place of the file's own. The metadata blocks come from the same pass.
// Pure functions over immutable bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace orvanta::imaging::codecs {

struct WmpByteRange {
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
};

struct WmpContainer {
    std::array<std::uint8_t, 16> pixelFormat{};  // the GUID as stored (little-endian fields)
    WmpByteRange image;
    std::optional<WmpByteRange> alpha;  // a separate alpha plane
    std::uint32_t orientation = 0;      // the container's transformation (not applied)
    // The cleaned directory that replaces the file's own at `directoryOffset` for jxrlib.
    std::uint32_t directoryOffset = 0;
    std::vector<std::uint8_t> directory;
    // Metadata blocks inside the file; empty when absent or out of bounds.
    std::span<const std::uint8_t> xmp;
    std::span<const std::uint8_t> icc;
    std::span<const std::uint8_t> iptc;
    // Bytes [0, exifEnd) of the file hold the container's IFD and the EXIF and GPS IFDs it
    // points to; 0 when there are none.
    std::uint32_t exifEnd = 0;
};

bool LooksLikeWmp(std::span<const std::uint8_t> head);

// nullopt when the header, the directory or the image plane does not check out.
std::optional<WmpContainer> ReadWmpContainer(std::span<const std::uint8_t> bytes);

// The EXIF block of a container: the file's first `exifEnd` bytes as a TIFF (the same IFD
// layout) with the TIFF signature and no IFD after the first. Empty when exifEnd is 0.
std::vector<std::uint8_t> WmpExifBlock(std::span<const std::uint8_t> bytes,
                                       const WmpContainer& container);

}  // namespace orvanta::imaging::codecs

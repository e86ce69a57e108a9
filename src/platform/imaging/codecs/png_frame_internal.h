// The PNG decoder's pieces: what the header chunks say (read once with libspng and a chunk
// walk of our own) and the frame that decodes rows. A non-interlaced file streams row by
// row (sequential); an interlaced one is decoded whole on its first copy into a buffer the
// frame owns (random access), because its rows only come together after the last pass.
//
// Thread rules: PngInfo is immutable once read and shared by frames; a frame is
// single-thread like every source.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/imaging/decoder.h"

struct spng_ctx;

namespace orvanta::imaging::codecs {

struct SpngContextDeleter {
    void operator()(spng_ctx* context) const;
};
using SpngContext = std::unique_ptr<spng_ctx, SpngContextDeleter>;

// A libspng decoder over the file's bytes with our limits: chunk sizes and cached chunk
// memory bounded (so a text or profile bomb fails), checksum errors fatal in critical
// chunks and dropped chunks otherwise. nullptr when out of memory.
SpngContext OpenSpng(std::span<const std::uint8_t> file);

struct PngInfo {
    PixelSize size;
    std::uint8_t bitDepth = 0;
    std::uint8_t colorType = 0;
    bool interlaced = false;
    PixelFormat format = PixelFormat::Unknown;
    // The libspng output format the rows are decoded in, and whether its transparency
    // step runs (keyed RGB becomes RGBA there).
    int decodeFormat = 0;
    bool decodeTransparency = false;
    // Keyed 8- and 16-bit gray: rows come out as gray and we add the alpha ourselves.
    bool grayKey = false;
    std::uint16_t keyGray = 0;
    std::vector<std::uint32_t> palette;  // 0xAARRGGBB, padded to the depth's full size
    std::uint64_t compressedBytes = 0;   // the sum of the IDAT chunk lengths
    std::span<const std::uint8_t> exif;  // the eXIf chunk, in the file's bytes
    std::vector<std::uint8_t> xmp;
    std::vector<std::uint8_t> icc;
};

// kErrBadHeader when the signature or IHDR is bad; kErrImageSizeOutOfRange past kMaxPixels.
Result ReadPngInfo(std::span<const std::uint8_t> file, PngInfo& info);

std::unique_ptr<BitmapFrame> MakePngFrame(std::shared_ptr<const FileBytes> file,
                                          std::shared_ptr<const PngInfo> info);

}  // namespace orvanta::imaging::codecs

// One LibRaw instance over a raw file's bytes, set up with the development parameters the
// raw decoder uses everywhere. LibRaw keeps a large state per file and cannot go back once
// it has developed or failed, so every job (reading the header, developing, extracting the
// preview) opens its own session. Failures throw ResultError.
//
// Parameters, the same for every development:
// - camera white balance (use_camera_wb), and the camera's matrix where the file has one;
// - sRGB output primaries with the sRGB tone curve (power 1/2.4, toe slope 12.92), so that
//   the pixels match the sRGB profile the colour step assumes for an untagged picture;
// - no automatic brightening (no_auto_bright): the white level is the sensor's, so the same
//   scene looks the same from file to file instead of being stretched to its histogram;
// - highlights clipped, AHD interpolation (user_qual 3), or none at half size;
// - no rotation (user_flip 0): the pixels keep the sensor's orientation and the pipeline
//   applies the EXIF orientation;
// - raw buffers bounded by max_raw_memory_mb, and raw sizes above a gigapixel refused
//   before unpacking.
//
// Thread rules: single-thread; sessions on different threads are independent (libraw_r).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/file_bytes.h"

class LibRaw;

namespace orvanta::imaging::codecs {

struct DevelopSettings {
    bool halfSize = false;  // LibRaw's half size: one pixel per 2x2 block of the mosaic
    bool deep = false;      // 16-bit samples instead of 8
    constexpr bool operator==(const DevelopSettings&) const = default;
};

// What a raw file says about itself once opened.
struct RawFacts {
    int flip = 0;                   // LibRaw's flip value, see raw_frame.h
    bool gray = false;              // one colour: a monochrome sensor
    std::vector<std::uint8_t> xmp;  // the XMP packet of a TIFF-based raw
};

struct RawThumbnail {
    bool jpeg = false;  // else a bitmap of `colors` 8-bit samples per pixel
    PixelSize size;     // of a bitmap (a JPEG carries its own)
    std::uint32_t colors = 0;
    std::span<const std::uint8_t> bytes;  // valid while the session lives
};

class LibRawSession {
public:
    // Opens the bytes (headers only). The bytes must outlive the session.
    LibRawSession(const FileBytes& bytes, DevelopSettings settings);
    ~LibRawSession();
    LibRawSession(const LibRawSession&) = delete;
    LibRawSession& operator=(const LibRawSession&) = delete;

    RawFacts Facts() const;
    // The size development will produce with this session's settings. Afterwards the
    // session can no longer develop.
    PixelSize OutputSize();
    // Unpacks and develops into `pixels`, rows packed; the result must have `size` and
    // `colors` or the development fails.
    void Develop(PixelSize size, std::uint32_t colors, std::vector<std::uint8_t>& pixels);
    // The largest embedded preview LibRaw knows; nullopt when there is none it can serve.
    std::optional<RawThumbnail> UnpackThumbnail();

private:
    static void OnDataError(void* session, const char* file, int offset);
    static void OnMemoryError(void* session, const char* file, const char* where);

    std::unique_ptr<LibRaw> raw_;
    DevelopSettings settings_;
    std::size_t fileSize_;
    int dataErrors_ = 0;
};

}  // namespace orvanta::imaging::codecs

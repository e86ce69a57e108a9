// The shooting data and culling marks of one picture, read from its embedded metadata
// while the picture is decoded, with a presence bit per field. The decode worker fills a
// record; afterwards it is read-only and copied with the picture's list entry.
//
// Thread rules: ReadPictureMetadata runs on the decode workers, one record per call; it
// reads the process-wide settings and needs InitialiseMetadata() to have run.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/imaging/decoder.h"
#include "platform/imaging/file_time.h"

namespace orvanta::metadata {

// Which fields of a PictureMetadata hold a value.
struct ValidField {
    static constexpr std::uint32_t kDateTaken = 0x1;
    static constexpr std::uint32_t kExposureBias = 0x2;
    static constexpr std::uint32_t kExposureTime = 0x4;
    static constexpr std::uint32_t kFlash = 0x8;
    static constexpr std::uint32_t kFNumber = 0x10;
    static constexpr std::uint32_t kFocalLength = 0x20;
    static constexpr std::uint32_t kFocalLengthIn35mm = 0x40;
    static constexpr std::uint32_t kIsoSpeed = 0x80;
    static constexpr std::uint32_t kMeteringMode = 0x100;
    static constexpr std::uint32_t kOrientation = 0x200;
    static constexpr std::uint32_t kProgramMode = 0x400;
    static constexpr std::uint32_t kSubjectDistance = 0x800;
    static constexpr std::uint32_t kWhiteBalance = 0x1000;
    static constexpr std::uint32_t kLightSource = 0x2000;
    static constexpr std::uint32_t kColourProfileName = 0x4000;
    static constexpr std::uint32_t kHistogram = 0x8000;  // set by the histogram pass
    static constexpr std::uint32_t kMarks = 0x10000;     // any of the four culling marks
    static constexpr std::uint32_t kCameraModel = 0x20000;
    static constexpr std::uint32_t kLensModel = 0x40000;
    static constexpr std::uint32_t kComment = 0x80000;
};

// 256 counts per channel and the largest count of each, filled by the histogram pass.
struct HistogramBlock {
    std::array<std::uint32_t, 256> red{};
    std::array<std::uint32_t, 256> green{};
    std::array<std::uint32_t, 256> blue{};
    std::array<std::uint32_t, 3> maxima{};
};

struct PictureMetadata {
    std::uint32_t validFields = 0;
    imaging::FileTime dateTaken;             // as the camera wrote it, no time-zone conversion
    double exposureBias = 0;                 // EV
    double exposureTime = 0;                 // seconds
    std::int32_t exposureTimeNumerator = 0;  // reduced; 0/0 when unknown
    std::int32_t exposureTimeDenominator = 0;
    std::uint16_t flash = 0;  // EXIF Flash value
    double fNumber = 0;
    double focalLength = 0;  // millimetres
    std::uint16_t focalLengthIn35mm = 0;
    std::int32_t isoSpeed = 0;
    std::uint16_t meteringMode = 0;
    std::uint16_t orientation = 0;  // EXIF 1..8
    std::uint16_t programMode = 0;
    double subjectDistance = 0;  // metres
    std::uint16_t whiteBalance = 0;
    std::uint16_t lightSource = 0;
    std::string colourProfileName;  // description of the source profile
    // Decoded-picture data, filled by the decoder and the histogram pass.
    HistogramBlock histogram;
    imaging::PixelSize decodedSize;
    std::uint32_t sourceBitsPerPixel = 0;
    std::uint32_t width = 0;  // frame size in pixels
    std::uint32_t height = 0;
    std::int16_t ratingPercent = -1;  // 0..99 as stored; -1 when absent
    std::int16_t rating = -1;         // stars; -1 when absent
    std::int16_t label = -1;          // label index under the current convention
    std::int16_t urgency = -1;
    std::string cameraModel;  // empty when absent
    std::string lensModel;
    std::string comment;
};

// What the decode worker holds of the frame being decoded. Everything is read from `file`
// (no second open) and the frame's blocks.
struct MetadataFrame {
    const imaging::FileBytes* file = nullptr;
    imaging::Guid container;
    std::uint32_t frameCount = 0;
    std::uint32_t frameIndex = 0;
    imaging::PixelSize size;
    imaging::FrameMetadataBlocks blocks;
};

// Fills `record` for one frame. `path` is the picture's path (for its sidecar);
// `profileName` the description of the source colour profile ("" when none). E_UNEXPECTED
// before InitialiseMetadata(), E_INVALIDARG without a record, frame or decoder, S_FALSE
// when the container carries no metadata the reader asks for (only sidecar marks, when
// CreateSidecarFiles is on) or the frame index is not below the frame count, the reader's
// code when the file's metadata cannot be parsed, S_OK otherwise.
Result ReadPictureMetadata(const std::filesystem::path& path, PictureMetadata* record,
                           const imaging::BitmapFrame* frame, const imaging::Decoder* decoder,
                           std::uint16_t frameIndex, std::string_view profileName);
// The same from the parts; for callers that hold no decoder (the command-line tool).
Result ReadPictureMetadata(const std::filesystem::path& path, PictureMetadata& record,
                           const MetadataFrame& frame, std::string_view profileName);

}  // namespace orvanta::metadata

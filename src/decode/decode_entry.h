// Decoding one picture entry: the step the decode workers run. DecodePicture is the pipeline
// (decoder by extension or content, raw preview rule, colour step, metadata, downscaling,
// conversion to the output format, the abortable banded copy with histogram counting, EXIF
// orientation) from a file and frame index to a DecodedPicture and a metadata record;
// DecodeEntry is the entry-level step around it (abort flag, dropping the old picture,
// the copy kept in system memory, storing picture and result in the entry).
//
// Results: S_OK (also for a file cut short, whose rows are shown: DecodeReport::truncated);
// S_FALSE when the frame index is not below the file's frame count;
// E_ABORT when the abort flag was seen; E_FAIL when no picture could be made; otherwise the
// failing step's own code. E_OUTOFMEMORY is the memory-pressure code the cache reacts to.
//
// Thread rules: runs on the decode workers, several at once, each on its own entry; the
// caller holds the entry's decode lock. The abort flag may be set from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

#include "decode/colour_management.h"
#include "decode/decoded_picture.h"
#include "platform/imaging/guid.h"
#include "platform/imaging/pixel_format.h"
#include "platform/result.h"

namespace orvanta::list {
struct PictureEntry;
}
namespace orvanta::metadata {
struct PictureMetadata;
}

namespace orvanta::decode {

struct DecodeOptions {
    // The display's format (OutputFormatForBackBuffer / OutputFormatForScreen).
    imaging::PixelFormat outputFormat = imaging::PixelFormat::Pbgra32;
    // The accelerated (OpenGL) path: pictures may come back from a system-memory copy.
    bool accelerated = false;
    bool enableIcc = true;        // EnableICC
    bool raw = true;              // a raw file's large embedded preview may stand in for it
    bool autoRotate = true;       // EnableExifAutoRotate
    std::uint32_t downscale = 0;  // DownscaleLargeImages
    ColourSettings colour;        // target profile, monitor, warning gate
    // WarnOnInvalidProfile: profile warnings for the camera-colour containers (JPEG, TIFF,
    // HD Photo, raw); other containers never warn.
    bool warnOnInvalidProfile = true;
    // The raster path composes PNG, GIF and ICO pictures over the view's opaque background.
    bool composeOverBackground = false;
    std::uint32_t background = 0xFF000000;  // 0xAARRGGBB
    // Told the percentage of rows copied (0 before the first band, 100 at the end) just
    // before the abort flag is checked; for a progress display. May be empty.
    std::function<void(std::uint32_t percent)> progress;

    // The options the process's settings give, for `outputFormat` and `accelerated`.
    static DecodeOptions FromSettings(imaging::PixelFormat outputFormat, bool accelerated,
                                      const MonitorProfileProvider* monitor);
};

// What the pipeline reports besides the picture.
struct DecodeReport {
    imaging::Guid container;
    std::uint32_t frameCount = 0;
    bool fromPreview = false;  // the raw file's embedded preview was the source
    bool colourTransformed = false;
    bool truncated = false;  // the file was cut short; the rows it holds are shown
};

// The pipeline for frame `frameIndex` of `path`. Fills `picture` and `record` (metadata, then
// the histogram block with its valid bit when the output format is counted) on S_OK.
Result DecodePicture(const std::filesystem::path& path, std::uint16_t frameIndex,
                     const DecodeOptions& options, const std::atomic<std::uint32_t>& abortFlag,
                     DecodedPicture& picture, metadata::PictureMetadata& record,
                     DecodeReport* report = nullptr);

// The entry-level step: decodes `entry` from its file "<base path>.<decodeKind>" and stores
// the picture, its size, metadata and result in the entry. The kind is recorded in the entry
// when it differs; since the list lock guards it, the caller records it under that lock first.
// With the abort flag set, returns E_ABORT and changes nothing else. The raster path drops
// the picture and any system-memory copy and decodes unless the last result is a failure;
// the accelerated path takes a system-memory copy back as the picture without decoding, and
// otherwise decodes unless the last result is a failure other than E_OUTOFMEMORY.
Result DecodeEntry(list::PictureEntry& entry, std::string_view decodeKind,
                   const DecodeOptions& options);

// DecodePicture's signature, for a caller that may already hold the picture of a file.
using PictureDecodeFunction = std::function<Result(
    const std::filesystem::path& path, std::uint16_t frameIndex, const DecodeOptions& options,
    const std::atomic<std::uint32_t>& abortFlag, DecodedPicture& picture,
    metadata::PictureMetadata& record)>;
// DecodeEntry with the file's picture made by `decodeFile` instead of DecodePicture.
Result DecodeEntry(list::PictureEntry& entry, std::string_view decodeKind,
                   const DecodeOptions& options, const PictureDecodeFunction& decodeFile);

}  // namespace orvanta::decode

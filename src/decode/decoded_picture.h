// A decoded picture: the pixels of one entry in the display's pixel format, ready to be
// drawn without another conversion (uploaded as a texture on the accelerated path, wrapped
// in an image on the raster path), with what the decode learned on the way.
//
// Thread rules: made by one decode worker and then never changed; the entry holds it through
// a shared_ptr<const DecodedPicture>, so the view may keep drawing a picture the cache has
// already let go of.
#pragma once

#include <cstdint>
#include <string>

#include "platform/imaging/pixel_buffer.h"
#include "platform/imaging/pixel_format.h"
#include "platform/result.h"

namespace orvanta::decode {

class DecodedPicture {
public:
    // The pixels after downscaling and orientation, in the output format.
    imaging::PixelBuffer pixels;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    // The frame's own pixel format and its bits per pixel (before any conversion).
    imaging::PixelFormat sourcePixelFormat = imaging::PixelFormat::Unknown;
    std::uint32_t sourceBitsPerPixel = 0;
    bool rotated = false;            // the EXIF orientation was applied
    bool downscaled = false;         // shrunk under DownscaleLargeImages
    std::string profileDescription;  // the embedded colour profile's name, or empty
    Result result = S_OK;

    // The memory the cache counts for the picture: width x height x source bytes per pixel.
    std::uint64_t CountedBytes() const {
        return std::uint64_t{width} * height * sourceBitsPerPixel / 8;
    }
};

}  // namespace orvanta::decode

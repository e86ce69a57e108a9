// The marker walk of the JPEG decoder: reads the segments before the first scan of a JPEG
// stream (frame header, EXIF, XMP, IPTC, ICC chunks, Adobe and MPF segments) without
// libjpeg, with every length checked against the bytes, so a decoder can be made and its
// metadata read without touching the compressed data. Also finds the largest embedded
// preview that a camera stores after the main image (MPF secondary images).
//
// Pure functions over immutable bytes; results are plain values, free to share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/imaging/bitmap_source.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

struct JpegHeader {
    PixelSize size;
    std::uint32_t components = 0;  // 1, 3 or 4
    bool progressive = false;
    // An Adobe segment: its writers store four-component data inverted.
    bool adobe = false;
    // Spans into the stream the header was read from.
    std::span<const std::uint8_t> exif;  // the TIFF structure after "Exif\0\0"
    std::span<const std::uint8_t> xmp;   // the packet after the XMP namespace
    std::span<const std::uint8_t> iptc;  // the IPTC records of Photoshop resource 0x0404
    std::span<const std::uint8_t> mpf;   // the TIFF structure after "MPF\0"
    std::size_t mpfOffset = 0;           // where `mpf` starts in the stream
    std::vector<std::uint8_t> icc;       // the ICC chunks put back together in order
};

// kErrBadHeader for a stream that is not a JPEG or whose segments before the first scan
// are cut or malformed; kErrImageSizeOutOfRange past kMaxPixels; kErrUnsupportedPixelFormat
// for sample precisions and component counts the decoder cannot produce.
Result ReadJpegHeader(std::span<const std::uint8_t> stream, JpegHeader& header);

// The largest preview image carried in the MPF segment that has more pixels than the EXIF
// thumbnail (when there is one); nullopt when the file has none. The span is the preview's
// own JPEG stream inside `stream`.
std::optional<std::span<const std::uint8_t>> FindLargestPreview(
    std::span<const std::uint8_t> stream, const JpegHeader& header);

}  // namespace orvanta::imaging::codecs

// jxrlib's HD Photo decoder behind a small C++ face. jxrlib's headers define macros that
// break the standard library (min, max, __in, __out, ...), so only wmp_codec.cpp includes
// them, after everything else. jxrlib reads the file through a stream of our own that
// shows it the container's cleaned directory in place of the file's.
//
// Thread rules: one codec per thread at a time. A codec decodes once: opening reads the
// headers, Decode runs the whole image.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/codecs/wmp_container_internal.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

class WmpCodec {
public:
    // E_UNSUPPORTED_TYPE for pixel formats with no format of ours (floating point, YCC,
    // n-channel), E_FAIL for a codestream jxrlib refuses or that disagrees with the
    // container, E_OUTOFMEMORY for an image over kMaxPixels. `bytes` must outlive the codec.
    static Result Open(std::span<const std::uint8_t> bytes, const WmpContainer& container,
                       std::unique_ptr<WmpCodec>& codec);
    ~WmpCodec();
    WmpCodec(const WmpCodec&) = delete;
    WmpCodec& operator=(const WmpCodec&) = delete;

    PixelSize Size() const;
    PixelFormat Format() const;
    // Bytes of one row as jxrlib writes it, before any conversion of ours (at least the
    // output format's row).
    std::size_t DecodeRowBytes() const;
    // Decodes the whole image into `target` in Format(), rows `stride` apart; `stride` is
    // at least DecodeRowBytes(). Once per codec.
    Result Decode(std::uint8_t* target, std::size_t stride);

private:
    struct Impl;
    explicit WmpCodec(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace orvanta::imaging::codecs

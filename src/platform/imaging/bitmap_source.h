// A bitmap source: the unit of the pull pipeline. It knows its size, pixel format and
// access pattern (fixed when it is made) and copies any rectangle of its pixels into a
// caller's buffer with a given stride. Stages (converter, scaler, flip-rotator, colour
// transform, abortable copy) are sources that own their input and pull from it band by
// band; no stage makes a full-size copy it does not need.
//
// Thread rules: a source and the pipeline built on it are used by one thread at a time
// (one pipeline, one worker). Sources are non-copyable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/imaging/pixel_format.h"
#include "platform/result.h"

namespace orvanta::imaging {

struct PixelSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    constexpr bool operator==(const PixelSize&) const = default;
};

struct PixelRect {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    constexpr bool operator==(const PixelRect&) const = default;
};

// No source may exceed one gigapixel: a header that claims more is refused before any
// allocation, so a decompression bomb costs nothing.
inline constexpr std::uint64_t kMaxPixels = 1ull << 30;

enum class Access : std::uint8_t {
    Random,      // any rectangle in any order
    Sequential,  // rows must be asked for top to bottom; asking again for rows already
                 // passed restarts the decode (costly) or fails with E_UNEXPECTED
};

class BitmapSource {
public:
    virtual ~BitmapSource() = default;
    BitmapSource(const BitmapSource&) = delete;
    BitmapSource& operator=(const BitmapSource&) = delete;

    PixelSize Size() const { return size_; }
    PixelFormat Format() const { return format_; }
    Access GetAccess() const { return access_; }
    // The colour table of an indexed format, as 0xAARRGGBB; empty for other formats.
    virtual std::span<const std::uint32_t> Palette() const { return {}; }

    // Checks the rectangle (inside the source, not empty), the stride (at least one row of
    // the rectangle) and the buffer (large enough, with checked arithmetic) once, then
    // copies. E_INVALIDARG for a bad request; the decoder's code for a failed decode.
    // S_FALSE when the file was cut short: the rows it holds are there and the rest is
    // filled (black, or transparent in formats with alpha); the picture is still shown.
    Result CopyPixels(const PixelRect& rect, std::size_t stride, std::span<std::byte> out);
    // The whole source, rows of `stride` bytes.
    Result CopyAll(std::size_t stride, std::span<std::byte> out) {
        return CopyPixels(
            {0, 0, static_cast<std::int32_t>(size_.width), static_cast<std::int32_t>(size_.height)},
            stride, out);
    }

    // Bytes of one row of `width` pixels in this source's format, without padding.
    std::size_t RowBytes(std::uint32_t width) const;

protected:
    BitmapSource(PixelSize size, PixelFormat format, Access access)
        : size_(size), format_(format), access_(access) {}

private:
    // Called with a validated request.
    virtual Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                                std::span<std::byte> out) = 0;

    PixelSize size_;
    PixelFormat format_;
    Access access_;
};

// True when the size is non-empty and within kMaxPixels.
bool AcceptableSize(PixelSize size);

}  // namespace orvanta::imaging

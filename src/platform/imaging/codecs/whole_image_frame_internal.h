// A frame over a library that can only decode a whole picture at once (libheif, libjxl,
// LibRaw): the first copy decodes into storage the frame owns, later copies serve any
// rectangle from it (Access::Random). A failed decode is remembered, so a bad file costs
// one attempt, not one per band.
//
// Thread rules: single-thread, like every frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

// Decoded pixels in the frame's own format, rows `stride` bytes apart. The storage belongs
// to the frame that filled this in and lives as long as the frame.
struct DecodedPixels {
    const std::uint8_t* data = nullptr;
    std::size_t stride = 0;
};

// Copies `rect` of `pixels` (whole bytes per pixel) to `out`, rows `stride` bytes apart.
// The rectangle was validated against the frame's size by BitmapSource::CopyPixels.
void CopyDecodedRect(const DecodedPixels& pixels, std::size_t bytesPerPixel, const PixelRect& rect,
                     std::size_t stride, std::span<std::byte> out);

// `Base` is BitmapFrame or one of its interfaces that add codec facts (UprightFrame,
// RawFrame).
template <typename Base>
class WholeImageFrame : public Base {
protected:
    WholeImageFrame(PixelSize size, PixelFormat format) : Base(size, format, Access::Random) {}

    // Decodes the whole picture in the frame's size and format into storage the frame keeps.
    virtual Result DecodeWhole(DecodedPixels& pixels) = 0;

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) final {
        if (!decodeResult_) {
            try {
                decodeResult_ = DecodeWhole(pixels_);
            } catch (const ResultError& error) {
                decodeResult_ = error.GetResult();
            } catch (const std::bad_alloc&) {
                decodeResult_ = E_OUTOFMEMORY;
            }
            if (decodeResult_->Succeeded() && pixels_.data == nullptr) {
                decodeResult_ = E_UNEXPECTED;
            }
        }
        if (decodeResult_->Failed()) {
            return *decodeResult_;
        }
        CopyDecodedRect(pixels_, BitsPerPixel(this->Format()) / 8, rect, stride, out);
        return S_OK;
    }

    std::optional<Result> decodeResult_;
    DecodedPixels pixels_;
};

}  // namespace orvanta::imaging::codecs

#include <cstring>

#include "platform/imaging/codecs/whole_image_frame_internal.h"

namespace orvanta::imaging::codecs {

void CopyDecodedRect(const DecodedPixels& pixels, std::size_t bytesPerPixel, const PixelRect& rect,
                     std::size_t stride, std::span<std::byte> out) {
    const std::size_t rowBytes = static_cast<std::size_t>(rect.width) * bytesPerPixel;
    const std::size_t left = static_cast<std::size_t>(rect.x) * bytesPerPixel;
    for (std::size_t row = 0; row < static_cast<std::size_t>(rect.height); ++row) {
        const std::uint8_t* from = pixels.data + (rect.y + row) * pixels.stride + left;
        std::memcpy(out.data() + row * stride, from, rowBytes);
    }
}

}  // namespace orvanta::imaging::codecs

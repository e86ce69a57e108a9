#include "platform/imaging/bitmap_source.h"

#include "platform/checked.h"

namespace orvanta::imaging {

bool AcceptableSize(PixelSize size) {
    return size.width > 0 && size.height > 0 &&
           static_cast<std::uint64_t>(size.width) * size.height <= kMaxPixels;
}

std::size_t BitmapSource::RowBytes(std::uint32_t width) const {
    return (static_cast<std::size_t>(width) * BitsPerPixel(format_) + 7) / 8;
}

Result BitmapSource::CopyPixels(const PixelRect& rect, std::size_t stride,
                                std::span<std::byte> out) {
    if (rect.x < 0 || rect.y < 0 || rect.width <= 0 || rect.height <= 0 ||
        static_cast<std::uint64_t>(rect.x) + rect.width > size_.width ||
        static_cast<std::uint64_t>(rect.y) + rect.height > size_.height) {
        return E_INVALIDARG;
    }
    const std::size_t row = RowBytes(static_cast<std::uint32_t>(rect.width));
    if (stride < row) {
        return E_INVALIDARG;
    }
    // The last row needs only its own bytes, not a whole stride.
    const auto before = CheckedMul<std::size_t>(stride, static_cast<std::size_t>(rect.height - 1));
    const auto needed = before ? CheckedAdd<std::size_t>(*before, row) : std::nullopt;
    if (!needed || out.size() < *needed) {
        return E_INVALIDARG;
    }
    return DoCopyPixels(rect, stride, out);
}

}  // namespace orvanta::imaging

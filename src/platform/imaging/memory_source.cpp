#include "platform/imaging/memory_source.h"

#include <cstring>
#include <utility>

#include "platform/checked.h"

namespace orvanta::imaging {

MemorySource::MemorySource(PixelSize size, PixelFormat format, std::size_t stride,
                           std::span<const std::byte> pixels, std::vector<std::uint32_t> palette)
    : BitmapSource(size, format, Access::Random),
      pixels_(pixels),
      stride_(stride),
      palette_(std::move(palette)) {
}

bool MemorySource::LayoutFits(PixelSize size, PixelFormat format, std::size_t stride,
                              std::size_t bytes) {
    const std::uint32_t bits = BitsPerPixel(format);
    if (!AcceptableSize(size) || bits == 0) {
        return false;
    }
    const std::size_t row = (static_cast<std::size_t>(size.width) * bits + 7) / 8;
    const auto before = CheckedMul<std::size_t>(stride, size.height - 1);
    const auto needed = before ? CheckedAdd<std::size_t>(*before, row) : std::nullopt;
    return stride >= row && needed && bytes >= *needed;
}

std::unique_ptr<MemorySource> MemorySource::Own(PixelSize size, PixelFormat format,
                                                std::size_t stride, std::vector<std::byte> pixels,
                                                std::vector<std::uint32_t> palette) {
    if (!LayoutFits(size, format, stride, pixels.size())) {
        return nullptr;
    }
    std::unique_ptr<MemorySource> source(
        new MemorySource(size, format, stride, {}, std::move(palette)));
    source->ownedBytes_ = std::move(pixels);
    source->pixels_ = source->ownedBytes_;
    return source;
}

std::unique_ptr<MemorySource> MemorySource::Own(PixelBuffer buffer,
                                                std::vector<std::uint32_t> palette) {
    if (buffer.Empty()) {
        return nullptr;
    }
    std::unique_ptr<MemorySource> source(
        new MemorySource(buffer.Size(), buffer.Format(), buffer.Stride(), {}, std::move(palette)));
    source->ownedBuffer_ = std::move(buffer);
    source->pixels_ = std::as_const(source->ownedBuffer_).Bytes();
    return source;
}

std::unique_ptr<MemorySource> MemorySource::Borrow(PixelSize size, PixelFormat format,
                                                   std::size_t stride,
                                                   std::span<const std::byte> pixels,
                                                   std::vector<std::uint32_t> palette) {
    if (!LayoutFits(size, format, stride, pixels.size())) {
        return nullptr;
    }
    return std::unique_ptr<MemorySource>(
        new MemorySource(size, format, stride, pixels, std::move(palette)));
}

Result MemorySource::DoCopyPixels(const PixelRect& rect, std::size_t stride,
                                  std::span<std::byte> out) {
    const std::uint32_t bits = BitsPerPixel(Format());
    const std::size_t rowBytes = RowBytes(static_cast<std::uint32_t>(rect.width));
    const std::size_t bitOffset = static_cast<std::size_t>(rect.x) * bits;
    const std::size_t byteOffset = bitOffset / 8;
    const unsigned shift = bitOffset % 8;
    // Bytes of a whole source row: the last row may end there, without stride padding.
    const std::size_t sourceRowBytes = RowBytes(Size().width);
    for (std::int32_t y = 0; y < rect.height; ++y) {
        const std::byte* src =
            pixels_.data() + static_cast<std::size_t>(rect.y + y) * stride_ + byteOffset;
        std::byte* dst = out.data() + static_cast<std::size_t>(y) * stride;
        if (shift == 0) {
            std::memcpy(dst, src, rowBytes);
            continue;
        }
        // A rectangle that starts inside a byte of a packed format: move its first pixel to
        // the most significant bits, as the format packs the leftmost pixel there.
        const std::size_t available = sourceRowBytes - byteOffset;
        for (std::size_t i = 0; i < rowBytes; ++i) {
            const auto hi = static_cast<unsigned>(src[i]) << shift;
            const unsigned lo =
                i + 1 < available ? static_cast<unsigned>(src[i + 1]) >> (8 - shift) : 0;
            dst[i] = static_cast<std::byte>((hi | lo) & 0xFF);
        }
    }
    return S_OK;
}

}  // namespace orvanta::imaging

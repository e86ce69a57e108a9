// A bitmap source over pixels already in memory: a buffer it owns (a PixelBuffer or a byte
// vector) or one it borrows from the caller. It is how tests and the pipeline feed known
// pixels, and what a materialized decode serves its rectangles from. Random access.
//
// Thread rules: as every source, one thread at a time. A borrowed buffer must stay alive
// and unchanged while the source lives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/pixel_buffer.h"

namespace orvanta::imaging {

class MemorySource final : public BitmapSource {
public:
    // Each factory returns nullptr when the layout does not hold together: an unacceptable
    // size, an unknown format, a stride below one row or too few bytes for the rows.
    static std::unique_ptr<MemorySource> Own(PixelSize size, PixelFormat format, std::size_t stride,
                                             std::vector<std::byte> pixels,
                                             std::vector<std::uint32_t> palette = {});
    static std::unique_ptr<MemorySource> Own(PixelBuffer buffer,
                                             std::vector<std::uint32_t> palette = {});
    static std::unique_ptr<MemorySource> Borrow(PixelSize size, PixelFormat format,
                                                std::size_t stride,
                                                std::span<const std::byte> pixels,
                                                std::vector<std::uint32_t> palette = {});

    std::span<const std::uint32_t> Palette() const override { return palette_; }
    std::size_t Stride() const { return stride_; }
    std::span<const std::byte> Pixels() const { return pixels_; }

private:
    MemorySource(PixelSize size, PixelFormat format, std::size_t stride,
                 std::span<const std::byte> pixels, std::vector<std::uint32_t> palette);
    static bool LayoutFits(PixelSize size, PixelFormat format, std::size_t stride,
                           std::size_t bytes);

    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override;

    std::vector<std::byte> ownedBytes_;
    PixelBuffer ownedBuffer_;
    std::span<const std::byte> pixels_;
    std::size_t stride_;
    std::vector<std::uint32_t> palette_;
};

}  // namespace orvanta::imaging

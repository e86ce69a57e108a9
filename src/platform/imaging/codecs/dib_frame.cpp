#include <new>

#include "platform/imaging/codecs/dib_frame_internal.h"

namespace orvanta::imaging::codecs {

namespace {

bool IsRle(const DibHeader& header) {
    return header.compression == DibCompression::Rle8 || header.compression == DibCompression::Rle4;
}

// Bytes of the 1-bit AND mask rows that follow an icon's colour rows.
std::size_t MaskStride(const DibHeader& header) {
    return static_cast<std::size_t>((std::uint64_t{header.width} + 31) / 32 * 4);
}

// End of the last stored row's pixels (its padding is not needed); the sizes were bounded
// by kMaxPixels, so 64-bit arithmetic cannot wrap.
std::uint64_t RowsEnd(std::uint64_t start, std::uint64_t stride, const DibHeader& header,
                      std::uint32_t bitsPerPixel) {
    return start + stride * (header.height - 1) +
           (std::uint64_t{header.width} * bitsPerPixel + 7) / 8;
}

}  // namespace

bool DibPixelsComplete(const DibHeader& header, std::size_t imageSize, bool iconMask) {
    if (IsRle(header)) {
        return true;
    }
    if (RowsEnd(header.bitsOffset, header.stride, header, header.bitCount) > imageSize) {
        return false;
    }
    if (iconMask && header.bitCount < 32) {
        const std::uint64_t maskOffset =
            std::uint64_t{header.bitsOffset} + std::uint64_t{header.stride} * header.height;
        return RowsEnd(maskOffset, MaskStride(header), header, 1) <= imageSize;
    }
    return true;
}

DibFrame::DibFrame(std::shared_ptr<const FileBytes> file, std::span<const std::uint8_t> image,
                   DibHeader header, PixelFormat format, bool iconMask)
    : BitmapFrame({header.width, header.height}, format, Access::Random),
      file_(std::move(file)),
      image_(image),
      header_(std::move(header)),
      reader_(header_, format),
      iconMask_(iconMask),
      truncated_(!DibPixelsComplete(header_, image.size(), iconMask)),
      maskOffset_(header_.bitsOffset + header_.stride * header_.height),
      maskStride_(MaskStride(header_)) {
}

std::span<const std::uint32_t> DibFrame::Palette() const {
    if (Info(Format()).indexed) {
        return header_.palette;
    }
    return {};
}

FrameMetadataBlocks DibFrame::Metadata() const {
    FrameMetadataBlocks blocks;
    if (header_.iccSize > 0) {
        blocks.icc = image_.subspan(header_.iccOffset, header_.iccSize);
    }
    return blocks;
}

std::span<const std::uint8_t> DibFrame::StoredRow(std::uint32_t row) const {
    const std::uint64_t start = header_.bitsOffset + std::uint64_t{header_.stride} * row;
    if (start >= image_.size()) {
        return {};
    }
    return image_.subspan(static_cast<std::size_t>(start),
                          std::min<std::size_t>(header_.stride, image_.size() - start));
}

std::span<const std::uint8_t> DibFrame::MaskRow(std::uint32_t row) const {
    const std::uint64_t start = maskOffset_ + std::uint64_t{maskStride_} * row;
    if (start >= image_.size()) {
        return {};
    }
    return image_.subspan(static_cast<std::size_t>(start),
                          std::min<std::size_t>(maskStride_, image_.size() - start));
}

bool DibFrame::AlphaAllZero() {
    if (!alphaAllZero_) {
        bool any = false;
        for (std::uint32_t row = 0; row < header_.height && !any; ++row) {
            any = reader_.AnyAlpha(StoredRow(row));
        }
        alphaAllZero_ = !any;
    }
    return *alphaAllZero_;
}

Result DibFrame::DoCopyPixels(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
    auto* base = reinterpret_cast<std::uint8_t*>(out.data());
    const auto x = static_cast<std::uint32_t>(rect.x);
    const auto width = static_cast<std::uint32_t>(rect.width);
    if (IsRle(header_)) {
        const auto data = image_.subspan(std::min(header_.bitsOffset, image_.size()));
        if (!rle_) {
            try {
                rle_ = ParseRle(data, header_);
            } catch (const std::bad_alloc&) {
                return E_OUTOFMEMORY;
            }
            truncated_ = rle_->truncated;
        }
        for (std::int32_t i = 0; i < rect.height; ++i) {
            const auto y = static_cast<std::uint32_t>(rect.y + i);
            PaintRleRow(*rle_, data, header_, header_.height - 1 - y, x, width,
                        base + stride * static_cast<std::size_t>(i));
        }
        return truncated_ ? S_FALSE : S_OK;
    }

    const bool opaque = reader_.HasAlpha() && AlphaAllZero();
    const bool useMask = iconMask_ && (!reader_.HasAlpha() || opaque);
    for (std::int32_t i = 0; i < rect.height; ++i) {
        const auto y = static_cast<std::uint32_t>(rect.y + i);
        const std::uint32_t row = header_.topDown ? y : header_.height - 1 - y;
        std::uint8_t* dst = base + stride * static_cast<std::size_t>(i);
        reader_.Convert(StoredRow(row), x, width, dst, opaque);
        if (useMask) {
            // A set bit marks a transparent (or, over a coloured pixel, screen-inverting)
            // pixel; both show as transparent here.
            const auto mask = MaskRow(row);
            for (std::uint32_t j = 0; j < width; ++j) {
                const std::size_t bit = std::size_t{x} + j;
                if ((bit >> 3) < mask.size() && ((mask[bit >> 3] >> (7 - (bit & 7))) & 1) != 0) {
                    std::fill_n(dst + std::size_t{j} * 4, 4, std::uint8_t{0});
                }
            }
        }
    }
    return truncated_ ? S_FALSE : S_OK;
}

}  // namespace orvanta::imaging::codecs

// The body shared by the decoder fuzz targets: make a decoder over the input, take every
// frame and the preview, copy their pixels. What is copied stays far under the fuzzer's
// memory cap: frames share a pixel budget, and a frame above a few megapixels (a cheap but
// legitimately huge header) is skipped, or, for decoders that map rows straight from the
// file (ours), copied in two corners only so that they still map rows at both ends of the
// picture. Small frames are also read again from the middle (the restart paths of
// sequential decoders) and through a reduced, direct-format variant.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging::fuzz {

inline void CopyRect(BitmapSource& source, PixelRect rect) {
    const std::size_t stride = source.RowBytes(static_cast<std::uint32_t>(rect.width));
    std::vector<std::byte> out(stride * static_cast<std::size_t>(rect.height));
    (void)source.CopyPixels(rect, stride, out);
}

struct FuzzOptions {
    std::size_t maxInput = std::size_t(-1);  // larger inputs are ignored (slow codecs)
    bool cornersOfHugeFrames = false;        // for decoders that never decode a whole canvas
};

inline void CopySource(BitmapSource& source, std::uint64_t& budget, const FuzzOptions& options) {
    constexpr std::uint64_t kWholeCopyPixels = 4u << 20;
    constexpr std::int32_t kCorner = 256;
    const PixelSize size = source.Size();
    const auto w = static_cast<std::int32_t>(size.width);
    const auto h = static_cast<std::int32_t>(size.height);
    const std::uint64_t pixels = std::uint64_t{size.width} * size.height;
    if (pixels > kWholeCopyPixels || pixels > budget) {
        if (!options.cornersOfHugeFrames) {
            return;
        }
        const std::int32_t cw = std::min(w, kCorner);
        const std::int32_t ch = std::min(h, kCorner);
        CopyRect(source, {0, 0, cw, ch});
        CopyRect(source, {w - cw, h - ch, cw, ch});
        return;
    }
    budget -= pixels;
    CopyRect(source, {0, 0, w, h});
    if (h > 1) {
        CopyRect(source, {0, h / 2, w, 1});
        CopyRect(source, {0, 0, 1, h / 2});
    }
}

inline void DecodeAll(const DecoderInfo& info, const std::uint8_t* data, std::size_t size,
                      FuzzOptions options = {}) {
    if (info.create == nullptr || size > options.maxInput) {
        return;
    }
    std::vector<std::uint8_t> bytes(data, data + size);
    if (info.matches != nullptr) {
        (void)info.matches(std::span(bytes).first(std::min<std::size_t>(bytes.size(), 64)));
    }
    std::unique_ptr<Decoder> decoder;
    if (info.create(FileBytes::FromMemory(std::move(bytes)), decoder).Failed()) {
        return;
    }
    std::uint64_t budget = 4u << 20;
    for (std::uint32_t i = 0; i < decoder->FrameCount() && budget > 0; ++i) {
        std::unique_ptr<BitmapFrame> frame;
        if (decoder->GetFrame(i, frame).Failed()) {
            continue;
        }
        (void)frame->Metadata();
        CopySource(*frame, budget, options);
        const PixelSize reduced{std::max(1u, frame->Size().width / 3), 1};
        if (auto variant = frame->CreateVariant(reduced, PixelFormat::Pbgra32)) {
            CopySource(*variant, budget, options);
        }
    }
    std::unique_ptr<BitmapFrame> preview;
    if (decoder->GetPreview(preview) == S_OK && preview) {
        CopySource(*preview, budget, options);
    }
}

}  // namespace orvanta::imaging::fuzz

// The body shared by the fuzz targets of the BMP, ICO and TGA decoders: make a decoder over
// the input, take every frame, copy its pixels. Frames above a few megapixels are copied in
// two corners only, so that a legitimately huge but cheap header stays under the fuzzer's
// memory limit while the decoder still has to map rows at both ends of the picture.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging::fuzz {

inline void CopyRect(BitmapFrame& frame, PixelRect rect) {
    const std::size_t stride = frame.RowBytes(static_cast<std::uint32_t>(rect.width));
    std::vector<std::byte> out(stride * static_cast<std::size_t>(rect.height));
    (void)frame.CopyPixels(rect, stride, out);
}

inline void DecodeAll(const DecoderInfo& info, const std::uint8_t* data, std::size_t size) {
    constexpr std::uint64_t kWholeCopyPixels = 4u << 20;
    constexpr std::int32_t kCorner = 256;
    if (info.create == nullptr) {
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
    for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
        std::unique_ptr<BitmapFrame> frame;
        if (decoder->GetFrame(i, frame).Failed()) {
            continue;
        }
        (void)frame->Metadata();
        const PixelSize size = frame->Size();
        const auto w = static_cast<std::int32_t>(size.width);
        const auto h = static_cast<std::int32_t>(size.height);
        if (std::uint64_t{size.width} * size.height <= kWholeCopyPixels) {
            CopyRect(*frame, {0, 0, w, h});
            continue;
        }
        const std::int32_t cw = std::min(w, kCorner);
        const std::int32_t ch = std::min(h, kCorner);
        CopyRect(*frame, {0, 0, cw, ch});
        CopyRect(*frame, {w - cw, h - ch, cw, ch});
    }
}

}  // namespace orvanta::imaging::fuzz

// Shared by the tests of the decoders over libheif, libjxl and LibRaw: reading files,
// copying a whole source, and feeding cut-short copies of a file through a decoder.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/component_list.h"

namespace orvanta::imaging::test {

inline std::vector<std::uint8_t> ReadFileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Picture {
    PixelSize size;
    PixelFormat format = PixelFormat::Unknown;
    std::size_t stride = 0;
    std::vector<std::uint8_t> pixels;

    const std::uint8_t* At(std::uint32_t x, std::uint32_t y) const {
        return pixels.data() + y * stride + x * (BitsPerPixel(format) / 8);
    }
    std::uint16_t Sample16(std::uint32_t x, std::uint32_t y, std::uint32_t channel) const {
        std::uint16_t value;
        std::memcpy(&value, At(x, y) + channel * 2, 2);
        return value;
    }
};

// Copies the whole source, rows packed.
inline Result CopyPicture(BitmapSource& source, Picture& picture) {
    picture.size = source.Size();
    picture.format = source.Format();
    picture.stride = source.RowBytes(picture.size.width);
    picture.pixels.assign(picture.stride * picture.size.height, 0);
    return source.CopyAll(picture.stride, std::as_writable_bytes(std::span(picture.pixels)));
}

// Copies the top row first, so that a source that fails costs no full-size buffer.
inline bool CopySucceeds(BitmapSource& source) {
    std::vector<std::uint8_t> row(source.RowBytes(source.Size().width));
    const PixelRect top{0, 0, static_cast<std::int32_t>(source.Size().width), 1};
    if (source.CopyPixels(top, row.size(), std::as_writable_bytes(std::span(row))).Failed()) {
        return false;
    }
    Picture picture;
    return CopyPicture(source, picture).Succeeded();
}

// Creates a decoder over `bytes` and copies every frame and the preview; returns whether
// all of it succeeded. Anything else must be a clean failure (the sanitizers watch).
inline bool DecodeEverything(const DecoderInfo& info, std::vector<std::uint8_t> bytes) {
    std::unique_ptr<Decoder> decoder;
    if (info.create(FileBytes::FromMemory(std::move(bytes)), decoder).Failed()) {
        return false;
    }
    bool complete = true;
    for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
        std::unique_ptr<BitmapFrame> frame;
        complete = decoder->GetFrame(i, frame).Succeeded() && CopySucceeds(*frame) && complete;
    }
    std::unique_ptr<BitmapFrame> preview;
    if (decoder->GetPreview(preview) == S_OK) {
        complete = CopySucceeds(*preview) && complete;
    }
    return complete;
}

// Feeds every `step`-th prefix of `bytes` through the decoder; returns how many decoded
// completely.
inline int DecodeTruncations(const DecoderInfo& info, const std::vector<std::uint8_t>& bytes,
                             std::size_t step) {
    int complete = 0;
    for (std::size_t length = 0; length < bytes.size(); length += step) {
        complete += DecodeEverything(
            info, std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + length));
    }
    return complete;
}

}  // namespace orvanta::imaging::test

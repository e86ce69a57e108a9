// Helpers for the tests of the codecs that parse their containers themselves (BMP, ICO,
// TGA): little-endian byte writers for fixtures, a decode of the first frame, and a
// reference conversion of the decoded pixels to B, G, R, A bytes to compare against.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/codecs/codecs.h"
#include "support/temp_folder.h"

namespace orvanta::imaging::test {

using Bytes = std::vector<std::uint8_t>;

inline void Put16(Bytes& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v));
    b.push_back(static_cast<std::uint8_t>(v >> 8));
}
inline void Put32(Bytes& b, std::uint32_t v) {
    Put16(b, v & 0xFFFF);
    Put16(b, v >> 16);
}
inline void Append(Bytes& b, const Bytes& more) {
    b.insert(b.end(), more.begin(), more.end());
}

using Pixel = std::function<std::uint32_t(int x, int y)>;  // display coordinates

// Rows as a BMP stores them: bottom-up unless top-down, each padded to 4 bytes.
inline Bytes StoreRows(int width, int height, int bits, bool topDown, const Pixel& value) {
    const std::size_t stride = (static_cast<std::size_t>(width) * bits + 31) / 32 * 4;
    Bytes out(stride * height, 0);
    for (int s = 0; s < height; ++s) {
        const int y = topDown ? s : height - 1 - s;
        std::uint8_t* row = out.data() + stride * s;
        for (int x = 0; x < width; ++x) {
            const std::uint32_t v = value(x, y);
            if (bits < 8) {
                row[x * bits / 8] |= static_cast<std::uint8_t>(v << (8 - bits - (x * bits) % 8));
            } else {
                for (int k = 0; k < bits / 8; ++k) {
                    row[x * bits / 8 + k] = static_cast<std::uint8_t>(v >> (8 * k));
                }
            }
        }
    }
    return out;
}

inline std::uint32_t Argb(unsigned a, unsigned r, unsigned g, unsigned b) {
    return (a << 24) | (r << 16) | (g << 8) | b;
}

struct Decoded {
    Result create = E_FAIL;
    Result frame = E_FAIL;
    Result copy = E_FAIL;
    PixelSize size;
    PixelFormat format = PixelFormat::Unknown;
    std::vector<std::uint32_t> palette;
    Bytes raw;  // rows of the copied rectangle, `stride` bytes each
    std::size_t stride = 0;
    std::vector<std::uint32_t> bgra;  // the same pixels as 0xAARRGGBB, by the reference below
};

// 0xAARRGGBB of pixel `x` of a row in `format` (the formats these codecs emit).
inline std::uint32_t ReferencePixel(PixelFormat format, const std::vector<std::uint32_t>& palette,
                                    const std::uint8_t* row, std::uint32_t x) {
    auto argb = [](unsigned a, unsigned r, unsigned g, unsigned b) {
        return (a << 24) | (r << 16) | (g << 8) | b;
    };
    auto five = [](unsigned v) { return (v << 3) | (v >> 2); };
    const std::uint8_t* p = nullptr;
    switch (format) {
        case PixelFormat::Indexed1:
        case PixelFormat::Indexed2:
        case PixelFormat::Indexed4:
        case PixelFormat::Indexed8: {
            const unsigned bits = BitsPerPixel(format);
            const unsigned perByte = 8 / bits;
            const unsigned index =
                (row[x / perByte] >> (8 - bits * (x % perByte + 1))) & ((1u << bits) - 1);
            return index < palette.size() ? palette[index] : 0xDEADBEEF;
        }
        case PixelFormat::Gray8:
            return argb(255, row[x], row[x], row[x]);
        case PixelFormat::GrayAlpha16:
            return argb(row[x * 2 + 1], row[x * 2], row[x * 2], row[x * 2]);
        case PixelFormat::Bgr555:
        case PixelFormat::Bgr565: {
            const unsigned v = row[x * 2] | (row[x * 2 + 1] << 8);
            if (format == PixelFormat::Bgr555) {
                return argb(255, five((v >> 10) & 31), five((v >> 5) & 31), five(v & 31));
            }
            return argb(255, five(v >> 11), ((v >> 5) & 63) << 2 | ((v >> 5) & 63) >> 4,
                        five(v & 31));
        }
        case PixelFormat::Bgr24:
            p = row + x * 3;
            return argb(255, p[2], p[1], p[0]);
        case PixelFormat::Bgr32:
            p = row + x * 4;
            return argb(255, p[2], p[1], p[0]);
        case PixelFormat::Bgra32:
        case PixelFormat::Pbgra32:  // compared as stored
            p = row + x * 4;
            return argb(p[3], p[2], p[1], p[0]);
        default:
            ADD_FAILURE() << "no reference conversion for format " << Info(format).name;
            return 0;
    }
}

// Creates the decoder, takes frame 0 and copies `rect` (the whole frame when absent).
inline Decoded Decode(const DecoderInfo& info, Bytes bytes,
                      std::optional<PixelRect> rect = std::nullopt) {
    Decoded d;
    std::unique_ptr<Decoder> decoder;
    d.create = info.create(FileBytes::FromMemory(std::move(bytes)), decoder);
    if (d.create.Failed()) {
        return d;
    }
    std::unique_ptr<BitmapFrame> frame;
    d.frame = decoder->GetFrame(0, frame);
    if (d.frame.Failed()) {
        return d;
    }
    d.size = frame->Size();
    d.format = frame->Format();
    d.palette.assign(frame->Palette().begin(), frame->Palette().end());
    const PixelRect r = rect.value_or(PixelRect{0, 0, static_cast<std::int32_t>(d.size.width),
                                                static_cast<std::int32_t>(d.size.height)});
    d.stride =
        frame->RowBytes(static_cast<std::uint32_t>(r.width)) + 3;  // an odd stride on purpose
    d.raw.assign(d.stride * static_cast<std::size_t>(r.height), 0xCD);
    d.copy = frame->CopyPixels(r, d.stride, std::as_writable_bytes(std::span(d.raw)));
    if (d.copy.Failed()) {
        return d;
    }
    for (std::int32_t y = 0; y < r.height; ++y) {
        for (std::int32_t x = 0; x < r.width; ++x) {
            d.bgra.push_back(ReferencePixel(d.format, d.palette, d.raw.data() + d.stride * y,
                                            static_cast<std::uint32_t>(x)));
        }
    }
    return d;
}

// The files of one folder of the shared test data; empty (and the caller skips) when absent.
inline std::vector<std::filesystem::path> TestDataFiles(const std::string& folder) {
    std::vector<std::filesystem::path> files;
    const auto root = orvanta::test::TestDataFolder();
    if (root.empty() || !std::filesystem::is_directory(root / "formats" / folder)) {
        return files;
    }
    for (const auto& entry : std::filesystem::directory_iterator(root / "formats" / folder)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

inline Bytes ReadAll(const std::filesystem::path& path) {
    std::shared_ptr<const FileBytes> bytes;
    EXPECT_EQ(FileBytes::Read(path, bytes), S_OK) << path;
    return bytes ? Bytes(bytes->Bytes().begin(), bytes->Bytes().end()) : Bytes{};
}

// Every prefix of `file` must give a clean result: a failed create, or a frame whose copy
// succeeds (S_FALSE once pixels are missing). Returns how many prefixes decoded.
inline int DecodeEveryPrefix(const DecoderInfo& info, const Bytes& file) {
    int decoded = 0;
    for (std::size_t length = 0; length < file.size(); ++length) {
        const Decoded d =
            Decode(info, Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        if (d.create.Failed() || d.frame.Failed()) {
            continue;
        }
        EXPECT_TRUE(d.copy.Succeeded()) << "length " << length << ": " << d.copy.Hex();
        ++decoded;
    }
    return decoded;
}

}  // namespace orvanta::imaging::test

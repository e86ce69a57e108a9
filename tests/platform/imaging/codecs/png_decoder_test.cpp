#include <gtest/gtest.h>

#if ORVANTA_HAVE_SPNG

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <spng.h>

#include "platform/imaging/codecs/codecs.h"
#include "support/temp_folder.h"

namespace orvanta::imaging::codecs {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr Result kBadHeader{0x88982F61u};
constexpr Result kSizeOutOfRange{0x88982F51u};

struct Chunks {
    bool key = false;  // tRNS: a colour key, or palette alpha
    std::string exif;
    std::string xmp;
    std::string icc;
};

struct Image {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint8_t colorType = 0;
    std::uint8_t depth = 8;
    Bytes rows;  // host-endian samples, packed rows as PNG stores them
    std::size_t rowBytes = 0;
};

std::uint32_t Channels(std::uint8_t colorType) {
    return colorType == 2 ? 3 : colorType == 4 ? 2 : colorType == 6 ? 4 : 1;
}

Image MakeImage(std::uint32_t width, std::uint32_t height, std::uint8_t colorType,
                std::uint8_t depth) {
    Image image{width, height, colorType, depth, {}, 0};
    image.rowBytes = (std::size_t{width} * Channels(colorType) * depth + 7) / 8;
    image.rows.resize(image.rowBytes * height);
    for (std::size_t i = 0; i < image.rows.size(); ++i) {
        image.rows[i] = static_cast<std::uint8_t>(i * 37 + i / image.rowBytes * 11);
    }
    return image;
}

// Encodes with libspng's encoder, adding the chunks asked for.
Bytes Encode(const Image& image, bool interlaced, const Chunks& chunks) {
    spng_ctx* context = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(context, SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{image.width,
                   image.height,
                   image.depth,
                   image.colorType,
                   0,
                   0,
                   static_cast<std::uint8_t>(interlaced ? 1 : 0)};
    spng_set_ihdr(context, &ihdr);
    if (image.colorType == 3) {
        spng_plte plte{};
        plte.n_entries = 1u << image.depth;
        for (std::uint32_t i = 0; i < plte.n_entries; ++i) {
            plte.entries[i] = {static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(255 - i),
                               static_cast<std::uint8_t>(i * 3), 0};
        }
        spng_set_plte(context, &plte);
    }
    if (chunks.key) {
        spng_trns trns{};
        trns.gray = image.depth == 16 ? 0x2325 : image.depth == 8 ? 0x25 : 1;
        trns.red = image.depth == 16 ? 0x2325 : 0x25;  // samples that occur in MakeImage
        trns.green = image.depth == 16 ? 0x774A : 0x4A;
        trns.blue = image.depth == 16 ? 0xCB6F : 0x6F;
        trns.n_type3_entries = 2;
        trns.type3_alpha[0] = 0;
        trns.type3_alpha[1] = 0x80;
        spng_set_trns(context, &trns);
    }
    if (!chunks.icc.empty()) {
        spng_iccp iccp{};
        std::strcpy(iccp.profile_name, "test");
        iccp.profile_len = chunks.icc.size();
        iccp.profile = const_cast<char*>(chunks.icc.data());
        spng_set_iccp(context, &iccp);
    }
    if (!chunks.exif.empty()) {
        spng_exif exif{chunks.exif.size(), const_cast<char*>(chunks.exif.data())};
        spng_set_exif(context, &exif);
    }
    if (!chunks.xmp.empty()) {
        spng_text text{};
        std::strcpy(text.keyword, "XML:com.adobe.xmp");
        text.type = SPNG_ITXT;
        text.length = chunks.xmp.size();
        text.text = const_cast<char*>(chunks.xmp.data());
        text.language_tag = const_cast<char*>("");
        text.translated_keyword = const_cast<char*>("");
        spng_set_text(context, &text, 1);
    }
    const int error = spng_encode_image(context, image.rows.data(), image.rows.size(), SPNG_FMT_PNG,
                                        SPNG_ENCODE_FINALIZE);
    EXPECT_EQ(error, 0) << spng_strerror(error);
    std::size_t size = 0;
    int bufferError = 0;
    void* buffer = spng_get_png_buffer(context, &size, &bufferError);
    Bytes png(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + size);
    free(buffer);
    spng_ctx_free(context);
    return png;
}

std::unique_ptr<BitmapFrame> FrameOf(const Bytes& png, Result expected = S_OK) {
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(PngDecoderInfo().create(FileBytes::FromMemory(png), decoder), expected);
    std::unique_ptr<BitmapFrame> frame;
    if (decoder) {
        EXPECT_EQ(decoder->FrameCount(), 1u);
        EXPECT_EQ(decoder->GetFrame(0, frame), S_OK);
    }
    return frame;
}

Bytes CopyAll(BitmapSource& source, Result expected = S_OK) {
    const std::size_t stride = source.RowBytes(source.Size().width);
    Bytes pixels(stride * source.Size().height);
    EXPECT_EQ(source.CopyAll(stride, std::as_writable_bytes(std::span(pixels))), expected);
    return pixels;
}

// What the decoder must produce from `image` when a colour key applies: every sample
// copied, plus an alpha that is zero exactly where the pixel equals the key.
Bytes ExpectedPixels(const Image& image, bool key) {
    const bool keyed = key && (image.colorType == 0 || image.colorType == 2) && image.depth >= 8;
    if (!keyed) {
        return image.rows;
    }
    const std::size_t channels = Channels(image.colorType);
    const std::size_t sample = image.depth / 8;
    const bool wide = image.depth == 16;
    const std::uint16_t keys[3] = {std::uint16_t(wide ? 0x2325 : 0x25),
                                   std::uint16_t(wide ? 0x774A : 0x4A),
                                   std::uint16_t(wide ? 0xCB6F : 0x6F)};
    Bytes out;
    for (std::size_t p = 0; p < std::size_t{image.width} * image.height; ++p) {
        const std::uint8_t* pixel = &image.rows[p * channels * sample];
        bool match = true;
        for (std::size_t c = 0; c < channels; ++c) {
            std::uint16_t value = pixel[c * sample];
            if (sample == 2) {
                std::memcpy(&value, pixel + c * 2, 2);
            }
            match = match && value == keys[c];
        }
        out.insert(out.end(), pixel, pixel + channels * sample);
        const std::uint8_t alpha = match ? 0 : 0xFF;
        out.insert(out.end(), sample, alpha);
    }
    return out;
}

struct FormatCase {
    std::uint8_t colorType;
    std::uint8_t depth;
    bool key;
    PixelFormat format;
};

class PngFormats : public testing::TestWithParam<std::tuple<FormatCase, bool>> {};

TEST_P(PngFormats, RoundTrip) {
    const auto& [c, interlaced] = GetParam();
    // 37 columns: sub-byte rows end mid-byte; a key pixel occurs in the pattern.
    Image image = MakeImage(37, 23, c.colorType, c.depth);
    if (c.key && c.depth >= 8) {
        const std::size_t bytes = Channels(c.colorType) * c.depth / 8;
        const std::uint8_t key8[] = {0x25, 0x4A, 0x6F};
        const std::uint16_t key16[] = {0x2325, 0x774A, 0xCB6F};
        for (std::size_t p : {std::size_t{0}, std::size_t{100}}) {
            if (c.depth == 8) {
                std::memcpy(&image.rows[p * bytes], key8, bytes);
            } else {
                std::memcpy(&image.rows[p * bytes], key16, bytes);
            }
        }
    }
    auto frame = FrameOf(Encode(image, interlaced, {.key = c.key}));
    ASSERT_TRUE(frame);
    ASSERT_EQ(frame->Format(), c.format);
    EXPECT_EQ(frame->GetAccess(), interlaced ? Access::Random : Access::Sequential);
    const Bytes expected = ExpectedPixels(image, c.key);
    const Bytes decoded = CopyAll(*frame);
    ASSERT_EQ(decoded.size(), expected.size());
    if (c.depth < 8) {
        // Bits past the last pixel of a row are padding.
        const std::size_t row = image.rowBytes;
        const int bits = (37 * c.depth) % 8;
        for (std::size_t y = 0; y < 23; ++y) {
            ASSERT_EQ(0, std::memcmp(&decoded[y * row], &expected[y * row], row - 1)) << y;
            const std::uint8_t mask = static_cast<std::uint8_t>(0xFF << (8 - bits));
            ASSERT_EQ(decoded[y * row + row - 1] & mask, expected[y * row + row - 1] & mask);
        }
    } else {
        EXPECT_EQ(decoded, expected);
    }
    if (c.colorType == 3) {
        const auto palette = frame->Palette();
        ASSERT_EQ(palette.size(), 1u << c.depth);
        EXPECT_EQ(palette[0], c.key ? 0x0000FF00u : 0xFF00FF00u);
        EXPECT_EQ(palette[1], c.key ? 0x8001FE03u : 0xFF01FE03u);
        EXPECT_EQ(palette.back() >> 24, 0xFFu);
    }
    if (c.colorType == 0 && c.depth < 8 && c.format != PixelFormat::BlackWhite) {
        const auto palette = frame->Palette();
        ASSERT_EQ(palette.size(), 1u << c.depth);
        EXPECT_EQ(palette.front(), 0xFF000000u);
        EXPECT_EQ(palette[1] >> 24, c.key ? 0u : 0xFFu);
        EXPECT_EQ(palette.back(), c.key && c.depth == 1 ? 0x00FFFFFFu : 0xFFFFFFFFu);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Png, PngFormats,
    testing::Combine(testing::Values(FormatCase{0, 1, false, PixelFormat::BlackWhite},
                                     FormatCase{0, 1, true, PixelFormat::Indexed1},
                                     FormatCase{0, 2, false, PixelFormat::Indexed2},
                                     FormatCase{0, 4, true, PixelFormat::Indexed4},
                                     FormatCase{0, 8, false, PixelFormat::Gray8},
                                     FormatCase{0, 8, true, PixelFormat::GrayAlpha16},
                                     FormatCase{0, 16, false, PixelFormat::Gray16},
                                     FormatCase{0, 16, true, PixelFormat::GrayAlpha32},
                                     FormatCase{2, 8, false, PixelFormat::Rgb24},
                                     FormatCase{2, 8, true, PixelFormat::Rgba32},
                                     FormatCase{2, 16, false, PixelFormat::Rgb48},
                                     FormatCase{2, 16, true, PixelFormat::Rgba64},
                                     FormatCase{3, 1, false, PixelFormat::Indexed1},
                                     FormatCase{3, 2, true, PixelFormat::Indexed2},
                                     FormatCase{3, 4, true, PixelFormat::Indexed4},
                                     FormatCase{3, 8, true, PixelFormat::Indexed8},
                                     FormatCase{4, 8, false, PixelFormat::GrayAlpha16},
                                     FormatCase{4, 16, false, PixelFormat::GrayAlpha32},
                                     FormatCase{6, 8, false, PixelFormat::Rgba32},
                                     FormatCase{6, 16, false, PixelFormat::Rgba64}),
                     testing::Bool()));

class PngRectangles : public testing::TestWithParam<std::tuple<int, bool>> {};

// Rectangles in any order, sub-byte ones starting mid-byte, match a whole decode.
TEST_P(PngRectangles, MatchWholeDecode) {
    const auto [depth, interlaced] = GetParam();
    const Image image = MakeImage(45, 30, depth < 8 ? 3 : 2, static_cast<std::uint8_t>(depth));
    auto frame = FrameOf(Encode(image, interlaced, {}));
    ASSERT_TRUE(frame);
    auto whole = FrameOf(Encode(image, interlaced, {}));
    const Bytes all = CopyAll(*whole);
    const std::size_t bits = BitsPerPixel(frame->Format());
    const std::size_t fullRow = frame->RowBytes(45);
    for (const PixelRect rect : {PixelRect{3, 10, 17, 5}, PixelRect{0, 2, 45, 3},
                                 PixelRect{44, 29, 1, 1}, PixelRect{1, 0, 9, 1}}) {
        const std::size_t stride = frame->RowBytes(rect.width) + 3;
        Bytes part(stride * rect.height);
        ASSERT_EQ(frame->CopyPixels(rect, stride, std::as_writable_bytes(std::span(part))), S_OK);
        for (int y = 0; y < rect.height; ++y) {
            for (int x = 0; x < rect.width; ++x) {
                const auto pixel = [bits](const std::uint8_t* row, std::size_t i) {
                    std::uint64_t value = 0;
                    for (std::size_t b = 0; b < bits; ++b) {
                        const std::size_t at = i * bits + b;
                        value = value << 1 | ((row[at / 8] >> (7 - at % 8)) & 1);
                    }
                    return value;
                };
                ASSERT_EQ(pixel(&part[y * stride], x),
                          pixel(&all[(rect.y + y) * fullRow], rect.x + x))
                    << rect.x << "," << rect.y << " +" << x << "," << y;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Png, PngRectangles,
                         testing::Combine(testing::Values(1, 2, 4, 8, 16), testing::Bool()));

TEST(PngDecoder, MetadataChunks) {
    const std::string exif("MM\0*\0\0\0\x08\0\0\0\0\0\0", 14);
    const std::string xmp = "<x:xmpmeta>label</x:xmpmeta>";
    std::string icc(300, 'p');
    icc.replace(36, 4, "acsp");
    auto frame = FrameOf(Encode(MakeImage(5, 5, 2, 8), false, {false, exif, xmp, icc}));
    ASSERT_TRUE(frame);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(std::string(blocks.exif.begin(), blocks.exif.end()), exif);
    EXPECT_EQ(std::string(blocks.xmp.begin(), blocks.xmp.end()), xmp);
    EXPECT_EQ(std::string(blocks.icc.begin(), blocks.icc.end()), icc);
    EXPECT_TRUE(blocks.iptc.empty());
}

// --- bad files ------------------------------------------------------------------------

std::size_t FindChunk(const Bytes& png, const char* type) {
    for (std::size_t i = 8; i + 8 <= png.size();) {
        if (std::memcmp(&png[i + 4], type, 4) == 0) {
            return i;
        }
        i += 12 + (std::size_t{png[i]} << 24 | png[i + 1] << 16 | png[i + 2] << 8 | png[i + 3]);
    }
    return png.size();
}

class PngTruncated : public testing::TestWithParam<bool> {};

TEST_P(PngTruncated, CutFilesFailOrShowTheRowsTheyHold) {
    const bool interlaced = GetParam();
    const Bytes png = Encode(MakeImage(64, 40, 6, 8), interlaced, {});
    const std::size_t idat = FindChunk(png, "IDAT");
    const std::size_t iend = FindChunk(png, "IEND");
    constexpr std::size_t kStride = 256;
    Bytes whole(kStride * 40);
    {
        std::unique_ptr<Decoder> decoder;
        ASSERT_EQ(PngDecoderInfo().create(FileBytes::FromMemory(png), decoder), S_OK);
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
        ASSERT_EQ(frame->CopyAll(kStride, std::as_writable_bytes(std::span(whole))), S_OK);
    }
    int partial = 0;
    for (std::size_t length = 0; length < png.size(); length += 5) {
        const Bytes cut(png.begin(), png.begin() + length);
        std::unique_ptr<Decoder> decoder;
        const Result created = PngDecoderInfo().create(FileBytes::FromMemory(cut), decoder);
        // Until the first image-data chunk's header, there is nothing to decode.
        if (length < idat + 8) {
            EXPECT_TRUE(length >= idat || created.Failed()) << length;
            continue;
        }
        ASSERT_EQ(created, S_OK) << length;
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
        Bytes pixels(kStride * 40, 0xAB);
        const Result copied = frame->CopyAll(kStride, std::as_writable_bytes(std::span(pixels)));
        if (length >= iend - 4) {
            continue;
        }
        // An interlaced picture needs all of its data; a sequential one shows its top rows
        // and leaves the rest transparent.
        if (copied == S_OK) {
            // Only the checksums were cut off: every row is there.
            EXPECT_FALSE(interlaced) << length;
            EXPECT_EQ(pixels, whole) << length;
            continue;
        }
        if (interlaced || copied != S_FALSE) {
            EXPECT_TRUE(copied.Failed()) << length;
            continue;
        }
        ++partial;
        std::size_t row = 0;
        while (row < 40 &&
               std::equal(pixels.begin() + row * kStride, pixels.begin() + (row + 1) * kStride,
                          whole.begin() + row * kStride)) {
            ++row;
        }
        EXPECT_GT(row, 0u) << length;
        for (std::size_t rest = row; rest < 40; ++rest) {
            EXPECT_TRUE(std::all_of(pixels.begin() + rest * kStride,
                                    pixels.begin() + (rest + 1) * kStride,
                                    [](std::uint8_t b) { return b == 0; }))
                << "row " << rest << " of a file cut at " << length;
        }
        // A second copy of the rows past the cut gives the same, without a decode.
        Bytes tail(kStride, 0xAB);
        if (row < 39) {
            EXPECT_EQ(
                frame->CopyPixels({0, 39, 64, 1}, kStride, std::as_writable_bytes(std::span(tail))),
                S_FALSE);
            EXPECT_TRUE(
                std::all_of(tail.begin(), tail.end(), [](std::uint8_t b) { return b == 0; }));
        }
    }
    if (!interlaced) {
        EXPECT_GT(partial, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Png, PngTruncated, testing::Bool());

TEST(PngDecoder, ChecksumErrorsFailOnlyInCriticalChunks) {
    const Bytes png = Encode(MakeImage(8, 8, 2, 8), false, {false, {}, "<x/>", {}});
    Bytes badText = png;
    const std::size_t itxt = FindChunk(badText, "iTXt");
    ASSERT_LT(itxt, badText.size());
    badText[itxt + 9] ^= 0x55;  // inside the keyword: the checksum no longer matches
    auto frame = FrameOf(badText);
    ASSERT_TRUE(frame);
    EXPECT_TRUE(frame->Metadata().xmp.empty());
    CopyAll(*frame);

    Bytes badData = png;
    badData[FindChunk(badData, "IDAT") + 10] ^= 0x55;
    frame = FrameOf(badData);
    ASSERT_TRUE(frame);
    CopyAll(*frame, Result(0x88982F60u));

    Bytes badHeader = png;
    badHeader[FindChunk(badHeader, "IHDR") + 9] ^= 0x55;
    FrameOf(badHeader, kBadHeader);
}

TEST(PngDecoder, RefusesGigapixelClaims) {
    Image image = MakeImage(4, 4, 0, 8);
    Bytes png = Encode(image, false, {});
    // IHDR width 65536, height 65536: 4 gigapixels. The checksum is rewritten to match.
    const std::size_t ihdr = FindChunk(png, "IHDR");
    png[ihdr + 8] = 0;
    png[ihdr + 9] = 1;
    png[ihdr + 10] = 0;
    png[ihdr + 11] = 0;
    png[ihdr + 12] = 0;
    png[ihdr + 13] = 1;
    png[ihdr + 14] = 0;
    png[ihdr + 15] = 0;
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = ihdr + 4; i < ihdr + 8 + 13; ++i) {
        crc ^= png[i];
        for (int k = 0; k < 8; ++k) {
            crc = crc & 1 ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
        }
    }
    crc = ~crc;
    for (int k = 0; k < 4; ++k) {
        png[ihdr + 8 + 13 + k] = static_cast<std::uint8_t>(crc >> (24 - 8 * k));
    }
    FrameOf(png, kSizeOutOfRange);
}

TEST(PngDecoder, RegistersAndMatchesContent) {
    const DecoderInfo info = PngDecoderInfo();
    EXPECT_EQ(info.name, "PNG Decoder");
    EXPECT_EQ(info.extensions, ".png");
    EXPECT_EQ(info.container, container::Png);
    const Bytes png = Encode(MakeImage(2, 2, 0, 8), false, {});
    EXPECT_TRUE(info.matches(png));
    EXPECT_FALSE(info.matches(std::span(png).first(7)));
}

TEST(PngDecoder, DecodesEveryTestFile) {
    const auto folder = test::TestDataFolder();
    if (folder.empty() || !std::filesystem::exists(folder / "formats/png")) {
        GTEST_SKIP() << "no test data";
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "formats/png")) {
        SCOPED_TRACE(entry.path().string());
        std::shared_ptr<const FileBytes> bytes;
        ASSERT_EQ(FileBytes::Read(entry.path(), bytes), S_OK);
        std::unique_ptr<Decoder> decoder;
        ASSERT_EQ(PngDecoderInfo().create(bytes, decoder), S_OK);
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
        CopyAll(*frame);
        ++files;
    }
    EXPECT_GT(files, 0);
}

// The round trips above use libspng on both sides; a file from elsewhere pins the byte
// order: PngSuite's 16-bit truecolour starts with (FFFF, FFFF, 0000), then red F7BD.
TEST(PngDecoder, SixteenBitSamplesAreNativeEndian) {
    const auto path = test::TestDataFolder() / "formats/png/basn2c16.png";
    if (test::TestDataFolder().empty() || !std::filesystem::exists(path)) {
        GTEST_SKIP() << "no test data";
    }
    std::shared_ptr<const FileBytes> bytes;
    ASSERT_EQ(FileBytes::Read(path, bytes), S_OK);
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(PngDecoderInfo().create(bytes, decoder), S_OK);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    ASSERT_EQ(frame->Format(), PixelFormat::Rgb48);
    std::uint16_t pixels[6];
    ASSERT_EQ(frame->CopyPixels({0, 0, 2, 1}, 12, std::as_writable_bytes(std::span(pixels))), S_OK);
    EXPECT_EQ(pixels[0], 0xFFFF);
    EXPECT_EQ(pixels[2], 0x0000);
    EXPECT_EQ(pixels[3], 0xF7BD);
}

}  // namespace
}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_SPNG

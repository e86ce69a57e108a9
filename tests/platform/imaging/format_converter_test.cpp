#include "platform/imaging/format_converter.h"

#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "test_sources.h"

namespace orvanta::imaging {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::unique_ptr<BitmapSource> FromBytes(PixelSize size, PixelFormat format, const Bytes& bytes,
                                        std::vector<std::uint32_t> palette = {}) {
    std::vector<std::byte> pixels(bytes.size());
    std::memcpy(pixels.data(), bytes.data(), bytes.size());
    return MemorySource::Own(size, format, (size.width * BitsPerPixel(format) + 7) / 8,
                             std::move(pixels), std::move(palette));
}

Bytes Convert(std::unique_ptr<BitmapSource> source, PixelFormat target) {
    auto converted = Converted(std::move(source), target);
    if (converted == nullptr) {
        ADD_FAILURE() << "no conversion to " << Info(target).name;
        return {};
    }
    return test::ReadAll(*converted);
}

// Two pixels of every source format, written byte by byte as the format lays them out, and
// what they are as straight B, G, R, A.
struct SourceCase {
    PixelFormat format;
    Bytes bytes;
    Bytes bgra;
    std::vector<std::uint32_t> palette = {};
};

void PrintTo(const SourceCase& c, std::ostream* os) {
    *os << Info(c.format).name;
}

class SourceFormat : public ::testing::TestWithParam<SourceCase> {};

TEST_P(SourceFormat, UnpacksToStraightBgra) {
    const SourceCase& c = GetParam();
    EXPECT_EQ(Convert(FromBytes({2, 1}, c.format, c.bytes, c.palette), PixelFormat::Bgra32),
              c.bgra);
}

INSTANTIATE_TEST_SUITE_P(
    All, SourceFormat,
    ::testing::Values(
        SourceCase{PixelFormat::BlackWhite, {0x40}, {0, 0, 0, 255, 255, 255, 255, 255}},
        SourceCase{PixelFormat::Indexed1,
                   {0x40},
                   {0x30, 0x20, 0x10, 0xFF, 0x33, 0x22, 0x11, 0x80},
                   {0xFF102030, 0x80112233}},
        SourceCase{PixelFormat::Indexed2,
                   {0x30},  // 0, 3: index 3 is past the table
                   {0x30, 0x20, 0x10, 0xFF, 0, 0, 0, 255},
                   {0xFF102030}},
        SourceCase{PixelFormat::Indexed4,
                   {0x21},
                   {3, 2, 1, 0, 0x30, 0x20, 0x10, 0xFF},
                   {0, 0xFF102030, 0x00010203}},
        SourceCase{PixelFormat::Indexed8,
                   {1, 0},
                   {9, 8, 7, 6, 0x30, 0x20, 0x10, 0xFF},
                   {0xFF102030, 0x06070809}},
        SourceCase{PixelFormat::Gray8, {0, 200}, {0, 0, 0, 255, 200, 200, 200, 255}},
        SourceCase{PixelFormat::Gray16,
                   {0x80, 0x00, 0xFF, 0xFF},  // 128 rounds to 0, 65535 to 255
                   {0, 0, 0, 255, 255, 255, 255, 255}},
        SourceCase{PixelFormat::GrayAlpha16, {10, 20, 30, 40}, {10, 10, 10, 20, 30, 30, 30, 40}},
        SourceCase{PixelFormat::GrayAlpha32,
                   {0x81, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0x00, 0x00},
                   {1, 1, 1, 1, 255, 255, 255, 0}},
        SourceCase{PixelFormat::Rgb24, {1, 2, 3, 4, 5, 6}, {3, 2, 1, 255, 6, 5, 4, 255}},
        SourceCase{PixelFormat::Rgba32, {1, 2, 3, 4, 5, 6, 7, 8}, {3, 2, 1, 4, 7, 6, 5, 8}},
        SourceCase{PixelFormat::Rgb48,
                   {0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0xFF, 0xFF, 0, 0, 0x02, 0x01},
                   {3, 2, 1, 255, 1, 0, 255, 255}},
        SourceCase{PixelFormat::Rgba64,
                   {0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF},
                   {3, 2, 1, 4, 0, 0, 0, 255}},
        SourceCase{PixelFormat::Bgra64,
                   {0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF},
                   {1, 2, 3, 4, 0, 0, 0, 255}},
        // Half-transparent 50% red and fully transparent: colour divided back out at 16 bits.
        SourceCase{PixelFormat::Prgba64,
                   {0x00, 0x40, 0, 0, 0, 0, 0x00, 0x80, 0x00, 0x10, 0, 0, 0, 0, 0, 0},
                   {0, 0, 128, 128, 0, 0, 0, 0}},
        SourceCase{PixelFormat::Cmyk32,
                   {0, 0, 0, 0, 255, 0, 128, 128},
                   {255, 255, 255, 255, 63, 127, 0, 255}},
        SourceCase{PixelFormat::Cmyk64,
                   {0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0, 0xFF, 0xFF},
                   {255, 255, 255, 255, 0, 0, 0, 255}},
        SourceCase{PixelFormat::Bgr24, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 255, 4, 5, 6, 255}},
        SourceCase{PixelFormat::Bgr32, {1, 2, 3, 0, 4, 5, 6, 7}, {1, 2, 3, 255, 4, 5, 6, 255}},
        SourceCase{
            PixelFormat::Pbgra32, {64, 32, 0, 128, 9, 9, 9, 0}, {128, 64, 0, 128, 0, 0, 0, 0}},
        SourceCase{PixelFormat::Bgr565,  // pure blue, then pure green
                   {0x1F, 0x00, 0xE0, 0x07},
                   {255, 0, 0, 255, 0, 255, 0, 255}},
        SourceCase{PixelFormat::Bgr555,  // pure red, then 1 in each channel
                   {0x00, 0x7C, 0x21, 0x04},
                   {0, 0, 255, 255, 8, 8, 8, 255}}));

// Straight B, G, R, A pixels and the bytes every display format holds for them.
struct TargetCase {
    PixelFormat format;
    Bytes bytes;
};

void PrintTo(const TargetCase& c, std::ostream* os) {
    *os << Info(c.format).name;
}

class TargetFormat : public ::testing::TestWithParam<TargetCase> {};

TEST_P(TargetFormat, PacksFromStraightBgra) {
    const Bytes bgra = {255, 128, 0, 255, 200, 100, 50, 128, 10, 20, 30, 0};
    EXPECT_EQ(Convert(FromBytes({3, 1}, PixelFormat::Bgra32, bgra), GetParam().format),
              GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Display, TargetFormat,
    ::testing::Values(
        TargetCase{PixelFormat::Pbgra32, {255, 128, 0, 255, 100, 50, 25, 128, 0, 0, 0, 0}},
        TargetCase{PixelFormat::Bgr32, {255, 128, 0, 255, 200, 100, 50, 255, 10, 20, 30, 255}},
        TargetCase{PixelFormat::Bgr24, {255, 128, 0, 200, 100, 50, 10, 20, 30}},
        // 5 and 6 bits by rounding: 128 -> 32 of 63, 200 -> 24 of 31, 100 -> 25 of 63.
        TargetCase{PixelFormat::Bgr565, {0x1F, 0x04, 0x38, 0x33, 0xA1, 0x20}},
        TargetCase{PixelFormat::Bgr555, {0x1F, 0x02, 0x98, 0x19, 0x41, 0x10}}));

// Every colour and alpha pair through both kernels that premultiply (the direct one of
// Rgba32 and the general one behind GrayAlpha16) against the real-valued product.
TEST(FormatConverter, PremultipliesEveryPairWithExactRounding) {
    auto rgba = test::MakePicture({256, 256}, PixelFormat::Rgba32,
                                  [](std::uint32_t c, std::uint32_t a, std::uint32_t k) {
                                      return static_cast<std::uint8_t>(k == 3 ? a : c);
                                  });
    auto grayAlpha = test::MakePicture({256, 256}, PixelFormat::GrayAlpha16,
                                       [](std::uint32_t c, std::uint32_t a, std::uint32_t k) {
                                           return static_cast<std::uint8_t>(k == 1 ? a : c);
                                       });
    for (auto* source : {&rgba, &grayAlpha}) {
        const Bytes out = Convert(std::move(*source), PixelFormat::Pbgra32);
        ASSERT_EQ(out.size(), 256u * 256u * 4u);
        for (std::uint32_t a = 0; a < 256; ++a) {
            for (std::uint32_t c = 0; c < 256; ++c) {
                const auto expected = static_cast<std::uint8_t>(std::lround(c * a / 255.0));
                const std::uint8_t* p = &out[(a * 256 + c) * 4];
                ASSERT_EQ(p[0], expected) << c << " x " << a;
                ASSERT_EQ(p[1], expected) << c << " x " << a;
                ASSERT_EQ(p[2], expected) << c << " x " << a;
                ASSERT_EQ(p[3], a);
            }
        }
    }
}

// Unpremultiplying then premultiplying again gives back every valid premultiplied pixel.
TEST(FormatConverter, UnpremultipliesToAColourThatPremultipliesBack) {
    auto premultiplied = test::MakePicture(
        {256, 256}, PixelFormat::Pbgra32, [](std::uint32_t p, std::uint32_t a, std::uint32_t k) {
            return static_cast<std::uint8_t>(k == 3 ? a : std::min(p, a));
        });
    const Bytes original = test::ReadAll(*premultiplied);
    auto straight = Converted(std::move(premultiplied), PixelFormat::Bgra32);
    ASSERT_NE(straight, nullptr);
    auto again = Converted(std::move(straight), PixelFormat::Pbgra32);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(test::ReadAll(*again), original);
}

TEST(FormatConverter, RoundsSixteenBitSamplesToNearest) {
    auto gray = test::MakePicture({256, 256}, PixelFormat::Gray16,
                                  [](std::uint32_t x, std::uint32_t y, std::uint32_t k) {
                                      return static_cast<std::uint8_t>(k == 0 ? x : y);
                                  });
    const Bytes out = Convert(std::move(gray), PixelFormat::Bgr24);
    ASSERT_EQ(out.size(), 65536u * 3u);
    for (std::uint32_t v = 0; v < 65536; ++v) {
        ASSERT_EQ(out[v * 3], std::lround(v / 257.0)) << v;
    }
}

TEST(FormatConverter, SixteenBitDisplayFormatsSurviveARoundTrip) {
    for (PixelFormat format : {PixelFormat::Bgr565, PixelFormat::Bgr555}) {
        const std::uint32_t mask = format == PixelFormat::Bgr555 ? 0x7FFF : 0xFFFF;
        auto all = test::MakePicture({256, 256}, format,
                                     [&](std::uint32_t x, std::uint32_t y, std::uint32_t k) {
                                         const std::uint32_t v = (y * 256 + x) & mask;
                                         return static_cast<std::uint8_t>(v >> (8 * k));
                                     });
        const Bytes original = test::ReadAll(*all);
        auto there = Converted(std::move(all), PixelFormat::Bgra32);
        EXPECT_EQ(Convert(std::move(there), format), original) << Info(format).name;
    }
}

TEST(FormatConverter, HandsBackTheInputOrRefuses) {
    std::unique_ptr<BitmapSource> picture = test::MakePicture(
        {2, 2}, PixelFormat::Bgr24, [](std::uint32_t, std::uint32_t, std::uint32_t) { return 1; });
    BitmapSource* raw = picture.get();
    picture = Converted(std::move(picture), PixelFormat::Bgr24);
    EXPECT_EQ(picture.get(), raw);
    EXPECT_FALSE(CanConvert(PixelFormat::Bgr24, PixelFormat::Rgb48));
    EXPECT_EQ(Converted(std::move(picture), PixelFormat::Unknown), nullptr);
}

TEST(FormatConverter, PrefersTheFramesOwnVariant) {
    auto variant =
        test::MakePicture({3, 2}, PixelFormat::Pbgra32,
                          [](std::uint32_t, std::uint32_t, std::uint32_t) { return 77; });
    BitmapSource* raw = variant.get();
    test::VariantRequest request;
    auto frame = std::make_unique<test::VariantFrame>(
        test::MakePicture({3, 2}, PixelFormat::Rgb24,
                          [](std::uint32_t, std::uint32_t, std::uint32_t) { return 1; }),
        std::move(variant), &request);
    auto converted = Converted(std::move(frame), PixelFormat::Pbgra32);
    EXPECT_EQ(converted.get(), raw);
    EXPECT_EQ(request.format, PixelFormat::Pbgra32);
    EXPECT_EQ(request.minimum, PixelSize{});
}

// Rows are pulled in bands, top to bottom, only those asked for, from any start column.
TEST(FormatConverter, PullsOnlyTheRowsAskedForInBands) {
    test::ReadLog log;
    auto palette = std::vector<std::uint32_t>(16);
    for (std::uint32_t i = 0; i < 16; ++i) {
        palette[i] = 0xFF000000u | i * 0x10101u;
    }
    auto picture = test::MakePicture(
        {301, 2000}, PixelFormat::Indexed8,
        [](std::uint32_t x, std::uint32_t y, std::uint32_t) { return (x + y) % 16; }, palette);
    auto converted =
        Converted(std::make_unique<test::ProbeSource>(std::move(picture), Access::Sequential, &log),
                  PixelFormat::Bgr24);
    ASSERT_NE(converted, nullptr);
    EXPECT_EQ(converted->GetAccess(), Access::Sequential);
    const Bytes top = test::ReadRect(*converted, {7, 0, 290, 1000});
    const Bytes bottom = test::ReadRect(*converted, {7, 1000, 290, 1000});
    ASSERT_EQ(top.size(), 290u * 1000u * 3u);
    ASSERT_EQ(bottom.size(), top.size());
    EXPECT_EQ(log.backwardReads, 0);
    EXPECT_EQ(log.rowsServed, 2000);
    EXPECT_GT(log.requests, 2);
    EXPECT_LT(log.mostRows, 1000);
    // Column 5 of the rectangle is picture column 12; its grey is the palette index.
    EXPECT_EQ(bottom[(3 * 290 + 5) * 3], (12 + 1003) % 16);
    EXPECT_EQ(top[(3 * 290 + 5) * 3], (12 + 3) % 16);
}

}  // namespace
}  // namespace orvanta::imaging

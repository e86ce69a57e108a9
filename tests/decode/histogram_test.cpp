#include "decode/histogram.h"

#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/format_converter.h"
#include "platform/imaging/memory_source.h"
#include "support/histogram_count.h"

namespace orvanta::decode {
namespace {

using imaging::PixelFormat;

struct Picture {
    std::uint32_t width;
    std::uint32_t height;
    std::size_t stride;
    PixelFormat format;
    std::vector<std::byte> bytes;
};

Picture MakeNoise(PixelFormat format, std::uint32_t width, std::uint32_t height,
                  std::size_t padding, unsigned seed) {
    const std::size_t pixelBytes = imaging::BitsPerPixel(format) / 8;
    Picture picture{width, height, width * pixelBytes + padding, format, {}};
    picture.bytes.resize(picture.stride * height);
    std::mt19937 random(seed);
    for (auto& b : picture.bytes) {
        // Padding bytes are random as well: counting must stay inside the rows.
        b = static_cast<std::byte>(random());
    }
    return picture;
}

// One increment per pixel and channel of the B, G, R bytes; a 16-bit picture is first made
// 8-bit by the format converter, so its counts are those of the picture as shown.
HistogramBlock IndependentCount(const Picture& picture) {
    std::vector<std::byte> bgrx(std::size_t{picture.width} * picture.height * 4);
    if (picture.format == PixelFormat::Rgb48) {
        auto source = imaging::MemorySource::Borrow({picture.width, picture.height}, picture.format,
                                                    picture.stride, picture.bytes);
        auto shown = imaging::Converted(std::move(source), PixelFormat::Bgr32);
        EXPECT_EQ(shown->CopyAll(std::size_t{picture.width} * 4, bgrx), S_OK);
    } else {
        for (std::uint32_t y = 0; y < picture.height; ++y) {
            std::memcpy(bgrx.data() + std::size_t{y} * picture.width * 4,
                        picture.bytes.data() + y * picture.stride, std::size_t{picture.width} * 4);
        }
    }
    return test::CountBgrxPlainly(bgrx.data(), std::size_t{picture.width} * 4, picture.width,
                                  picture.height);
}

struct Shape {
    PixelFormat format;
    std::uint32_t width;
    std::uint32_t height;
    std::size_t padding;
    std::uint32_t bandRows;
};

class HistogramCounting : public testing::TestWithParam<Shape> {};

TEST_P(HistogramCounting, MatchesAnIndependentCountBandByBand) {
    const Shape shape = GetParam();
    const Picture picture = MakeNoise(shape.format, shape.width, shape.height, shape.padding, 11);
    HistogramBlock block;
    HistogramCounter counter;
    for (std::uint32_t y = 0; y < shape.height; y += shape.bandRows) {
        const std::uint32_t rows = std::min(shape.bandRows, shape.height - y);
        counter.Add(shape.format, picture.bytes.data() + y * picture.stride, picture.stride,
                    shape.width, rows);
        if (y == 0) {
            // Handing over midway restarts the counter from zero.
            counter.AddTo(block);
        }
    }
    counter.AddTo(block);
    counter.AddTo(block);  // nothing left to add
    FinishHistogram(block);
    test::ExpectSameHistogram(block, IndependentCount(picture));
}

// Widths around the four-pixel step of the counting loop, padded rows, one band or many.
INSTANTIATE_TEST_SUITE_P(
    Shapes, HistogramCounting,
    testing::Values(Shape{PixelFormat::Bgr32, 1, 1, 0, 1}, Shape{PixelFormat::Bgr32, 3, 7, 4, 2},
                    Shape{PixelFormat::Bgr32, 5, 300, 0, 128},
                    Shape{PixelFormat::Pbgra32, 1027, 129, 12, 128},
                    Shape{PixelFormat::Pbgra32, 640, 480, 0, 480},
                    Shape{PixelFormat::Rgb48, 7, 9, 2, 4},
                    Shape{PixelFormat::Rgb48, 333, 200, 0, 64}),
    [](const testing::TestParamInfo<Shape>& info) {
        return std::string(imaging::Info(info.param.format).name.substr(0, 6)) + "_" +
               std::to_string(info.param.width) + "x" + std::to_string(info.param.height) +
               "_band" + std::to_string(info.param.bandRows);
    });

TEST(Histogram, HalfWhitePictureClampsBin255ToTheTallestOtherBin) {
    const std::uint32_t width = 64, height = 64;
    Picture picture{width, height, width * 4, PixelFormat::Bgr32, {}};
    picture.bytes.resize(picture.stride * height);
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            std::byte* p = picture.bytes.data() + y * picture.stride + x * 4;
            // Left half white; right half a ramp over 1..254 with 10 in the most common bin.
            const std::uint8_t v =
                x < width / 2 ? 255
                              : static_cast<std::uint8_t>(x == width / 2 ? 10 : 1 + (y % 200));
            p[0] = p[1] = p[2] = static_cast<std::byte>(v);
        }
    }
    HistogramBlock block;
    CountRows(PixelFormat::Bgr32, picture.bytes.data(), picture.stride, width, height, block);
    EXPECT_EQ(block.red[255], width / 2 * height);
    FinishHistogram(block);
    // Column 32 is all 10s (64), and each of the 31 ramp columns holds one 10 (row 9).
    const std::uint32_t tallest = 64 + 31;
    for (const auto* counts : {&block.red, &block.green, &block.blue}) {
        EXPECT_EQ((*counts)[10], tallest);
        EXPECT_EQ((*counts)[255], tallest);
        EXPECT_EQ((*counts)[0], 0u);
    }
    EXPECT_EQ(block.maxima, (std::array<std::uint32_t, 3>{tallest, tallest, tallest}));
    EXPECT_EQ(IndependentCount(picture).red, block.red);
}

TEST(Histogram, FormatsThatAreNotCountedLeaveTheBlockZero) {
    for (const PixelFormat format : {PixelFormat::Bgra32, PixelFormat::Bgr24, PixelFormat::Rgba32,
                                     PixelFormat::Gray8, PixelFormat::Rgba64}) {
        const Picture picture = MakeNoise(format, 17, 5, 0, 3);
        HistogramBlock block;
        CountRows(format, picture.bytes.data(), picture.stride, 17, 5, block);
        FinishHistogram(block);
        const HistogramBlock zero;
        EXPECT_EQ(std::memcmp(&block, &zero, sizeof block), 0) << imaging::Info(format).name;
    }
}

}  // namespace
}  // namespace orvanta::decode

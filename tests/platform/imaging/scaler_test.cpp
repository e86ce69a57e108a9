#include "platform/imaging/scaler.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "test_sources.h"

namespace orvanta::imaging {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr Interpolation kModes[] = {Interpolation::NearestNeighbor, Interpolation::Linear,
                                    Interpolation::Cubic, Interpolation::Fant};

std::string ModeName(Interpolation mode) {
    switch (mode) {
        case Interpolation::NearestNeighbor:
            return "Nearest";
        case Interpolation::Linear:
            return "Linear";
        case Interpolation::Cubic:
            return "Cubic";
        case Interpolation::Fant:
            return "Fant";
    }
    return "?";
}

std::unique_ptr<MemorySource> Gray(std::uint32_t width, std::uint32_t height,
                                   std::uint8_t (*value)(std::uint32_t, std::uint32_t)) {
    return test::MakePicture(
        {width, height}, PixelFormat::Gray8,
        [value](std::uint32_t x, std::uint32_t y, std::uint32_t) { return value(x, y); });
}

Bytes ScaleAll(std::unique_ptr<BitmapSource> source, PixelSize size, Interpolation mode) {
    auto scaled = Scaled(std::move(source), size, mode);
    if (scaled == nullptr) {
        ADD_FAILURE() << "no scaler";
        return {};
    }
    EXPECT_EQ(scaled->Size(), size);
    return test::ReadAll(*scaled);
}

// --- every mode ----------------------------------------------------------------------

class EveryMode : public ::testing::TestWithParam<Interpolation> {};

TEST_P(EveryMode, KeepsAConstantPictureConstant) {
    const std::tuple<PixelFormat, PixelSize, PixelSize> cases[] = {
        {PixelFormat::Gray8, {97, 61}, {13, 7}},       {PixelFormat::Gray8, {5, 3}, {41, 29}},
        {PixelFormat::Rgb24, {64, 48}, {63, 47}},      {PixelFormat::Bgr24, {10, 10}, {1, 1}},
        {PixelFormat::Bgra32, {333, 20}, {100, 60}},   {PixelFormat::Pbgra32, {7, 9}, {3, 21}},
        {PixelFormat::GrayAlpha16, {30, 30}, {11, 11}}};
    for (const auto& [format, from, to] : cases) {
        const std::uint8_t colour[4] = {201, 3, 77, 255};
        auto source = test::MakePicture(
            from, format, [&](std::uint32_t, std::uint32_t, std::uint32_t k) { return colour[k]; });
        const std::uint32_t channels = BitsPerPixel(format) / 8;
        const Bytes out = ScaleAll(std::move(source), to, GetParam());
        ASSERT_EQ(out.size(), std::size_t{to.width} * to.height * channels);
        for (std::size_t i = 0; i < out.size(); ++i) {
            ASSERT_EQ(out[i], colour[i % channels]) << Info(format).name << " at " << i;
        }
    }
}

// A left-to-right ramp reduced by an odd factor stays a ramp in every mode.
TEST_P(EveryMode, KeepsADownscaledGradientMonotonic) {
    auto ramp = Gray(300, 9, [](std::uint32_t x, std::uint32_t) {
        return static_cast<std::uint8_t>(x * 255 / 299);
    });
    const Bytes out = ScaleAll(std::move(ramp), {77, 4}, GetParam());
    ASSERT_EQ(out.size(), 77u * 4u);
    for (std::uint32_t y = 0; y < 4; ++y) {
        for (std::uint32_t x = 1; x < 77; ++x) {
            ASSERT_LE(out[y * 77 + x - 1], out[y * 77 + x]) << x << "," << y;
        }
    }
    EXPECT_LT(out[0], 8);
    EXPECT_GT(out[76], 247);
}

// A streaming decoder, asked in the bands a banded copy uses, is read top to bottom once,
// in chunks, and the result is the same as over a random source.
TEST_P(EveryMode, ReadsASequentialSourceForwardOnlyInChunks) {
    auto value = [](std::uint32_t x, std::uint32_t y, std::uint32_t k) {
        return static_cast<std::uint8_t>((x * 3 + y * 5 + k * 40) % 251);
    };
    const PixelSize from{640, 480};
    for (const PixelSize to : {PixelSize{200, 150}, PixelSize{700, 500}}) {
        test::ReadLog log;
        auto sequential = Scaled(
            std::make_unique<test::ProbeSource>(test::MakePicture(from, PixelFormat::Rgb24, value),
                                                Access::Sequential, &log),
            to, GetParam());
        ASSERT_NE(sequential, nullptr);
        EXPECT_EQ(sequential->GetAccess(), Access::Sequential);
        const Bytes reference =
            ScaleAll(test::MakePicture(from, PixelFormat::Rgb24, value), to, GetParam());
        for (std::int32_t top = 0, band = 0; top < static_cast<std::int32_t>(to.height);
             top += 7, ++band) {
            const std::int32_t rows = std::min(7, static_cast<std::int32_t>(to.height) - top);
            // Bands of other columns must not send the input back to its first row either.
            const PixelRect rect =
                band % 2 == 0 ? PixelRect{0, top, static_cast<std::int32_t>(to.width), rows}
                              : PixelRect{5, top, 9, rows};
            const Bytes part = test::ReadRect(*sequential, rect);
            ASSERT_EQ(part.size(), std::size_t(rect.width) * rect.height * 3);
            for (std::int32_t y = 0; y < rect.height; ++y) {
                ASSERT_TRUE(std::equal(
                    part.begin() + y * rect.width * 3, part.begin() + (y + 1) * rect.width * 3,
                    reference.begin() + ((rect.y + y) * std::int32_t(to.width) + rect.x) * 3))
                    << "row " << rect.y + y;
            }
        }
        EXPECT_EQ(log.backwardReads, 0);
        EXPECT_LE(log.rowsServed, from.height);
        EXPECT_LT(log.mostRows, static_cast<std::int32_t>(from.height) / 4);
    }
}

// Over a random source any rectangle matches the same part of the whole output.
TEST_P(EveryMode, ServesAnyRectangleAsPartOfTheWhole) {
    auto value = [](std::uint32_t x, std::uint32_t y, std::uint32_t k) {
        return static_cast<std::uint8_t>((x * x + y * 7 + k * 60) % 256);
    };
    const PixelSize from{90, 70};
    const PixelSize to{41, 53};
    const Bytes whole =
        ScaleAll(test::MakePicture(from, PixelFormat::Bgra32, value), to, GetParam());
    auto scaled = Scaled(test::MakePicture(from, PixelFormat::Bgra32, value), to, GetParam());
    for (const PixelRect rect : {PixelRect{40, 52, 1, 1}, PixelRect{3, 30, 17, 20},
                                 PixelRect{0, 0, 41, 2}, PixelRect{10, 5, 3, 48}}) {
        const Bytes part = test::ReadRect(*scaled, rect);
        ASSERT_EQ(part.size(), std::size_t(rect.width) * rect.height * 4);
        for (std::int32_t y = 0; y < rect.height; ++y) {
            for (std::int32_t i = 0; i < rect.width * 4; ++i) {
                ASSERT_EQ(part[std::size_t(y * rect.width * 4 + i)],
                          whole[std::size_t((rect.y + y) * 41 * 4 + rect.x * 4 + i)])
                    << rect.x << "," << rect.y << " row " << y;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, EveryMode, ::testing::ValuesIn(kModes),
                         [](const auto& info) { return ModeName(info.param); });

// --- particular modes ----------------------------------------------------------------

// A separable filter in doubles, written from the kernels' definitions: triangle and
// Catmull-Rom cubic, stretched by the reduction factor, centred on (i + 0.5) * scale,
// normalised to sum 1. The scaler's fixed-point passes must land within rounding of it.
double ReferenceKernel(Interpolation mode, double x) {
    x = std::abs(x);
    if (mode == Interpolation::Linear) {
        return std::max(0.0, 1.0 - x);
    }
    if (x < 1.0) {
        return 1.5 * x * x * x - 2.5 * x * x + 1.0;
    }
    return x < 2.0 ? -0.5 * x * x * x + 2.5 * x * x - 4.0 * x + 2.0 : 0.0;
}

std::vector<std::vector<std::pair<int, double>>> ReferenceTaps(int from, int to,
                                                               Interpolation mode) {
    const double scale = double(from) / to;
    const double stretch = std::max(1.0, scale);
    const double radius = (mode == Interpolation::Cubic ? 2.0 : 1.0) * stretch;
    std::vector<std::vector<std::pair<int, double>>> taps(to);
    for (int i = 0; i < to; ++i) {
        const double center = (i + 0.5) * scale;
        double total = 0.0;
        for (int j = 0; j < from; ++j) {
            const double w = ReferenceKernel(mode, (j + 0.5 - center) / stretch);
            if (w != 0.0 && std::abs(j + 0.5 - center) < radius) {
                taps[i].emplace_back(j, w);
                total += w;
            }
        }
        for (auto& tap : taps[i]) {
            tap.second /= total;
        }
    }
    return taps;
}

TEST(Scaler, WidePicturesMatchAFilterComputedInDoubles) {
    // Wide enough rows for the vector passes, odd sizes for their tails.
    const PixelSize from{211, 57};
    std::uint32_t seed = 12345;
    std::vector<std::uint8_t> values(std::size_t{from.width} * from.height * 4);
    for (auto& v : values) {
        seed = seed * 1103515245u + 12345u;
        v = static_cast<std::uint8_t>(seed >> 24);
    }
    for (const auto mode : {Interpolation::Linear, Interpolation::Cubic}) {
        for (const PixelSize to : {PixelSize{150, 40}, PixelSize{97, 13}, PixelSize{300, 90}}) {
            auto picture = test::MakePicture(
                from, PixelFormat::Bgra32, [&](std::uint32_t x, std::uint32_t y, std::uint32_t c) {
                    return values[(std::size_t{y} * from.width + x) * 4 + c];
                });
            const Bytes out = ScaleAll(std::move(picture), to, mode);
            ASSERT_EQ(out.size(), std::size_t{to.width} * to.height * 4);
            const auto horizontal = ReferenceTaps(int(from.width), int(to.width), mode);
            const auto vertical = ReferenceTaps(int(from.height), int(to.height), mode);
            int worst = 0;
            for (std::uint32_t y = 0; y < to.height; ++y) {
                for (std::uint32_t x = 0; x < to.width; ++x) {
                    for (std::uint32_t c = 0; c < 4; ++c) {
                        double sum = 0.0;
                        for (const auto& [row, wy] : vertical[y]) {
                            for (const auto& [column, wx] : horizontal[x]) {
                                sum += wy * wx *
                                       values[(std::size_t(row) * from.width + column) * 4 + c];
                            }
                        }
                        const int expected = int(std::lround(std::clamp(sum, 0.0, 255.0)));
                        const int got = out[(std::size_t{y} * to.width + x) * 4 + c];
                        worst = std::max(worst, std::abs(got - expected));
                    }
                }
            }
            EXPECT_LE(worst, 1) << ModeName(mode) << " to " << to.width << " x " << to.height;
        }
    }
}

TEST(Scaler, HandsBackTheInputAtItsOwnSize) {
    auto picture = Gray(8, 8, [](std::uint32_t, std::uint32_t) -> std::uint8_t { return 0; });
    BitmapSource* raw = picture.get();
    EXPECT_EQ(Scaled(std::move(picture), {8, 8}, Interpolation::Cubic).get(), raw);
    EXPECT_EQ(
        Scaled(test::MakePicture({4, 4}, PixelFormat::Rgb48,
                                 [](std::uint32_t, std::uint32_t, std::uint32_t) { return 0; }),
               {2, 2}, Interpolation::Linear),
        nullptr);
}

TEST(Scaler, NearestNeighbourOnlyCopiesPixels) {
    auto unique = [](std::uint32_t x, std::uint32_t y) {
        return static_cast<std::uint8_t>(y * 16 + x);
    };
    // Three times larger: every pixel becomes a 3 x 3 block of itself.
    const Bytes up = ScaleAll(Gray(5, 4, unique), {15, 12}, Interpolation::NearestNeighbor);
    ASSERT_EQ(up.size(), 180u);
    for (std::uint32_t y = 0; y < 12; ++y) {
        for (std::uint32_t x = 0; x < 15; ++x) {
            ASSERT_EQ(up[y * 15 + x], unique(x / 3, y / 3)) << x << "," << y;
        }
    }
    // Any ratio: nothing but the source's own values, and each row from one source row.
    const Bytes odd = ScaleAll(Gray(13, 11, unique), {6, 17}, Interpolation::NearestNeighbor);
    for (std::uint32_t y = 0; y < 17; ++y) {
        std::set<std::uint32_t> rows;
        for (std::uint32_t x = 0; x < 6; ++x) {
            const std::uint8_t v = odd[y * 6 + x];
            ASSERT_LT(v % 16, 13);
            rows.insert(v / 16);
        }
        EXPECT_EQ(rows.size(), 1u);
    }
}

TEST(Scaler, FantAveragesACheckerToItsMean) {
    auto checker = Gray(2, 2, [](std::uint32_t x, std::uint32_t y) -> std::uint8_t {
        return (x + y) % 2 == 0 ? 0 : 200;
    });
    EXPECT_EQ(ScaleAll(std::move(checker), {1, 1}, Interpolation::Fant), Bytes{100});
}

// Six pixels into four: each output pixel covers one and a half source pixels.
TEST(Scaler, FantWeighsEachPixelByTheAreaItCovers) {
    const std::uint8_t row[6] = {0, 60, 120, 30, 240, 90};
    auto source = Gray(6, 1, [](std::uint32_t x, std::uint32_t) {
        const std::uint8_t values[6] = {0, 60, 120, 30, 240, 90};
        return values[x];
    });
    const Bytes out = ScaleAll(std::move(source), {4, 1}, Interpolation::Fant);
    const double expected[4] = {(row[0] + 0.5 * row[1]) / 1.5, (0.5 * row[1] + row[2]) / 1.5,
                                (row[3] + 0.5 * row[4]) / 1.5, (0.5 * row[4] + row[5]) / 1.5};
    ASSERT_EQ(out.size(), 4u);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(out[i], expected[i], 0.51) << i;
    }
}

TEST(Scaler, EnlargesSmoothly) {
    auto twoPixels =
        Gray(2, 1, [](std::uint32_t x, std::uint32_t) -> std::uint8_t { return x == 0 ? 0 : 255; });
    // Centres at 0.25, 0.75, 1.25, 1.75 source pixels; the ends hold the edge values.
    EXPECT_EQ(ScaleAll(std::move(twoPixels), {4, 1}, Interpolation::Linear),
              (Bytes{0, 64, 191, 255}));

    auto step =
        Gray(4, 4, [](std::uint32_t x, std::uint32_t) -> std::uint8_t { return x < 2 ? 40 : 200; });
    const Bytes cubic = ScaleAll(std::move(step), {16, 16}, Interpolation::Cubic);
    std::set<std::uint8_t> levels(cubic.begin(), cubic.end());
    EXPECT_GT(levels.size(), 4u);  // intermediate values across the step
    for (std::uint32_t y = 0; y < 16; ++y) {
        EXPECT_EQ(cubic[y * 16], cubic[0]);  // every row alike
    }
}

// Cubic ringing at an edge of alpha must not leave a colour above its alpha.
TEST(Scaler, KeepsPremultipliedPixelsValid) {
    auto edge = test::MakePicture({8, 8}, PixelFormat::Pbgra32,
                                  [](std::uint32_t x, std::uint32_t, std::uint32_t k) {
                                      if (x < 4) {
                                          return std::uint8_t{0};
                                      }
                                      return k == 3 ? std::uint8_t{255} : std::uint8_t{250};
                                  });
    const Bytes out = ScaleAll(std::move(edge), {29, 5}, Interpolation::Cubic);
    ASSERT_EQ(out.size(), 29u * 5u * 4u);
    for (std::size_t i = 0; i < out.size(); i += 4) {
        ASSERT_LE(out[i], out[i + 3]) << i / 4;
        ASSERT_LE(out[i + 2], out[i + 3]) << i / 4;
    }
}

// A reduction whose window of source rows would be too large to hold is done in box
// halvings first; the result still follows the picture, and the source is read once, forward.
TEST(Scaler, SplitsAnExtremeReductionIntoSteps) {
    constexpr PixelSize kFrom{40000, 420};
    test::ReadLog log;
    auto ramp = std::make_unique<test::FunctionSource>(
        kFrom, PixelFormat::Gray8, [](std::uint32_t x, std::uint32_t, std::uint32_t) {
            return static_cast<std::uint8_t>(x * 255 / (kFrom.width - 1));
        });
    auto scaled =
        Scaled(std::make_unique<test::ProbeSource>(std::move(ramp), Access::Sequential, &log),
               {40, 2}, Interpolation::Cubic);
    ASSERT_NE(scaled, nullptr);
    const Bytes out = test::ReadAll(*scaled);
    ASSERT_EQ(out.size(), 80u);
    for (std::uint32_t x = 0; x < 40; ++x) {
        const double expected = 255.0 * (x + 0.5) / 40;
        EXPECT_NEAR(out[x], expected, 2.0) << x;
        EXPECT_EQ(out[40 + x], out[x]) << x;
    }
    EXPECT_EQ(log.backwardReads, 0);
    EXPECT_EQ(log.rowsServed, kFrom.height);
}

TEST(Scaler, RefusesAGigapixelRowInsteadOfHoldingIt) {
    auto row = std::make_unique<test::FunctionSource>(
        PixelSize{1u << 30, 1}, PixelFormat::Gray8,
        [](std::uint32_t, std::uint32_t, std::uint32_t) -> std::uint8_t { return 0; });
    EXPECT_EQ(Scaled(std::move(row), {1u << 20, 1}, Interpolation::Fant), nullptr);
}

TEST(Scaler, StartsFromTheCodecsOwnReduction) {
    auto reduced = test::MakePicture({50, 40}, PixelFormat::Rgb24,
                                     [](std::uint32_t, std::uint32_t, std::uint32_t) { return 9; });
    test::VariantRequest request;
    auto frame = std::make_unique<test::VariantFrame>(
        test::MakePicture({200, 160}, PixelFormat::Rgb24,
                          [](std::uint32_t, std::uint32_t, std::uint32_t) { return 1; }),
        std::move(reduced), &request);
    const Bytes out = ScaleAll(std::move(frame), {40, 32}, Interpolation::Fant);
    ASSERT_EQ(out.size(), 40u * 32u * 3u);
    EXPECT_EQ(out.front(), 9);  // scaled from the variant, not from the full picture
    const PixelSize wanted{40, 32};
    EXPECT_EQ(request.minimum, wanted);
    EXPECT_EQ(request.format, PixelFormat::Unknown);
}

}  // namespace
}  // namespace orvanta::imaging

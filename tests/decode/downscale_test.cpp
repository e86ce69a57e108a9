#include "decode/downscale.h"

#include <cmath>

#include <gtest/gtest.h>

#include "decode/output_format.h"

namespace orvanta::decode {
namespace {

using imaging::Interpolation;
using imaging::PixelFormat;
using imaging::PixelSize;

struct DownscaleCase {
    const char* name;
    PixelSize source;
    std::uint32_t setting;
    std::uint32_t bits;
    bool downscale;
    PixelSize result;
    Interpolation interpolation;
};

class Downscale : public testing::TestWithParam<DownscaleCase> {};

TEST_P(Downscale, LowersTheWidthBy16UntilThePictureFits) {
    const DownscaleCase c = GetParam();
    const DownscalePlan plan = PlanDownscale(c.source, c.setting, c.bits);
    EXPECT_EQ(plan.downscale, c.downscale);
    EXPECT_EQ(plan.size, c.result);
    EXPECT_EQ(plan.interpolation, c.interpolation);
    if (plan.downscale) {
        // The first width that fits: 16 pixels more would not.
        const double fitted = double(plan.size.width) * plan.size.height * (c.bits / 8);
        EXPECT_LE(fitted, (c.setting & 0xFFFF) * 1048576.0);
        const double wider = plan.size.width + 16.0;
        const double widerHeight = std::round(wider * c.source.height / c.source.width);
        EXPECT_GT(wider * widerHeight * (c.bits / 8), (c.setting & 0xFFFF) * 1048576.0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Settings, Downscale,
    testing::Values(
        DownscaleCase{"Off", {6000, 4000}, 0, 32, false, {6000, 4000}, Interpolation::Linear},
        DownscaleCase{"Fits96", {6000, 4000}, 96, 32, false, {6000, 4000}, Interpolation::Linear},
        DownscaleCase{
            "Landscape16", {6000, 4000}, 16, 32, true, {2496, 1664}, Interpolation::Linear},
        DownscaleCase{
            "Portrait16", {4000, 6000}, 16, 32, true, {1664, 2496}, Interpolation::Linear},
        DownscaleCase{"Better16IsCubic",
                      {6000, 4000},
                      0x80000010u,
                      32,
                      true,
                      {2496, 1664},
                      Interpolation::Cubic},
        DownscaleCase{"Better8At24BitsIsFant",
                      {6000, 4000},
                      0x80000008u,
                      24,
                      true,
                      {2048, 1365},
                      Interpolation::Fant},
        DownscaleCase{"Above96IsNearest",
                      {20000, 20000},
                      128,
                      32,
                      true,
                      {5792, 5792},
                      Interpolation::NearestNeighbor}),
    [](const testing::TestParamInfo<DownscaleCase>& info) { return info.param.name; });

TEST(Downscale, FilterBoundaries) {
    EXPECT_EQ(DownscaleInterpolation(96), Interpolation::Linear);
    EXPECT_EQ(DownscaleInterpolation(112), Interpolation::NearestNeighbor);
    EXPECT_EQ(DownscaleInterpolation(0x8000000Bu), Interpolation::Fant);
    EXPECT_EQ(DownscaleInterpolation(0x8000000Cu), Interpolation::Cubic);
}

TEST(OutputFormat, BackBufferAndScreenTables) {
    EXPECT_EQ(OutputFormatForBackBuffer(BackBufferFormat::None), PixelFormat::Pbgra32);
    EXPECT_EQ(OutputFormatForBackBuffer(BackBufferFormat::R8G8B8), PixelFormat::Bgr24);
    EXPECT_EQ(OutputFormatForBackBuffer(BackBufferFormat::A8R8G8B8), PixelFormat::Bgra32);
    EXPECT_EQ(OutputFormatForBackBuffer(BackBufferFormat::R5G6B5), PixelFormat::Bgr565);
    EXPECT_EQ(OutputFormatForBackBuffer(BackBufferFormat::X1R5G5B5), PixelFormat::Bgr555);
    EXPECT_EQ(OutputFormatForBackBuffer(static_cast<BackBufferFormat>(22)), PixelFormat::Pbgra32);

    EXPECT_EQ(OutputFormatForScreen({16, 1, false, 6}), PixelFormat::Bgr565);
    EXPECT_EQ(OutputFormatForScreen({16, 1, false, 5}), PixelFormat::Bgr555);
    EXPECT_EQ(OutputFormatForScreen({16, 1, true, 6}), PixelFormat::Pbgra32);
    EXPECT_EQ(OutputFormatForScreen({24, 1, false, 0}), PixelFormat::Bgr24);
    EXPECT_EQ(OutputFormatForScreen({32, 1, false, 0}), PixelFormat::Pbgra32);
    EXPECT_EQ(OutputFormatForScreen({8, 1, true, 0}), PixelFormat::Pbgra32);
}

}  // namespace
}  // namespace orvanta::decode

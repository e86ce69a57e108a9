#include "decode/downscale.h"

#include <algorithm>
#include <cmath>

namespace orvanta::decode {

namespace {

constexpr std::uint64_t kMegabyte = 1u << 20;
constexpr std::uint32_t kWidthStep = 16;

}  // namespace

imaging::Interpolation DownscaleInterpolation(std::uint32_t setting) {
    const std::uint32_t limit = setting & kDownscaleLimitMask;
    if ((setting & kDownscaleBetterFilter) != 0) {
        return limit < 12 ? imaging::Interpolation::Fant : imaging::Interpolation::Cubic;
    }
    return limit <= 96 ? imaging::Interpolation::Linear : imaging::Interpolation::NearestNeighbor;
}

DownscalePlan PlanDownscale(imaging::PixelSize size, std::uint32_t setting,
                            std::uint32_t outputBitsPerPixel) {
    DownscalePlan plan{false, size, DownscaleInterpolation(setting)};
    const std::uint64_t limit = (setting & kDownscaleLimitMask) * kMegabyte;
    const std::uint64_t bytesPerPixel = outputBitsPerPixel / 8;
    const auto fits = [&](std::uint64_t w, std::uint64_t h) {
        return w * h * bytesPerPixel <= limit;
    };
    if (limit == 0 || size.width == 0 || fits(size.width, size.height)) {
        return plan;
    }
    double ratio = double(size.width) / double(size.height == 0 ? 1 : size.height);
    if (ratio == 0) {
        ratio = 1;
    }
    const auto heightFor = [ratio](std::uint32_t w) {
        return static_cast<std::uint32_t>(std::max<long long>(1, std::llround(w / ratio)));
    };
    std::uint32_t width = size.width;
    std::uint32_t height = heightFor(width);
    // The last step stops at 16 pixels of width, whatever the limit says.
    while (!fits(width, height) && width > kWidthStep) {
        width -= kWidthStep;
        height = heightFor(width);
    }
    plan.downscale = true;
    plan.size = {width, height};
    return plan;
}

}  // namespace orvanta::decode

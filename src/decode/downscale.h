// How far a very large picture is shrunk when it is decoded (DownscaleLargeImages): the
// low 16 bits of the setting are a limit in megabytes of the decoded picture, bit 31 asks
// for the better filter. The width is lowered in steps of 16 pixels, the height following
// the picture's shape, until the picture in the output format fits the limit. Pure
// functions; thread-safe.
#pragma once

#include <cstdint>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/scaler.h"

namespace orvanta::decode {

struct DownscalePlan {
    bool downscale = false;
    imaging::PixelSize size;  // the size to scale to; the source size when not downscaling
    imaging::Interpolation interpolation = imaging::Interpolation::Linear;
};

inline constexpr std::uint32_t kDownscaleBetterFilter = 0x80000000u;
inline constexpr std::uint32_t kDownscaleLimitMask = 0xFFFFu;

// The filter for a setting: linear up to 96 MB and nearest neighbour above; with bit 31,
// Fant below 12 MB and cubic from there.
imaging::Interpolation DownscaleInterpolation(std::uint32_t setting);

// The plan for a source of `size` decoded at `outputBitsPerPixel`; no downscale when the
// setting is 0 or the picture already fits.
DownscalePlan PlanDownscale(imaging::PixelSize size, std::uint32_t setting,
                            std::uint32_t outputBitsPerPixel);

}  // namespace orvanta::decode

// The histogram of 32-bit B, G, R, x pixels counted the plain way, one increment per pixel
// and channel, with each channel's maximum over bins 1..254 taken and bins 0 and 255
// clamped to it: the reference the counting loops and the decode pipeline are held to.
// Single-thread helpers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "metadata/picture_metadata.h"

namespace orvanta::test {

metadata::HistogramBlock CountBgrxPlainly(const std::byte* pixels, std::size_t stride,
                                          std::uint32_t width, std::uint32_t height);

// Fails the calling test where the two blocks differ.
void ExpectSameHistogram(const metadata::HistogramBlock& actual,
                         const metadata::HistogramBlock& expected);

}  // namespace orvanta::test

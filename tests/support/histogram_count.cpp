#include "support/histogram_count.h"

#include <algorithm>
#include <array>

#include <gtest/gtest.h>

namespace orvanta::test {

metadata::HistogramBlock CountBgrxPlainly(const std::byte* pixels, std::size_t stride,
                                          std::uint32_t width, std::uint32_t height) {
    metadata::HistogramBlock block;
    for (std::uint32_t y = 0; y < height; ++y) {
        const auto* p = reinterpret_cast<const std::uint8_t*>(pixels + y * stride);
        for (std::uint32_t x = 0; x < width; ++x, p += 4) {
            ++block.blue[p[0]];
            ++block.green[p[1]];
            ++block.red[p[2]];
        }
    }
    std::array<std::uint32_t, 256>* channels[3] = {&block.red, &block.green, &block.blue};
    for (int c = 0; c < 3; ++c) {
        auto& bins = *channels[c];
        const std::uint32_t maximum = *std::max_element(bins.begin() + 1, bins.end() - 1);
        block.maxima[c] = maximum;
        bins[0] = std::min(bins[0], maximum);
        bins[255] = std::min(bins[255], maximum);
    }
    return block;
}

void ExpectSameHistogram(const metadata::HistogramBlock& actual,
                         const metadata::HistogramBlock& expected) {
    EXPECT_EQ(actual.red, expected.red);
    EXPECT_EQ(actual.green, expected.green);
    EXPECT_EQ(actual.blue, expected.blue);
    EXPECT_EQ(actual.maxima, expected.maxima);
}

}  // namespace orvanta::test

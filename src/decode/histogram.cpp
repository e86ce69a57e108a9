#include "decode/histogram.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace orvanta::decode {

namespace {

using imaging::PixelFormat;

// Pixel i goes to sub-histogram i % kWays: neighbouring pixels of a smooth picture often
// share a value, and incrementing one counter again before the previous increment has left
// the store buffer stalls on store forwarding. Four ways keep two equal neighbours a few
// dozen instructions apart; the sub-histograms (12 KB) stay in the first-level cache.
constexpr int kWays = 4;
using SubHistograms = std::uint32_t[kWays][3][256];

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
// One version per processor generation (BMI2 shifts and wider decoding in the later ones),
// picked once by the loader through an indirect function.
#define ORVANTA_COUNTING_VERSIONS \
    __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "arch=x86-64-v2", "default")))
#else
#define ORVANTA_COUNTING_VERSIONS
#endif

ORVANTA_COUNTING_VERSIONS
void CountBgrxRow(const std::uint8_t* p, std::size_t width, SubHistograms& h) {
    std::size_t i = 0;
    for (; i + 4 <= width; i += 4, p += 16) {
        std::uint64_t a;
        std::uint64_t b;
        std::memcpy(&a, p, 8);
        std::memcpy(&b, p + 8, 8);
        ++h[0][0][a & 0xFF];
        ++h[0][1][(a >> 8) & 0xFF];
        ++h[0][2][(a >> 16) & 0xFF];
        ++h[1][0][(a >> 32) & 0xFF];
        ++h[1][1][(a >> 40) & 0xFF];
        ++h[1][2][(a >> 48) & 0xFF];
        ++h[2][0][b & 0xFF];
        ++h[2][1][(b >> 8) & 0xFF];
        ++h[2][2][(b >> 16) & 0xFF];
        ++h[3][0][(b >> 32) & 0xFF];
        ++h[3][1][(b >> 40) & 0xFF];
        ++h[3][2][(b >> 48) & 0xFF];
    }
    for (; i < width; ++i, p += 4) {
        ++h[0][0][p[0]];
        ++h[0][1][p[1]];
        ++h[0][2][p[2]];
    }
}

// 16-bit samples land in the bin of the 8-bit value the format converter makes of them
// (round(v / 257)), so the counts describe the picture as it is shown.
void CountRgb48Row(const std::uint8_t* p, std::size_t width, SubHistograms& h) {
    for (std::size_t i = 0; i < width; ++i, p += 6) {
        std::uint16_t rgb[3];
        std::memcpy(rgb, p, 6);
        const int way = static_cast<int>(i % kWays);
        ++h[way][2][(rgb[0] + 128u) / 257u];
        ++h[way][1][(rgb[1] + 128u) / 257u];
        ++h[way][0][(rgb[2] + 128u) / 257u];
    }
}

// Above this much of a sub-histogram's range a band is split, so no counter can wrap:
// one way sees at most a quarter of the pixels of a chunk, far below 2^32.
constexpr std::uint64_t kPixelsPerChunk = std::uint64_t{1} << 31;

}  // namespace

bool IsCountedFormat(PixelFormat format) {
    return format == PixelFormat::Bgr32 || format == PixelFormat::Pbgra32 ||
           format == PixelFormat::Rgb48;
}

void CountRows(PixelFormat format, const std::byte* rows, std::size_t stride, std::uint32_t width,
               std::uint32_t height, HistogramBlock& block) {
    if (!IsCountedFormat(format) || rows == nullptr || width == 0 || height == 0) {
        return;
    }
    const auto row = format == PixelFormat::Rgb48 ? CountRgb48Row : CountBgrxRow;
    const std::uint32_t rowsPerChunk =
        static_cast<std::uint32_t>(std::max<std::uint64_t>(1, kPixelsPerChunk / width));
    for (std::uint32_t y0 = 0; y0 < height; y0 += rowsPerChunk) {
        const std::uint32_t y1 = height - y0 > rowsPerChunk ? y0 + rowsPerChunk : height;
        alignas(64) SubHistograms h = {};
        for (std::uint32_t y = y0; y < y1; ++y) {
            row(reinterpret_cast<const std::uint8_t*>(rows) + y * stride, width, h);
        }
        std::array<std::uint32_t, 256>* const channels[3] = {&block.blue, &block.green, &block.red};
        for (int c = 0; c < 3; ++c) {
            auto& total = *channels[c];
            for (int v = 0; v < 256; ++v) {
                std::uint32_t sum = 0;
                for (int w = 0; w < kWays; ++w) {
                    sum += h[w][c][v];
                }
                total[v] += sum;
            }
        }
    }
}

void FinishHistogram(HistogramBlock& block) {
    std::array<std::uint32_t, 256>* const channels[3] = {&block.red, &block.green, &block.blue};
    for (int c = 0; c < 3; ++c) {
        auto& counts = *channels[c];
        const std::uint32_t maximum = *std::max_element(counts.begin() + 1, counts.end() - 1);
        block.maxima[c] = maximum;
        counts[0] = std::min(counts[0], maximum);
        counts[255] = std::min(counts[255], maximum);
    }
}

std::string_view CountingVersion() {
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("x86-64-v4")) {
        return "x86-64-v4";
    }
    if (__builtin_cpu_supports("x86-64-v3")) {
        return "x86-64-v3";
    }
    if (__builtin_cpu_supports("x86-64-v2")) {
        return "x86-64-v2";
    }
#endif
    return "baseline";
}

}  // namespace orvanta::decode

#include "decode/histogram.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace orvanta::decode {

namespace {

using imaging::PixelFormat;

// Blue and green are counted together: the low 16 bits of a pixel index one table of
// 65,536 pairs, so each pixel costs two increments instead of three, and the pairs are
// summed into the two channels once, when the counts are handed over. Neighbouring pixels of
// a photograph rarely share both values, so the pair table needs no second copy to keep
// increments of one counter apart; red does (neighbours often share one value, and
// incrementing a counter again before its previous increment has left the store buffer
// stalls on store forwarding), so it has four sub-histograms, pixel i going to i % 4. The
// pair table (256 KB) lives in the second-level cache; the pairs a picture uses cluster
// along its colours, so most increments hit the first level.
constexpr int kRedWays = 4;

// Above this many pixels the counters are summed into the channels and restarted, so no
// counter can wrap.
constexpr std::uint64_t kPixelsPerChunk = std::uint64_t{1} << 31;

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
// One version per processor generation (BMI2 shifts and wider decoding in the later ones),
// picked once by the loader through an indirect function.
#define ORVANTA_COUNTING_VERSIONS \
    __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "arch=x86-64-v2", "default")))
#else
#define ORVANTA_COUNTING_VERSIONS
#endif

}  // namespace

struct HistogramCounter::Tables {
    std::uint32_t pairs[65536];  // [green << 8 | blue]
    std::uint32_t red[kRedWays][256];
};

namespace {

ORVANTA_COUNTING_VERSIONS
void CountBgrxRow(const std::uint8_t* p, std::size_t width, std::uint32_t* pairs,
                  std::uint32_t (*red)[256]) {
    std::size_t i = 0;
    for (; i + 4 <= width; i += 4, p += 16) {
        std::uint64_t a;
        std::uint64_t b;
        std::memcpy(&a, p, 8);
        std::memcpy(&b, p + 8, 8);
        ++pairs[a & 0xFFFF];
        ++red[0][(a >> 16) & 0xFF];
        ++pairs[(a >> 32) & 0xFFFF];
        ++red[1][(a >> 48) & 0xFF];
        ++pairs[b & 0xFFFF];
        ++red[2][(b >> 16) & 0xFF];
        ++pairs[(b >> 32) & 0xFFFF];
        ++red[3][(b >> 48) & 0xFF];
    }
    for (; i < width; ++i, p += 4) {
        ++pairs[p[0] | p[1] << 8];
        ++red[0][p[2]];
    }
}

// 16-bit samples land in the bin of the 8-bit value the format converter makes of them
// (round(v / 257)), so the counts describe the picture as it is shown.
void CountRgb48Row(const std::uint8_t* p, std::size_t width, std::uint32_t* pairs,
                   std::uint32_t (*red)[256]) {
    for (std::size_t i = 0; i < width; ++i, p += 6) {
        std::uint16_t rgb[3];
        std::memcpy(rgb, p, 6);
        ++red[i % kRedWays][(rgb[0] + 128u) / 257u];
        ++pairs[(rgb[2] + 128u) / 257u | (rgb[1] + 128u) / 257u << 8];
    }
}

}  // namespace

bool IsCountedFormat(PixelFormat format) {
    return format == PixelFormat::Bgr32 || format == PixelFormat::Pbgra32 ||
           format == PixelFormat::Rgb48;
}

HistogramCounter::HistogramCounter() = default;
HistogramCounter::~HistogramCounter() = default;
HistogramCounter::HistogramCounter(HistogramCounter&&) noexcept = default;
HistogramCounter& HistogramCounter::operator=(HistogramCounter&&) noexcept = default;

void HistogramCounter::Add(PixelFormat format, const std::byte* rows, std::size_t stride,
                           std::uint32_t width, std::uint32_t height) {
    if (!IsCountedFormat(format) || rows == nullptr || width == 0 || height == 0) {
        return;
    }
    if (!tables_) {
        tables_ = std::make_unique<Tables>();  // zeroed
    }
    const auto row = format == PixelFormat::Rgb48 ? CountRgb48Row : CountBgrxRow;
    const std::uint32_t rowsPerChunk =
        static_cast<std::uint32_t>(std::max<std::uint64_t>(1, kPixelsPerChunk / width));
    for (std::uint32_t y0 = 0; y0 < height; y0 += rowsPerChunk) {
        const std::uint32_t y1 = height - y0 > rowsPerChunk ? y0 + rowsPerChunk : height;
        const std::uint64_t pixels = std::uint64_t{y1 - y0} * width;
        if (pending_ + pixels > kPixelsPerChunk) {
            AddTo(overflow_);
        }
        pending_ += pixels;
        for (std::uint32_t y = y0; y < y1; ++y) {
            row(reinterpret_cast<const std::uint8_t*>(rows) + y * stride, width, tables_->pairs,
                tables_->red);
        }
    }
}

void HistogramCounter::AddTo(HistogramBlock& block) {
    if (&block != &overflow_) {
        AddTo(overflow_);
        for (int v = 0; v < 256; ++v) {
            block.red[v] += std::exchange(overflow_.red[v], 0);
            block.green[v] += std::exchange(overflow_.green[v], 0);
            block.blue[v] += std::exchange(overflow_.blue[v], 0);
        }
        return;
    }
    if (pending_ == 0) {
        return;
    }
    Tables& t = *tables_;
    for (int g = 0; g < 256; ++g) {
        const std::uint32_t* pair = t.pairs + g * 256;
        std::uint32_t green = 0;
        for (int b = 0; b < 256; ++b) {
            green += pair[b];
            block.blue[b] += pair[b];
        }
        block.green[g] += green;
    }
    for (int v = 0; v < 256; ++v) {
        std::uint32_t red = 0;
        for (int w = 0; w < kRedWays; ++w) {
            red += t.red[w][v];
        }
        block.red[v] += red;
    }
    std::memset(&t, 0, sizeof t);
    pending_ = 0;
}

void CountRows(PixelFormat format, const std::byte* rows, std::size_t stride, std::uint32_t width,
               std::uint32_t height, HistogramBlock& block) {
    HistogramCounter counter;
    counter.Add(format, rows, stride, width, height);
    counter.AddTo(block);
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

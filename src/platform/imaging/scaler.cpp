#include "platform/imaging/scaler.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "platform/imaging/decoder.h"

namespace orvanta::imaging {

namespace {

// Weights sum to 1 << 14 exactly, so a constant picture stays constant. The vertical pass
// runs first (its loops are long and contiguous, so they vectorise) and keeps 6 fractional
// bits in 16-bit samples: with cubic ringing they stay within +-32640, and the horizontal
// sums within 32 bits.
constexpr int kWeightBits = 14;
constexpr std::int64_t kWeightOne = std::int64_t{1} << kWeightBits;
constexpr int kFractionBits = 6;
constexpr int kFirstShift = kWeightBits - kFractionBits;
constexpr int kSecondShift = kWeightBits + kFractionBits;
// Source rows are pulled in chunks of about this many bytes.
constexpr std::size_t kChunkBytes = std::size_t{128} << 10;
// The most a ring of source rows may take before a reduction is split into steps, and the
// most scratch (ring and weight tables) a stage may have at all.
constexpr std::uint64_t kMaxRingBytes = std::uint64_t{16} << 20;
constexpr std::uint64_t kMaxScratchBytes = std::uint64_t{256} << 20;
// Inner loops of a fixed count, which g++ -O2 vectorises.

// One axis: output position i reads source positions [first[i], first[i] + count) with
// weights[i * count + k]. Every position has the same count (padded with zeros), and both
// ends of the windows never go down as i goes up.
struct Taps {
    std::vector<std::int32_t> first;
    std::vector<std::int16_t> weights;
    std::int32_t count = 0;
};

double Radius(Interpolation mode) {
    return mode == Interpolation::Cubic ? 2.0 : 1.0;
}

double Kernel(Interpolation mode, double x) {
    x = std::abs(x);
    if (mode == Interpolation::Linear) {
        return x < 1.0 ? 1.0 - x : 0.0;
    }
    // Cubic convolution with a = -0.5 (Catmull-Rom): sharp, no visible ringing in photos.
    constexpr double a = -0.5;
    if (x < 1.0) {
        return ((a + 2.0) * x - (a + 3.0)) * x * x + 1.0;
    }
    if (x < 2.0) {
        return ((a * x - 5.0 * a) * x + 8.0 * a) * x - 4.0 * a;
    }
    return 0.0;
}

// Turns real weights (any positive total) into fixed point through their running sums:
// the total is exact and no single weight absorbs the rounding of the others.
void Quantize(const std::vector<double>& real, std::vector<std::int16_t>& fixed) {
    double total = 0.0;
    for (const double w : real) {
        total += w;
    }
    fixed.resize(real.size());
    double running = 0.0;
    std::int64_t previous = 0;
    for (std::size_t k = 0; k < real.size(); ++k) {
        running += real[k];
        const std::int64_t next =
            k + 1 == real.size() ? kWeightOne
                                 : std::llround(running / total * static_cast<double>(kWeightOne));
        fixed[k] = static_cast<std::int16_t>(next - previous);
        previous = next;
    }
}

// The window and weights of one output position, before padding.
void PositionTaps(std::uint32_t source, std::uint32_t target, Interpolation mode, std::uint32_t i,
                  std::int64_t& first, std::vector<double>& real) {
    real.clear();
    const std::uint64_t s = source;
    const std::uint64_t d = target;
    if (mode == Interpolation::NearestNeighbor) {
        first = static_cast<std::int64_t>(
            std::min<std::uint64_t>((2 * std::uint64_t{i} + 1) * s / (2 * d), s - 1));
        real.push_back(1.0);
        return;
    }
    if (mode == Interpolation::Fant) {
        // Output pixel i covers [i * s, (i + 1) * s) in units of 1/d source pixels; each
        // source pixel weighs by the part of it that lies inside, counted exactly.
        const std::uint64_t lo = i * s;
        const std::uint64_t hi = lo + s;
        first = static_cast<std::int64_t>(lo / d);
        for (std::uint64_t j = lo / d; j * d < hi; ++j) {
            real.push_back(static_cast<double>(std::min(hi, (j + 1) * d) - std::max(lo, j * d)));
        }
        return;
    }
    const double scale = static_cast<double>(s) / static_cast<double>(d);
    const double stretch = std::max(1.0, scale);
    const double support = Radius(mode) * stretch;
    const double center = (i + 0.5) * scale;
    const auto lo = std::max<std::int64_t>(
        0, static_cast<std::int64_t>(std::floor(center - support - 0.5)) + 1);
    const auto hi =
        std::min<std::int64_t>(static_cast<std::int64_t>(s) - 1,
                               static_cast<std::int64_t>(std::ceil(center + support - 0.5)) - 1);
    double total = 0.0;
    for (std::int64_t j = lo; j <= hi; ++j) {
        real.push_back(Kernel(mode, (static_cast<double>(j) + 0.5 - center) / stretch));
        total += real.back();
    }
    first = lo;
    if (real.empty() || total <= 0.0) {
        first = std::clamp<std::int64_t>(static_cast<std::int64_t>(center), 0,
                                         static_cast<std::int64_t>(s) - 1);
        real.assign(1, 1.0);
    }
}

Taps MakeTaps(std::uint32_t source, std::uint32_t target, Interpolation mode) {
    std::vector<std::int32_t> first(target);
    std::vector<std::int32_t> count(target);
    std::vector<std::size_t> offset(target);
    std::vector<std::int16_t> packed;
    std::vector<double> real;
    std::vector<std::int16_t> fixed;
    std::int32_t widest = 1;
    for (std::uint32_t i = 0; i < target; ++i) {
        std::int64_t start = 0;
        PositionTaps(source, target, mode, i, start, real);
        Quantize(real, fixed);
        // Weights that rounded to nothing at the end need no source row. Those at the
        // start stay: dropping them could move a window's start back behind its
        // predecessor's, and a sequential input must only be asked forward.
        std::size_t end = fixed.size();
        while (end > 1 && fixed[end - 1] == 0) {
            --end;
        }
        first[i] = static_cast<std::int32_t>(start);
        count[i] = static_cast<std::int32_t>(end);
        offset[i] = packed.size();
        packed.insert(packed.end(), fixed.begin(),
                      fixed.begin() + static_cast<std::ptrdiff_t>(end));
        widest = std::max(widest, count[i]);
    }
    // Pad every window to the widest, shifting those at the far edge back inside.
    Taps taps;
    taps.count = widest;
    taps.first.resize(target);
    taps.weights.assign(static_cast<std::size_t>(target) * static_cast<std::size_t>(widest), 0);
    const auto last = static_cast<std::int32_t>(source) - widest;
    for (std::uint32_t i = 0; i < target; ++i) {
        const std::int32_t start = std::min(first[i], last);
        taps.first[i] = start;
        std::copy_n(packed.begin() + static_cast<std::ptrdiff_t>(offset[i]), count[i],
                    taps.weights.begin() +
                        static_cast<std::ptrdiff_t>(static_cast<std::size_t>(i) * widest +
                                                    static_cast<std::size_t>(first[i] - start)));
    }
    return taps;
}

std::uint32_t Channels(PixelFormat format) {
    switch (format) {
        case PixelFormat::Gray8:
            return 1;
        case PixelFormat::GrayAlpha16:
            return 2;
        case PixelFormat::Rgb24:
        case PixelFormat::Bgr24:
            return 3;
        case PixelFormat::Rgba32:
        case PixelFormat::Bgra32:
        case PixelFormat::Pbgra32:
        case PixelFormat::Bgr32:
        case PixelFormat::Cmyk32:
            return 4;
        default:
            return 0;
    }
}

// The vertical pass: samples [begin, end) of a row combined from `count` source rows, into
// 16-bit samples with kFractionBits fractional bits. The hottest loop of a reduction.
void CombineRows(const std::uint8_t* const* rows, const std::int16_t* weights, std::size_t count,
                 std::size_t begin, std::size_t end, std::int16_t* __restrict mid) {
    constexpr std::int32_t kHalf = 1 << (kFirstShift - 1);
    std::size_t e = begin;
#if defined(__SSE2__)
    // Sixteen samples at a time, two source rows per pmaddwd: exact in integers, so the
    // same sums as the loop below.
    const __m128i zero = _mm_setzero_si128();
    for (; e + 16 <= end; e += 16) {
        __m128i acc[4] = {_mm_set1_epi32(kHalf), _mm_set1_epi32(kHalf), _mm_set1_epi32(kHalf),
                          _mm_set1_epi32(kHalf)};
        for (std::size_t t = 0; t < count; t += 2) {
            const bool pair = t + 1 < count;
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[t] + e));
            const __m128i b =
                pair ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[t + 1] + e)) : zero;
            const __m128i w = _mm_set1_epi32(
                static_cast<std::uint16_t>(weights[t]) |
                (pair ? static_cast<std::uint32_t>(static_cast<std::uint16_t>(weights[t + 1])) << 16
                      : 0u));
            const __m128i aLow = _mm_unpacklo_epi8(a, zero);
            const __m128i bLow = _mm_unpacklo_epi8(b, zero);
            const __m128i aHigh = _mm_unpackhi_epi8(a, zero);
            const __m128i bHigh = _mm_unpackhi_epi8(b, zero);
            acc[0] = _mm_add_epi32(acc[0], _mm_madd_epi16(_mm_unpacklo_epi16(aLow, bLow), w));
            acc[1] = _mm_add_epi32(acc[1], _mm_madd_epi16(_mm_unpackhi_epi16(aLow, bLow), w));
            acc[2] = _mm_add_epi32(acc[2], _mm_madd_epi16(_mm_unpacklo_epi16(aHigh, bHigh), w));
            acc[3] = _mm_add_epi32(acc[3], _mm_madd_epi16(_mm_unpackhi_epi16(aHigh, bHigh), w));
        }
        const __m128i low = _mm_packs_epi32(_mm_srai_epi32(acc[0], kFirstShift),
                                            _mm_srai_epi32(acc[1], kFirstShift));
        const __m128i high = _mm_packs_epi32(_mm_srai_epi32(acc[2], kFirstShift),
                                             _mm_srai_epi32(acc[3], kFirstShift));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(mid + e), low);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(mid + e + 8), high);
    }
#endif
    for (; e < end; ++e) {
        std::int32_t acc = kHalf;
        for (std::size_t t = 0; t < count; ++t) {
            acc += weights[t] * rows[t][e];
        }
        mid[e] = static_cast<std::int16_t>(acc >> kFirstShift);
    }
}

// Premultiplied pixels keep every colour at or below alpha; written so that g++ makes
// it one vector min per pixel.
void ClampToAlpha(std::uint8_t* pixels, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t p;
        std::memcpy(&p, pixels + i * 4, 4);
        const std::uint32_t a = p >> 24;
        const std::uint32_t b = std::min(p & 0xFF, a);
        const std::uint32_t g = std::min((p >> 8) & 0xFF, a);
        const std::uint32_t r = std::min((p >> 16) & 0xFF, a);
        p = b | g << 8 | r << 16 | a << 24;
        std::memcpy(pixels + i * 4, &p, 4);
    }
}

// The horizontal pass: output columns [firstColumn, firstColumn + columns) from a combined
// row whose first sample is source column sourceX.
template <std::uint32_t kChannels>
void FilterColumns(const std::int16_t* mid, std::uint8_t* dst, const Taps& taps,
                   std::int32_t firstColumn, std::int32_t columns, std::int32_t sourceX) {
    constexpr std::int32_t kHalf = 1 << (kSecondShift - 1);
    const auto count = static_cast<std::size_t>(taps.count);
    for (std::int32_t j = 0; j < columns; ++j) {
        const auto column = static_cast<std::size_t>(firstColumn + j);
        const std::int16_t* weights = taps.weights.data() + column * count;
        const std::int16_t* s =
            mid + static_cast<std::size_t>(taps.first[column] - sourceX) * kChannels;
        std::int32_t acc[kChannels];
#pragma GCC unroll 4
        for (std::uint32_t c = 0; c < kChannels; ++c) {
            acc[c] = kHalf;
        }
        for (std::size_t k = 0; k < count; ++k) {
            const std::int32_t w = weights[k];
#pragma GCC unroll 4
            for (std::uint32_t c = 0; c < kChannels; ++c) {
                acc[c] += w * s[k * kChannels + c];
            }
        }
        std::uint8_t* d = dst + static_cast<std::size_t>(j) * kChannels;
#pragma GCC unroll 4
        for (std::uint32_t c = 0; c < kChannels; ++c) {
            d[c] = static_cast<std::uint8_t>(std::clamp(acc[c] >> kSecondShift, 0, 255));
        }
    }
}

#if defined(__SSE2__)
// Four channels at once with pmaddwd: two taps of all four channels in one multiply-add,
// exact in integers, so the result is the channel-by-channel loop's to the bit. Combined
// samples stay within 16 bits (255 << kFractionBits plus the lobes) and weights within 15.
template <>
void FilterColumns<4>(const std::int16_t* mid, std::uint8_t* dst, const Taps& taps,
                      std::int32_t firstColumn, std::int32_t columns, std::int32_t sourceX) {
    const auto count = static_cast<std::size_t>(taps.count);
    const __m128i half = _mm_set1_epi32(1 << (kSecondShift - 1));
    for (std::int32_t j = 0; j < columns; ++j) {
        const auto column = static_cast<std::size_t>(firstColumn + j);
        const std::int16_t* w = taps.weights.data() + column * count;
        const std::int16_t* s = mid + static_cast<std::size_t>(taps.first[column] - sourceX) * 4;
        __m128i acc = half;
        std::size_t k = 0;
        for (; k + 1 < count; k += 2) {
            // [p0 c0..c3, p1 c0..c3] into [p0c0, p1c0, p0c1, p1c1, ...] against [w0, w1].
            const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k * 4));
            const __m128i paired = _mm_unpacklo_epi16(pixels, _mm_unpackhi_epi64(pixels, pixels));
            const __m128i weights = _mm_set1_epi32(static_cast<std::uint16_t>(w[k]) |
                                                   static_cast<std::uint16_t>(w[k + 1]) << 16);
            acc = _mm_add_epi32(acc, _mm_madd_epi16(paired, weights));
        }
        if (k < count) {
            const __m128i pixel = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + k * 4));
            const __m128i paired = _mm_unpacklo_epi16(pixel, _mm_setzero_si128());
            const __m128i weights = _mm_set1_epi32(static_cast<std::uint16_t>(w[k]));
            acc = _mm_add_epi32(acc, _mm_madd_epi16(paired, weights));
        }
        acc = _mm_srai_epi32(acc, kSecondShift);
        const __m128i words = _mm_packs_epi32(acc, acc);
        const __m128i bytes = _mm_packus_epi16(words, words);  // clamps to 0..255
        const std::uint32_t pixel = static_cast<std::uint32_t>(_mm_cvtsi128_si32(bytes));
        std::memcpy(dst + static_cast<std::size_t>(j) * 4, &pixel, 4);
    }
}
#endif

class Scaler final : public BitmapSource {
public:
    Scaler(std::unique_ptr<BitmapSource> input, PixelSize size, Taps horizontal, Taps vertical)
        : BitmapSource(size, input->Format(), input->GetAccess()),
          input_(std::move(input)),
          channels_(Channels(Format())),
          horizontal_(std::move(horizontal)),
          vertical_(std::move(vertical)),
          rows_(static_cast<std::size_t>(vertical_.count)) {}

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        try {
            return Scale(rect, stride, out);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    Result Scale(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
        // Over a sequential input the ring always holds whole rows: a later request for
        // other columns must not send the input back to its first row.
        const bool wholeRows = GetAccess() == Access::Sequential;
        const std::int32_t x = wholeRows ? 0 : rect.x;
        const std::int32_t width = wholeRows ? static_cast<std::int32_t>(Size().width) : rect.width;
        if (x != ringX_ || width != ringWidth_) {
            SetColumns(x, width);
        }
        // For each output row, where the run of source rows that the band needs without a
        // gap ends: rows are pulled up to there and no further.
        const auto rows = static_cast<std::size_t>(rect.height);
        runEnd_.resize(rows);
        for (std::size_t i = rows; i-- > 0;) {
            const auto y = static_cast<std::size_t>(rect.y) + i;
            const std::int32_t end = vertical_.first[y] + vertical_.count;
            runEnd_[i] =
                i + 1 < rows && vertical_.first[y + 1] <= end ? std::max(end, runEnd_[i + 1]) : end;
        }
        // The combined samples the request's columns read.
        const auto lastColumn = static_cast<std::size_t>(rect.x + rect.width - 1);
        const std::size_t begin =
            static_cast<std::size_t>(horizontal_.first[static_cast<std::size_t>(rect.x)] -
                                     sourceX_) *
            channels_;
        const std::size_t end =
            static_cast<std::size_t>(horizontal_.first[lastColumn] + horizontal_.count - sourceX_) *
            channels_;
        const auto count = static_cast<std::size_t>(vertical_.count);
        Result status = S_OK;
        for (std::size_t i = 0; i < rows; ++i) {
            const auto y = static_cast<std::size_t>(rect.y) + i;
            const Result pulled = PullWindow(y, runEnd_[i]);
            if (pulled.Failed()) {
                return pulled;
            }
            if (pulled != S_OK) {
                status = pulled;
            }
            for (std::size_t k = 0; k < count; ++k) {
                rows_[k] = ring_.data() + ringStride_ * Slot(vertical_.first[y] + std::int32_t(k));
            }
            CombineRows(rows_.data(), vertical_.weights.data() + y * count, count, begin, end,
                        mid_.data());
            auto* dst = reinterpret_cast<std::uint8_t*>(out.data()) + stride * i;
            Filter(dst, rect.x, rect.width);
        }
        return status;
    }

    void Filter(std::uint8_t* dst, std::int32_t x, std::int32_t width) {
        switch (channels_) {
            case 1:
                FilterColumns<1>(mid_.data(), dst, horizontal_, x, width, sourceX_);
                break;
            case 2:
                FilterColumns<2>(mid_.data(), dst, horizontal_, x, width, sourceX_);
                break;
            case 3:
                FilterColumns<3>(mid_.data(), dst, horizontal_, x, width, sourceX_);
                break;
            default:
                FilterColumns<4>(mid_.data(), dst, horizontal_, x, width, sourceX_);
                break;
        }
        if (Format() == PixelFormat::Pbgra32) {
            // Negative lobes can lift a colour above its alpha; that is no valid
            // premultiplied pixel.
            ClampToAlpha(dst, static_cast<std::size_t>(width));
        }
    }

    void SetColumns(std::int32_t x, std::int32_t width) {
        ringX_ = x;
        ringWidth_ = width;
        const auto last = static_cast<std::size_t>(x + width - 1);
        sourceX_ = horizontal_.first[static_cast<std::size_t>(x)];
        sourceWidth_ = horizontal_.first[last] + horizontal_.count - sourceX_;
        ringStride_ = input_->RowBytes(static_cast<std::uint32_t>(sourceWidth_));
        chunkRows_ = static_cast<std::int32_t>(
            std::clamp<std::size_t>(kChunkBytes / ringStride_, 1, input_->Size().height));
        ringSlots_ = vertical_.count + chunkRows_;
        ring_.resize(ringStride_ * static_cast<std::size_t>(ringSlots_));
        ringRows_.assign(static_cast<std::size_t>(ringSlots_), -1);
        mid_.resize(static_cast<std::size_t>(sourceWidth_) * channels_);
    }

    std::size_t Slot(std::int32_t row) const { return static_cast<std::size_t>(row % ringSlots_); }

    // Makes the source rows of output row y present in the ring, pulling each missing run
    // up to `runEnd` in chunks. A chunk never takes more slots than the ring has beyond one
    // window, so it cannot overwrite a row the window still needs.
    Result PullWindow(std::size_t y, std::int32_t runEnd) {
        Result status = S_OK;
        const std::int32_t first = vertical_.first[y];
        for (std::int32_t row = first; row < first + vertical_.count; ++row) {
            const std::size_t slot = Slot(row);
            if (ringRows_[slot] == row) {
                continue;
            }
            const std::int32_t count =
                std::min({chunkRows_, runEnd - row, ringSlots_ - static_cast<std::int32_t>(slot)});
            const auto bytes = std::span(ring_).subspan(
                slot * ringStride_, ringStride_ * static_cast<std::size_t>(count));
            const Result pulled = input_->CopyPixels({sourceX_, row, sourceWidth_, count},
                                                     ringStride_, std::as_writable_bytes(bytes));
            for (std::int32_t k = 0; k < count; ++k) {
                ringRows_[slot + static_cast<std::size_t>(k)] = pulled.Failed() ? -1 : row + k;
            }
            if (pulled.Failed()) {
                return pulled;
            }
            if (pulled != S_OK) {
                status = pulled;
            }
        }
        return status;
    }

    std::unique_ptr<BitmapSource> input_;
    std::uint32_t channels_;
    Taps horizontal_;
    Taps vertical_;

    // The ring of source rows covering output columns [ringX_, ringX_ + ringWidth_): source
    // columns [sourceX_, sourceX_ + sourceWidth_) of source row r in slot r % ringSlots_,
    // which ringRows_ names (-1: empty).
    std::int32_t ringX_ = -1;
    std::int32_t ringWidth_ = 0;
    std::int32_t sourceX_ = 0;
    std::int32_t sourceWidth_ = 0;
    std::size_t ringStride_ = 0;
    std::int32_t chunkRows_ = 1;
    std::int32_t ringSlots_ = 1;
    std::vector<std::uint8_t> ring_;
    std::vector<std::int32_t> ringRows_;

    std::vector<const std::uint8_t*> rows_;  // the window's rows for the vertical pass
    std::vector<std::int16_t> mid_;          // one combined row, before the horizontal pass
    std::vector<std::int32_t> runEnd_;
};

// At most how many source positions one output position reads (before trimming).
std::uint64_t WindowBound(std::uint32_t source, std::uint32_t target, Interpolation mode) {
    const double ratio = static_cast<double>(source) / target;
    double window = 1.0;
    if (mode == Interpolation::Fant) {
        window = std::ceil(ratio) + 1.0;
    } else if (mode != Interpolation::NearestNeighbor) {
        window = 2.0 * std::ceil(Radius(mode) * std::max(1.0, ratio)) + 2.0;
    }
    return std::min<std::uint64_t>(source, static_cast<std::uint64_t>(window));
}

std::unique_ptr<BitmapSource> MakeScaler(std::unique_ptr<BitmapSource> source, PixelSize size,
                                         Interpolation interpolation) {
    const PixelSize from = source->Size();
    const std::uint64_t rowBytes = source->RowBytes(from.width);
    const std::uint64_t chunkRows = std::max<std::uint64_t>(1, kChunkBytes / rowBytes);
    const std::uint64_t rows = WindowBound(from.height, size.height, interpolation);
    const std::uint64_t columns = WindowBound(from.width, size.width, interpolation);
    // Sizes are below 2^31 and windows below 2^30: none of these products can wrap.
    const std::uint64_t ringBytes = (rows + chunkRows) * rowBytes;
    const std::uint64_t tableBytes = 2 * (rows * size.height + columns * size.width);
    // A reduction so strong that its window of source rows would be too large is done in
    // steps: box halvings first (each holds two or three rows), then the filter asked for.
    if (ringBytes > kMaxRingBytes && std::uint64_t{size.height} * 2 < from.height) {
        const PixelSize half{std::max(size.width, (from.width + 1) / 2), (from.height + 1) / 2};
        auto halved = MakeScaler(std::move(source), half, Interpolation::Fant);
        if (halved == nullptr || half == size) {
            return halved;
        }
        return MakeScaler(std::move(halved), size, interpolation);
    }
    // A picture of absurd proportions (a gigapixel in one row) is refused rather than given
    // gigabytes of scratch.
    if (ringBytes + tableBytes > kMaxScratchBytes) {
        return nullptr;
    }
    Taps vertical = MakeTaps(from.height, size.height, interpolation);
    Taps horizontal = MakeTaps(from.width, size.width, interpolation);
    return std::make_unique<Scaler>(std::move(source), size, std::move(horizontal),
                                    std::move(vertical));
}

}  // namespace

bool CanScale(PixelFormat format) {
    return Channels(format) != 0;
}

std::unique_ptr<BitmapSource> Scaled(std::unique_ptr<BitmapSource> source, PixelSize size,
                                     Interpolation interpolation) {
    if (source == nullptr || !CanScale(source->Format()) || !AcceptableSize(size)) {
        return nullptr;
    }
    if (source->Size() == size) {
        return source;
    }
    const PixelSize from = source->Size();
    if (auto* frame = dynamic_cast<BitmapFrame*>(source.get());
        frame != nullptr && (size.width < from.width || size.height < from.height)) {
        auto reduced = frame->CreateVariant(size, PixelFormat::Unknown);
        if (reduced != nullptr && reduced->Format() == source->Format()) {
            const PixelSize got = reduced->Size();
            if (got.width >= size.width && got.height >= size.height && got.width <= from.width &&
                got.height <= from.height) {
                source = std::move(reduced);
                if (got == size) {
                    return source;
                }
            }
        }
    }
    try {
        return MakeScaler(std::move(source), size, interpolation);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace orvanta::imaging

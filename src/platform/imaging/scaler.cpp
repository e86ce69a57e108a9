#include "platform/imaging/scaler.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "platform/imaging/decoder.h"

namespace orvanta::imaging {

namespace {

// Weights sum to 1 << 14 exactly, so a constant picture stays constant. Horizontally
// filtered samples keep 6 fractional bits in 16-bit storage: with cubic ringing they stay
// within +-32640, and the vertical sums within 32 bits.
constexpr int kWeightBits = 14;
constexpr std::int64_t kWeightOne = std::int64_t{1} << kWeightBits;
constexpr int kFractionBits = 6;
constexpr int kHorizontalShift = kWeightBits - kFractionBits;
constexpr int kVerticalShift = kWeightBits + kFractionBits;
// Source rows are pulled in chunks of about this many bytes.
constexpr std::size_t kChunkBytes = std::size_t{128} << 10;
// Inner loops of a fixed count, which g++ -O2 vectorises.
constexpr std::size_t kBlock = 16;

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
        first =
            static_cast<std::int64_t>(std::min<std::uint64_t>((2 * i + 1) * s / (2 * d), s - 1));
        real.push_back(1.0);
        return;
    }
    if (mode == Interpolation::Fant) {
        // Output pixel i covers [i * s, (i + 1) * s) in units of 1/d source pixels; each
        // source pixel weighs by the part of it that lies inside, counted exactly.
        const std::uint64_t lo = i * s;
        const std::uint64_t hi = (i + 1) * s;
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
        // Weights that rounded to nothing at either end need no source row.
        std::size_t begin = 0;
        std::size_t end = fixed.size();
        while (end - begin > 1 && fixed[begin] == 0) {
            ++begin;
        }
        while (end - begin > 1 && fixed[end - 1] == 0) {
            --end;
        }
        first[i] = static_cast<std::int32_t>(start + static_cast<std::int64_t>(begin));
        count[i] = static_cast<std::int32_t>(end - begin);
        offset[i] = packed.size();
        packed.insert(packed.end(), fixed.begin() + static_cast<std::ptrdiff_t>(begin),
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

template <std::uint32_t kChannels>
void FilterRowOf(const std::uint8_t* src, std::int16_t* dst, const Taps& taps,
                 std::int32_t firstColumn, std::int32_t columns, std::int32_t sourceX) {
    const auto count = static_cast<std::size_t>(taps.count);
    for (std::int32_t j = 0; j < columns; ++j) {
        const auto column = static_cast<std::size_t>(firstColumn + j);
        const std::int16_t* weights = taps.weights.data() + column * count;
        const std::uint8_t* s =
            src + static_cast<std::size_t>(taps.first[column] - sourceX) * kChannels;
        std::int32_t acc[kChannels];
        for (std::uint32_t c = 0; c < kChannels; ++c) {
            acc[c] = 1 << (kHorizontalShift - 1);
        }
        for (std::size_t k = 0; k < count; ++k) {
            const std::int32_t w = weights[k];
            for (std::uint32_t c = 0; c < kChannels; ++c) {
                acc[c] += w * s[k * kChannels + c];
            }
        }
        std::int16_t* d = dst + static_cast<std::size_t>(j) * kChannels;
        for (std::uint32_t c = 0; c < kChannels; ++c) {
            d[c] = static_cast<std::int16_t>(acc[c] >> kHorizontalShift);
        }
    }
}

void Accumulate(std::int32_t* __restrict acc, const std::int16_t* __restrict row, std::int32_t w,
                std::size_t n) {
    std::size_t e = 0;
    for (; e + kBlock <= n; e += kBlock) {
        for (std::size_t k = 0; k < kBlock; ++k) {
            acc[e + k] += w * row[e + k];
        }
    }
    for (; e < n; ++e) {
        acc[e] += w * row[e];
    }
}

void Store(const std::int32_t* __restrict acc, std::uint8_t* __restrict dst, std::size_t n) {
    std::size_t e = 0;
    for (; e + kBlock <= n; e += kBlock) {
        for (std::size_t k = 0; k < kBlock; ++k) {
            dst[e + k] =
                static_cast<std::uint8_t>(std::clamp(acc[e + k] >> kVerticalShift, 0, 255));
        }
    }
    for (; e < n; ++e) {
        dst[e] = static_cast<std::uint8_t>(std::clamp(acc[e] >> kVerticalShift, 0, 255));
    }
}

class Scaler final : public BitmapSource {
public:
    Scaler(std::unique_ptr<BitmapSource> input, PixelSize size, Taps horizontal, Taps vertical)
        : BitmapSource(size, input->Format(), input->GetAccess()),
          input_(std::move(input)),
          channels_(Channels(Format())),
          horizontal_(std::move(horizontal)),
          vertical_(std::move(vertical)),
          ringRows_(static_cast<std::size_t>(vertical_.count), -1) {}

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
        // Over a sequential input the ring always covers whole rows: a later request for
        // other columns must not send the input back to its first row.
        const bool wholeRows = GetAccess() == Access::Sequential;
        const std::int32_t x = wholeRows ? 0 : rect.x;
        const std::int32_t width = wholeRows ? static_cast<std::int32_t>(Size().width) : rect.width;
        if (x != ringX_ || width != ringWidth_) {
            SetColumns(x, width);
        }
        // For each output row, where the run of source rows that the band needs without a
        // gap ends: chunks are pulled up to there and no further.
        const auto rows = static_cast<std::size_t>(rect.height);
        runEnd_.resize(rows);
        for (std::size_t i = rows; i-- > 0;) {
            const std::int32_t y = rect.y + static_cast<std::int32_t>(i);
            const std::int32_t end = vertical_.first[static_cast<std::size_t>(y)] + vertical_.count;
            runEnd_[i] = i + 1 < rows && vertical_.first[static_cast<std::size_t>(y) + 1] <= end
                             ? std::max(end, runEnd_[i + 1])
                             : end;
        }
        Result status = S_OK;
        for (std::size_t i = 0; i < rows; ++i) {
            const auto y = static_cast<std::size_t>(rect.y) + i;
            for (std::int32_t k = 0; k < vertical_.count; ++k) {
                const Result ensured = EnsureRow(vertical_.first[y] + k, runEnd_[i]);
                if (ensured.Failed()) {
                    return ensured;
                }
                if (ensured != S_OK) {
                    status = ensured;
                }
            }
            Combine(y, reinterpret_cast<std::uint8_t*>(out.data()) + stride * i, rect.x - x,
                    rect.width);
        }
        return status;
    }

    void SetColumns(std::int32_t x, std::int32_t width) {
        ringX_ = x;
        ringWidth_ = width;
        const auto last = static_cast<std::size_t>(x + width - 1);
        sourceX_ = horizontal_.first[static_cast<std::size_t>(x)];
        sourceWidth_ = horizontal_.first[last] + horizontal_.count - sourceX_;
        rowSamples_ = static_cast<std::size_t>(width) * channels_;
        ring_.resize(rowSamples_ * static_cast<std::size_t>(vertical_.count));
        std::fill(ringRows_.begin(), ringRows_.end(), -1);
        chunkStride_ = input_->RowBytes(static_cast<std::uint32_t>(sourceWidth_));
        chunkRows_ = static_cast<std::int32_t>(
            std::clamp<std::size_t>(kChunkBytes / chunkStride_, 1, input_->Size().height));
        chunk_.resize(chunkStride_ * static_cast<std::size_t>(chunkRows_));
        chunkCount_ = 0;
    }

    // Puts the horizontally filtered source row `row` into its ring slot, pulling a chunk
    // of rows up to `runEnd` when the row is not at hand.
    Result EnsureRow(std::int32_t row, std::int32_t runEnd) {
        const auto slot = static_cast<std::size_t>(row % vertical_.count);
        if (ringRows_[slot] == row) {
            return S_OK;
        }
        Result pulled = S_OK;
        if (row < chunkFirst_ || row >= chunkFirst_ + chunkCount_) {
            const std::int32_t count = std::min(chunkRows_, runEnd - row);
            chunkCount_ = 0;
            pulled = input_->CopyPixels({sourceX_, row, sourceWidth_, count}, chunkStride_,
                                        std::as_writable_bytes(std::span(chunk_)));
            if (pulled.Failed()) {
                return pulled;
            }
            chunkFirst_ = row;
            chunkCount_ = count;
        }
        const std::uint8_t* src =
            chunk_.data() + chunkStride_ * static_cast<std::size_t>(row - chunkFirst_);
        std::int16_t* dst = ring_.data() + rowSamples_ * slot;
        switch (channels_) {
            case 1:
                FilterRowOf<1>(src, dst, horizontal_, ringX_, ringWidth_, sourceX_);
                break;
            case 2:
                FilterRowOf<2>(src, dst, horizontal_, ringX_, ringWidth_, sourceX_);
                break;
            case 3:
                FilterRowOf<3>(src, dst, horizontal_, ringX_, ringWidth_, sourceX_);
                break;
            default:
                FilterRowOf<4>(src, dst, horizontal_, ringX_, ringWidth_, sourceX_);
                break;
        }
        ringRows_[slot] = row;
        return pulled;
    }

    // Output row y, columns [ringX_ + offset, ringX_ + offset + width), from the ring.
    void Combine(std::size_t y, std::uint8_t* dst, std::int32_t offset, std::int32_t width) {
        const std::size_t samples = static_cast<std::size_t>(width) * channels_;
        const std::size_t skip = static_cast<std::size_t>(offset) * channels_;
        accumulator_.assign(samples, std::int32_t{1} << (kVerticalShift - 1));
        const auto count = static_cast<std::size_t>(vertical_.count);
        const std::int16_t* weights = vertical_.weights.data() + y * count;
        for (std::size_t k = 0; k < count; ++k) {
            if (weights[k] == 0) {
                continue;
            }
            const auto row = static_cast<std::size_t>(vertical_.first[y]) + k;
            const std::int16_t* samplesOfRow = ring_.data() + rowSamples_ * (row % count) + skip;
            Accumulate(accumulator_.data(), samplesOfRow, weights[k], samples);
        }
        Store(accumulator_.data(), dst, samples);
        if (Format() == PixelFormat::Pbgra32) {
            // Negative lobes can lift a colour above its alpha; that is no valid
            // premultiplied pixel.
            for (std::size_t i = 0; i < samples; i += 4) {
                for (std::size_t c = 0; c < 3; ++c) {
                    dst[i + c] = std::min(dst[i + c], dst[i + 3]);
                }
            }
        }
    }

    std::unique_ptr<BitmapSource> input_;
    std::uint32_t channels_;
    Taps horizontal_;
    Taps vertical_;

    // The ring: vertical_.count slots of horizontally filtered rows covering output columns
    // [ringX_, ringX_ + ringWidth_), made from source columns [sourceX_, + sourceWidth_).
    // Source row r lives in slot r % count, which ringRows_ names.
    std::int32_t ringX_ = -1;
    std::int32_t ringWidth_ = 0;
    std::int32_t sourceX_ = 0;
    std::int32_t sourceWidth_ = 0;
    std::size_t rowSamples_ = 0;
    std::vector<std::int16_t> ring_;
    std::vector<std::int32_t> ringRows_;

    // Unfiltered source rows [chunkFirst_, chunkFirst_ + chunkCount_) as last pulled.
    std::vector<std::uint8_t> chunk_;
    std::size_t chunkStride_ = 0;
    std::int32_t chunkRows_ = 1;
    std::int32_t chunkFirst_ = 0;
    std::int32_t chunkCount_ = 0;

    std::vector<std::int32_t> accumulator_;
    std::vector<std::int32_t> runEnd_;
};

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
        Taps horizontal = MakeTaps(source->Size().width, size.width, interpolation);
        Taps vertical = MakeTaps(source->Size().height, size.height, interpolation);
        return std::make_unique<Scaler>(std::move(source), size, std::move(horizontal),
                                        std::move(vertical));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace orvanta::imaging

#include "platform/imaging/flip_rotator.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "platform/imaging/materialized.h"

namespace orvanta::imaging {

namespace {

constexpr std::uint32_t kRotationMask = 3;
constexpr std::uint32_t kFlipHorizontal = 8;
constexpr std::uint32_t kFlipVertical = 16;
// Output rows are produced in bands of about this many bytes; a turned band is a strip of
// input columns of the same pixel count.
constexpr std::size_t kBandBytes = std::size_t{1} << 20;

// Any combination reduces to a clockwise rotation followed by an optional horizontal flip:
// a vertical flip is a half turn followed by a horizontal flip.
struct Orientation {
    std::uint32_t quarterTurns = 0;
    bool mirror = false;
};

Orientation Reduce(Transform transform) {
    const auto value = static_cast<std::uint32_t>(transform);
    Orientation o{value & kRotationMask, (value & kFlipHorizontal) != 0};
    if ((value & kFlipVertical) != 0) {
        o.quarterTurns = (o.quarterTurns + 2) & kRotationMask;
        o.mirror = !o.mirror;
    }
    return o;
}

template <std::size_t kBytes>
void Gather(const std::byte* src, std::ptrdiff_t step, std::byte* dst, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(dst + i * kBytes, src + static_cast<std::ptrdiff_t>(i) * step, kBytes);
    }
}

using GatherRow = void (*)(const std::byte*, std::ptrdiff_t, std::byte*, std::size_t);

GatherRow GatherFor(std::size_t bytesPerPixel) {
    switch (bytesPerPixel) {
        case 1:
            return Gather<1>;
        case 2:
            return Gather<2>;
        case 3:
            return Gather<3>;
        case 4:
            return Gather<4>;
        case 6:
            return Gather<6>;
        case 8:
            return Gather<8>;
        default:
            return nullptr;
    }
}

PixelSize TurnedSize(PixelSize size, Orientation o) {
    return (o.quarterTurns & 1) != 0 ? PixelSize{size.height, size.width} : size;
}

class FlipRotator final : public BitmapSource {
public:
    FlipRotator(std::unique_ptr<BitmapSource> input, Orientation orientation, GatherRow gather)
        : BitmapSource(TurnedSize(input->Size(), orientation), input->Format(), input->GetAccess()),
          input_(std::move(input)),
          orientation_(orientation),
          gather_(gather),
          bytesPerPixel_(BitsPerPixel(Format()) / 8) {}

    std::span<const std::uint32_t> Palette() const override { return input_->Palette(); }

private:
    struct Point {
        std::int64_t x;
        std::int64_t y;
    };

    // The input pixel shown at output (x, y).
    Point Map(std::int64_t x, std::int64_t y) const {
        const std::int64_t w = input_->Size().width;
        const std::int64_t h = input_->Size().height;
        if (orientation_.mirror) {
            x = static_cast<std::int64_t>(Size().width) - 1 - x;
        }
        switch (orientation_.quarterTurns) {
            case 1:
                return {y, h - 1 - x};
            case 2:
                return {w - 1 - x, h - 1 - y};
            case 3:
                return {w - 1 - y, x};
            default:
                return {x, y};
        }
    }

    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        try {
            return Turn(rect, stride, out);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    Result Turn(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
        const std::size_t rowBytes = bytesPerPixel_ * static_cast<std::size_t>(rect.width);
        const auto bandRows = static_cast<std::int32_t>(std::clamp<std::size_t>(
            kBandBytes / rowBytes, 1, static_cast<std::size_t>(rect.height)));
        Result status = S_OK;
        for (std::int32_t top = 0; top < rect.height; top += bandRows) {
            const std::int32_t rows = std::min(bandRows, rect.height - top);
            const std::int32_t y0 = rect.y + top;
            // The corners of the band map to opposite corners of the input rectangle.
            const Point a = Map(rect.x, y0);
            const Point b = Map(rect.x + rect.width - 1, y0 + rows - 1);
            const PixelRect from{static_cast<std::int32_t>(std::min(a.x, b.x)),
                                 static_cast<std::int32_t>(std::min(a.y, b.y)),
                                 static_cast<std::int32_t>(std::abs(a.x - b.x) + 1),
                                 static_cast<std::int32_t>(std::abs(a.y - b.y) + 1)};
            const std::size_t fromStride = bytesPerPixel_ * static_cast<std::size_t>(from.width);
            scratch_.resize(fromStride * static_cast<std::size_t>(from.height));
            const Result pulled = input_->CopyPixels(from, fromStride, scratch_);
            if (pulled.Failed()) {
                return pulled;
            }
            if (pulled != S_OK) {
                status = pulled;
            }
            // Walking along an output row moves by a fixed step through the input.
            const auto offset = [&](Point p) {
                return static_cast<std::ptrdiff_t>(p.y - from.y) *
                           static_cast<std::ptrdiff_t>(fromStride) +
                       static_cast<std::ptrdiff_t>(p.x - from.x) *
                           static_cast<std::ptrdiff_t>(bytesPerPixel_);
            };
            const std::ptrdiff_t step = offset(Map(rect.x + 1, y0)) - offset(Map(rect.x, y0));
            for (std::int32_t i = 0; i < rows; ++i) {
                std::byte* dst = out.data() + stride * static_cast<std::size_t>(top + i);
                gather_(scratch_.data() + offset(Map(rect.x, y0 + i)), step, dst,
                        static_cast<std::size_t>(rect.width));
            }
        }
        return status;
    }

    std::unique_ptr<BitmapSource> input_;
    Orientation orientation_;
    GatherRow gather_;
    std::size_t bytesPerPixel_;
    std::vector<std::byte> scratch_;  // the input rectangle of the current band
};

}  // namespace

Transform OrientationTransform(int exifOrientation) {
    switch (exifOrientation) {
        case 2:
            return Transform::FlipHorizontal;
        case 3:
            return Transform::FlipHorizontal | Transform::FlipVertical;
        case 4:
            return Transform::FlipVertical;
        case 5:
            return Transform::Rotate90 | Transform::FlipHorizontal;
        case 6:
            return Transform::Rotate90;
        case 7:
            return Transform::Rotate270 | Transform::FlipHorizontal;
        case 8:
            return Transform::Rotate270;
        default:
            return Transform::Rotate0;
    }
}

std::unique_ptr<BitmapSource> FlipRotated(std::unique_ptr<BitmapSource> source,
                                          Transform transform) {
    const auto value = static_cast<std::uint32_t>(transform);
    if (source == nullptr || (value & ~(kRotationMask | kFlipHorizontal | kFlipVertical)) != 0) {
        return nullptr;
    }
    const std::uint32_t bits = BitsPerPixel(source->Format());
    const GatherRow gather = bits % 8 == 0 ? GatherFor(bits / 8) : nullptr;
    if (gather == nullptr) {
        return nullptr;
    }
    const Orientation orientation = Reduce(transform);
    if (orientation.quarterTurns == 0 && !orientation.mirror) {
        return source;
    }
    // A mirror alone reads each row where it is; anything else reads rows out of order.
    if (orientation.quarterTurns != 0) {
        source = Materialized(std::move(source));
    }
    return std::make_unique<FlipRotator>(std::move(source), orientation, gather);
}

}  // namespace orvanta::imaging

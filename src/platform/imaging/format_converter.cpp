#include "platform/imaging/format_converter.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "platform/imaging/decoder.h"
#include "platform/imaging/format_rows_internal.h"

namespace orvanta::imaging {

namespace {

// Source rows are pulled in bands of about this many bytes: small enough to stay in the
// second-level cache between the pull and the conversion.
constexpr std::size_t kBandBytes = std::size_t{128} << 10;

struct Kernels {
    rows::Direct direct = nullptr;
    rows::Unpack unpack = nullptr;
    rows::Pack pack = nullptr;
};

void CopyRow(const std::uint8_t* s, std::uint8_t* d, std::size_t n) {
    std::memcpy(d, s, 4 * n);
}

Kernels ChooseKernels(PixelFormat source, PixelFormat target) {
    Kernels kernels;
    kernels.direct = rows::DirectKernel(source, target);
    if (kernels.direct != nullptr) {
        return kernels;
    }
    // A premultiplied source going to the premultiplied target stays premultiplied: going
    // through straight colour would lose precision where alpha is small.
    if (target == PixelFormat::Pbgra32 && Info(source).premultiplied) {
        kernels.unpack = rows::PremultipliedUnpacker(source);
        kernels.pack = CopyRow;
    } else {
        kernels.unpack = rows::StraightUnpacker(source);
        kernels.pack = rows::StraightPacker(target);
    }
    if (kernels.unpack == nullptr || kernels.pack == nullptr) {
        return {};
    }
    return kernels;
}

class FormatConverter final : public BitmapSource {
public:
    FormatConverter(std::unique_ptr<BitmapSource> input, PixelFormat target, Kernels kernels)
        : BitmapSource(input->Size(), target, input->GetAccess()),
          input_(std::move(input)),
          kernels_(kernels) {
        palette_.fill(0xFF000000u);
        const auto palette = input_->Palette();
        std::copy_n(palette.begin(), std::min(palette.size(), palette_.size()), palette_.begin());
    }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        try {
            return Convert(rect, stride, out);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    Result Convert(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
        const auto width = static_cast<std::size_t>(rect.width);
        const std::size_t sourceRow = input_->RowBytes(static_cast<std::uint32_t>(rect.width));
        const auto bandRows = static_cast<std::int32_t>(std::clamp<std::size_t>(
            kBandBytes / sourceRow, 1, static_cast<std::size_t>(rect.height)));
        band_.resize(sourceRow * static_cast<std::size_t>(bandRows));
        if (kernels_.direct == nullptr) {
            bgra_.resize(4 * width);
        }
        Result status = S_OK;
        for (std::int32_t top = 0; top < rect.height; top += bandRows) {
            const std::int32_t count = std::min(bandRows, rect.height - top);
            const Result pulled =
                input_->CopyPixels({rect.x, rect.y + top, rect.width, count}, sourceRow,
                                   std::as_writable_bytes(std::span(band_)));
            if (pulled.Failed()) {
                return pulled;
            }
            if (pulled != S_OK) {
                status = pulled;
            }
            for (std::int32_t i = 0; i < count; ++i) {
                const std::uint8_t* src = band_.data() + sourceRow * static_cast<std::size_t>(i);
                auto* dst = reinterpret_cast<std::uint8_t*>(out.data()) +
                            stride * static_cast<std::size_t>(top + i);
                if (kernels_.direct != nullptr) {
                    kernels_.direct(src, dst, width);
                } else {
                    kernels_.unpack(src, bgra_.data(), width, palette_);
                    kernels_.pack(bgra_.data(), dst, width);
                }
            }
        }
        return status;
    }

    std::unique_ptr<BitmapSource> input_;
    Kernels kernels_;
    rows::PaletteTable palette_;
    std::vector<std::uint8_t> band_;  // source rows of the current band
    std::vector<std::uint8_t> bgra_;  // one row between unpacking and packing
};

}  // namespace

bool CanConvert(PixelFormat source, PixelFormat target) {
    if (source == PixelFormat::Unknown || target == PixelFormat::Unknown) {
        return false;
    }
    const Kernels kernels = ChooseKernels(source, target);
    return source == target || kernels.direct != nullptr || kernels.unpack != nullptr;
}

std::unique_ptr<BitmapSource> Converted(std::unique_ptr<BitmapSource> source, PixelFormat target) {
    if (source == nullptr || !CanConvert(source->Format(), target)) {
        return nullptr;
    }
    if (source->Format() == target) {
        return source;
    }
    if (auto* frame = dynamic_cast<BitmapFrame*>(source.get())) {
        auto variant = frame->CreateVariant({0, 0}, target);
        if (variant != nullptr && variant->Format() == target &&
            variant->Size() == source->Size()) {
            return variant;
        }
    }
    const Kernels kernels = ChooseKernels(source->Format(), target);
    return std::make_unique<FormatConverter>(std::move(source), target, kernels);
}

}  // namespace orvanta::imaging

// Sources for the stage tests: pictures made from a function of (x, y), a probe that records
// how a stage pulls (and plays a sequential decoder that refuses to go back), and a frame
// that offers a ready-made variant.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/imaging/decoder.h"
#include "platform/imaging/memory_source.h"

namespace orvanta::imaging::test {

// A picture whose byte k of pixel (x, y) is value(x, y, k); rows without padding.
inline std::unique_ptr<MemorySource> MakePicture(
    PixelSize size, PixelFormat format,
    const std::function<std::uint8_t(std::uint32_t, std::uint32_t, std::uint32_t)>& value,
    std::vector<std::uint32_t> palette = {}) {
    const std::uint32_t bytes = BitsPerPixel(format) / 8;
    std::vector<std::byte> pixels(std::size_t{size.width} * size.height * bytes);
    std::size_t i = 0;
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            for (std::uint32_t k = 0; k < bytes; ++k) {
                pixels[i++] = static_cast<std::byte>(value(x, y, k));
            }
        }
    }
    return MemorySource::Own(size, format, std::size_t{size.width} * bytes, std::move(pixels),
                             std::move(palette));
}

// A picture computed as it is asked for, for sizes that should not sit in memory: byte k of
// pixel (x, y) is value(x, y, k).
class FunctionSource final : public BitmapSource {
public:
    using Value = std::uint8_t (*)(std::uint32_t x, std::uint32_t y, std::uint32_t k);
    FunctionSource(PixelSize size, PixelFormat format, Value value)
        : BitmapSource(size, format, Access::Random), value_(value) {}

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        const std::uint32_t bytes = BitsPerPixel(Format()) / 8;
        for (std::int32_t y = 0; y < rect.height; ++y) {
            std::byte* row = out.data() + stride * static_cast<std::size_t>(y);
            for (std::int32_t x = 0; x < rect.width; ++x) {
                for (std::uint32_t k = 0; k < bytes; ++k) {
                    *row++ =
                        static_cast<std::byte>(value_(static_cast<std::uint32_t>(rect.x + x),
                                                      static_cast<std::uint32_t>(rect.y + y), k));
                }
            }
        }
        return S_OK;
    }

    Value value_;
};

// Every pixel of a source, rows without padding; empty when the copy fails.
inline std::vector<std::uint8_t> ReadRect(BitmapSource& source, const PixelRect& rect,
                                          Result* result = nullptr) {
    const std::size_t stride = source.RowBytes(static_cast<std::uint32_t>(rect.width));
    std::vector<std::uint8_t> out(stride * static_cast<std::size_t>(rect.height));
    const Result r = source.CopyPixels(rect, stride, std::as_writable_bytes(std::span(out)));
    if (result != nullptr) {
        *result = r;
    }
    return r.Failed() ? std::vector<std::uint8_t>{} : out;
}

inline std::vector<std::uint8_t> ReadAll(BitmapSource& source, Result* result = nullptr) {
    return ReadRect(source,
                    {0, 0, static_cast<std::int32_t>(source.Size().width),
                     static_cast<std::int32_t>(source.Size().height)},
                    result);
}

// What a probe saw. Owned by the test, so it outlives the pipeline that owns the probe.
struct ReadLog {
    int requests = 0;
    int backwardReads = 0;
    std::int64_t rowsServed = 0;
    std::int32_t mostRows = 0;  // the tallest single request
    std::vector<PixelRect> rects;
};

// Forwards to a picture and records the requests. As Access::Sequential it plays a
// streaming decoder: a request that starts above the end of the previous one fails with
// E_UNEXPECTED. `answer` replaces the success code of each copy (S_FALSE: truncated).
class ProbeSource final : public BitmapSource {
public:
    ProbeSource(std::unique_ptr<BitmapSource> inner, Access access, ReadLog* log,
                Result answer = S_OK)
        : BitmapSource(inner->Size(), inner->Format(), access),
          inner_(std::move(inner)),
          log_(log),
          answer_(answer) {}

    std::span<const std::uint32_t> Palette() const override { return inner_->Palette(); }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        ++log_->requests;
        log_->rects.push_back(rect);
        if (GetAccess() == Access::Sequential && rect.y < nextRow_) {
            ++log_->backwardReads;
            return E_UNEXPECTED;
        }
        nextRow_ = rect.y + rect.height;
        log_->rowsServed += rect.height;
        log_->mostRows = std::max(log_->mostRows, rect.height);
        const Result result = inner_->CopyPixels(rect, stride, out);
        return result.Failed() ? result : answer_;
    }

    std::unique_ptr<BitmapSource> inner_;
    ReadLog* log_;
    Result answer_;
    std::int32_t nextRow_ = 0;
};

// The last CreateVariant request a VariantFrame saw; owned by the test.
struct VariantRequest {
    PixelSize minimum;
    PixelFormat format = PixelFormat::Unknown;
};

// A frame over a picture that offers `variant` (once) for any CreateVariant request.
class VariantFrame final : public BitmapFrame {
public:
    VariantFrame(std::unique_ptr<BitmapSource> picture, std::unique_ptr<BitmapSource> variant,
                 VariantRequest* request)
        : BitmapFrame(picture->Size(), picture->Format(), picture->GetAccess()),
          picture_(std::move(picture)),
          variant_(std::move(variant)),
          request_(request),
          bytes_(FileBytes::FromMemory({})) {}

    const FileBytes& File() const override { return *bytes_; }
    std::unique_ptr<BitmapSource> CreateVariant(PixelSize minimum, PixelFormat format) override {
        *request_ = {minimum, format};
        return std::move(variant_);
    }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        return picture_->CopyPixels(rect, stride, out);
    }

    std::unique_ptr<BitmapSource> picture_;
    std::unique_ptr<BitmapSource> variant_;
    VariantRequest* request_;
    std::shared_ptr<const FileBytes> bytes_;
};

}  // namespace orvanta::imaging::test

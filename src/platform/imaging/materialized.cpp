#include "platform/imaging/materialized.h"

#include <utility>
#include <vector>

#include "platform/imaging/memory_source.h"
#include "platform/imaging/pixel_buffer.h"

namespace orvanta::imaging {

namespace {

class MaterializedSource final : public BitmapSource {
public:
    explicit MaterializedSource(std::unique_ptr<BitmapSource> input)
        : BitmapSource(input->Size(), input->Format(), Access::Random),
          palette_(input->Palette().begin(), input->Palette().end()),
          input_(std::move(input)) {}

    std::span<const std::uint32_t> Palette() const override { return palette_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        const Result decoded = DecodeThrough(static_cast<std::uint32_t>(rect.y + rect.height));
        if (decoded.Failed()) {
            return decoded;
        }
        const Result copied = view_->CopyPixels(rect, stride, out);
        return copied.Failed() ? copied : decoded;
    }

    // Makes rows [0, end) available. A failure is kept: a decode that failed once is not
    // tried again for every band.
    Result DecodeThrough(std::uint32_t end) {
        if (status_.Failed() || end <= decodedRows_) {
            return status_;
        }
        if (buffer_.Empty()) {
            status_ = PixelBuffer::Create(Size(), Format(), 0, buffer_);
            if (status_.Failed()) {
                return status_;
            }
            view_ = MemorySource::Borrow(Size(), Format(), buffer_.Stride(),
                                         std::as_const(buffer_).Bytes(), palette_);
            if (view_ == nullptr) {
                return status_ = E_UNEXPECTED;
            }
        }
        const PixelRect rows{0, static_cast<std::int32_t>(decodedRows_),
                             static_cast<std::int32_t>(Size().width),
                             static_cast<std::int32_t>(end - decodedRows_)};
        const Result result = input_->CopyPixels(
            rows, buffer_.Stride(), buffer_.Bytes().subspan(buffer_.Stride() * decodedRows_));
        if (result.Failed()) {
            view_.reset();
            buffer_.Reset();
            return status_ = result;
        }
        // A success other than S_OK (a truncated picture) stays the answer of every copy.
        if (result != S_OK) {
            status_ = result;
        }
        decodedRows_ = end;
        if (decodedRows_ == Size().height) {
            input_.reset();
        }
        return status_;
    }

    std::vector<std::uint32_t> palette_;
    std::unique_ptr<BitmapSource> input_;
    PixelBuffer buffer_;
    std::unique_ptr<MemorySource> view_;  // borrows buffer_
    std::uint32_t decodedRows_ = 0;
    Result status_ = S_OK;
};

}  // namespace

std::unique_ptr<BitmapSource> Materialized(std::unique_ptr<BitmapSource> source) {
    if (source == nullptr || source->GetAccess() == Access::Random) {
        return source;
    }
    return std::make_unique<MaterializedSource>(std::move(source));
}

}  // namespace orvanta::imaging

#include "decode/abortable_copy.h"

#include <algorithm>

namespace orvanta::decode {

namespace {

// A band is copied and counted in pieces of about this many bytes, so that the counting
// finds the rows the source just wrote still in the second-level cache.
constexpr std::size_t kCountedPieceBytes = std::size_t{256} << 10;

}  // namespace

ProgressCallback AbortCallback(const std::atomic<std::uint32_t>& abortFlag) {
    return [&abortFlag](std::uint32_t) {
        return abortFlag.load(std::memory_order_relaxed) != 0 ? E_ABORT : S_OK;
    };
}

std::uint32_t BandRows(std::uint32_t height) {
    std::uint32_t rows = height;
    const std::uint32_t ceiling = std::max<std::uint32_t>(height / 16, 512);
    while (rows > ceiling) {
        rows /= 2;
    }
    return (rows + 127) / 128 * 128;
}

std::unique_ptr<AbortableSource> AbortableSource::Create(
    std::unique_ptr<imaging::BitmapSource> source) {
    if (!source) {
        return nullptr;
    }
    return std::unique_ptr<AbortableSource>(new AbortableSource(std::move(source)));
}

AbortableSource::AbortableSource(std::unique_ptr<imaging::BitmapSource> source)
    : BitmapSource(source->Size(), source->Format(), source->GetAccess()),
      source_(std::move(source)) {
}

HistogramBlock AbortableSource::Histogram() const {
    HistogramBlock block = counts_;
    FinishHistogram(block);
    return block;
}

Result AbortableSource::CopyBand(const imaging::PixelRect& rect, std::int32_t first,
                                 std::int32_t rows, std::size_t stride, std::span<std::byte> out) {
    const std::size_t rowBytes = RowBytes(static_cast<std::uint32_t>(rect.width));
    const std::int32_t pieceRows =
        Counts() ? static_cast<std::int32_t>(std::max<std::size_t>(1, kCountedPieceBytes / stride))
                 : rows;
    Result worst = S_OK;
    for (std::int32_t y = first; y < first + rows; y += pieceRows) {
        const std::int32_t count = std::min(pieceRows, first + rows - y);
        std::byte* const start = out.data() + static_cast<std::size_t>(y) * stride;
        // The last row of a piece needs only its pixels, not a whole stride.
        const std::size_t bytes = static_cast<std::size_t>(count - 1) * stride + rowBytes;
        const Result result =
            source_->CopyPixels({rect.x, rect.y + y, rect.width, count}, stride, {start, bytes});
        if (result.Failed()) {
            return result;
        }
        if (result != S_OK) {
            worst = result;
        }
        CountRows(Format(), start, stride, static_cast<std::uint32_t>(rect.width),
                  static_cast<std::uint32_t>(count), counts_);
    }
    return worst;
}

Result AbortableSource::DoCopyPixels(const imaging::PixelRect& rect, std::size_t stride,
                                     std::span<std::byte> out) {
    if (!callback_) {
        return CopyBand(rect, 0, rect.height, stride, out);
    }
    if (const Result begin = callback_(0); begin.Failed()) {
        return begin;
    }
    const auto height = static_cast<std::uint32_t>(rect.height);
    const auto band = static_cast<std::int32_t>(BandRows(height));
    Result worst = S_OK;
    for (std::int32_t done = 0; done < rect.height;) {
        const std::int32_t rows = std::min(band, rect.height - done);
        const Result copied = CopyBand(rect, done, rows, stride, out);
        if (copied.Failed()) {
            return copied;
        }
        if (copied != S_OK) {
            worst = copied;
        }
        done += rows;
        const auto percent = static_cast<std::uint32_t>(std::uint64_t{100} * done / height);
        if (const Result answer = callback_(percent); answer.Failed()) {
            return answer;
        }
    }
    if (const Result end = callback_(100); end.Failed()) {
        return end;
    }
    return worst;
}

}  // namespace orvanta::decode

#include "decode/abortable_copy.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace orvanta::decode {

namespace {

// A band is copied and counted in pieces of about this many bytes, so that the counting
// finds the rows the source just wrote still in the second-level cache.
constexpr std::size_t kCountedPieceBytes = std::size_t{256} << 10;
// Pieces handed to the counting thread: large enough that the hand-over costs nothing next
// to the counting, small enough that the last piece, whose counting nothing hides, is short
// and that the thread finds the rows still in the last-level cache.
constexpr std::size_t kAsidePieceBytes = std::size_t{1} << 20;
// Below this many bytes a copy is counted in line: starting a thread would cost more than
// the counting it takes over.
constexpr std::size_t kAsideMinimumBytes = std::size_t{4} << 20;

// Copies running in the process: each keeps a core busy, and counting aside takes another.
std::atomic<unsigned> copiesRunning{0};

// Counts the copies in flight for as long as it lives.
class RunningCopy {
public:
    RunningCopy() : running_(copiesRunning.fetch_add(1, std::memory_order_relaxed) + 1) {}
    ~RunningCopy() { copiesRunning.fetch_sub(1, std::memory_order_relaxed); }
    RunningCopy(const RunningCopy&) = delete;
    RunningCopy& operator=(const RunningCopy&) = delete;
    // True when the copies in flight with their counting threads fit the machine's cores.
    bool CoreToSpare() const {
        return 2 * std::uint64_t{running_} <= std::thread::hardware_concurrency();
    }

private:
    unsigned running_;
};

}  // namespace

// Finishes the pieces handed to it (colour, then counting), in order, on a thread of its
// own, into counts of its own.
class AbortableSource::AsideCounter {
public:
    AsideCounter(const AbortableSource& copy, std::uint32_t width, std::size_t stride)
        : copy_(copy), width_(width), stride_(stride), thread_([this] { Count(); }) {}
    ~AsideCounter() { Finish(); }
    AsideCounter(const AsideCounter&) = delete;
    AsideCounter& operator=(const AsideCounter&) = delete;

    // The rows must stay unchanged until Finish() has returned.
    void Add(std::byte* rows, std::uint32_t count) {
        {
            const std::scoped_lock lock(mutex_);
            pieces_.push_back({rows, count});
        }
        ready_.notify_one();
    }

    // Waits for every piece to be counted; the counts are then in Counts().
    void Finish() {
        if (!thread_.joinable()) {
            return;
        }
        {
            const std::scoped_lock lock(mutex_);
            done_ = true;
        }
        ready_.notify_one();
        thread_.join();
    }
    // After Finish(): adds the counts to `block`.
    void AddTo(HistogramBlock& block) { counter_.AddTo(block); }

private:
    struct Piece {
        std::byte* rows;
        std::uint32_t count;
    };

    void Count() {
        for (;;) {
            Piece piece;
            {
                std::unique_lock lock(mutex_);
                ready_.wait(lock, [this] { return done_ || !pieces_.empty(); });
                if (pieces_.empty()) {
                    return;
                }
                piece = pieces_.front();
                pieces_.pop_front();
            }
            copy_.FinishPiece(piece.rows, stride_, width_, piece.count, counter_);
        }
    }

    const AbortableSource& copy_;
    const std::uint32_t width_;
    const std::size_t stride_;
    HistogramCounter counter_;  // used by the thread only, read after it was joined
    // Guards pieces_ and done_; a leaf lock held only to queue or take a piece.
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Piece> pieces_;
    bool done_ = false;
    std::thread thread_;  // last: started once everything it uses is made
};

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
    std::shared_ptr<const ColourTransform> colour = TakeApartColourStage(source);
    return std::unique_ptr<AbortableSource>(
        new AbortableSource(std::move(source), std::move(colour)));
}

AbortableSource::AbortableSource(std::unique_ptr<imaging::BitmapSource> source,
                                 std::shared_ptr<const ColourTransform> colour)
    : BitmapSource(source->Size(), source->Format(), source->GetAccess()),
      source_(std::move(source)),
      colour_(std::move(colour)) {
}

void AbortableSource::FinishPiece(std::byte* rows, std::size_t stride, std::uint32_t width,
                                  std::uint32_t count, HistogramCounter& counter) const {
    if (colour_) {
        for (std::uint32_t y = 0; y < count; ++y) {
            colour_->Apply(rows + y * stride, width);
        }
    }
    counter.Add(Format(), rows, stride, width, count);
}

HistogramBlock AbortableSource::Histogram() const {
    HistogramBlock block = counts_;
    FinishHistogram(block);
    return block;
}

Result AbortableSource::CopyBand(const imaging::PixelRect& rect, std::int32_t first,
                                 std::int32_t rows, std::size_t stride, std::span<std::byte> out) {
    const std::size_t rowBytes = RowBytes(static_cast<std::uint32_t>(rect.width));
    const std::size_t pieceBytes = aside_ != nullptr ? kAsidePieceBytes : kCountedPieceBytes;
    const std::int32_t pieceRows =
        WorksOnPieces() ? static_cast<std::int32_t>(std::max<std::size_t>(1, pieceBytes / stride))
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
        if (aside_ != nullptr) {
            aside_->Add(start, static_cast<std::uint32_t>(count));
        } else {
            FinishPiece(start, stride, static_cast<std::uint32_t>(rect.width),
                        static_cast<std::uint32_t>(count), counter_);
        }
    }
    return worst;
}

Result AbortableSource::DoCopyPixels(const imaging::PixelRect& rect, std::size_t stride,
                                     std::span<std::byte> out) {
    const RunningCopy running;
    std::unique_ptr<AsideCounter> aside;
    if (countAside_.value_or(running.CoreToSpare()) && WorksOnPieces() &&
        stride * static_cast<std::size_t>(rect.height) >= kAsideMinimumBytes) {
        try {
            aside = std::make_unique<AsideCounter>(*this, static_cast<std::uint32_t>(rect.width),
                                                   stride);
        } catch (const std::system_error&) {
            // No thread to be had: the copy counts in line.
        }
    }
    aside_ = aside.get();
    const Result result = CopyBands(rect, stride, out);
    aside_ = nullptr;
    if (aside) {
        aside->Finish();
        aside->AddTo(counts_);
    }
    counter_.AddTo(counts_);
    return result;
}

Result AbortableSource::CopyBands(const imaging::PixelRect& rect, std::size_t stride,
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

#include "list/feed_queue.h"

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>

namespace orvanta::list {

namespace {

// Seconds between 1601-01-01 and 1970-01-01.
constexpr std::uint64_t kEpochDifference = 11644473600ull;

imaging::FileTime FromTimestamp(const struct statx_timestamp& t) {
    if (t.tv_sec < -static_cast<std::int64_t>(kEpochDifference)) {
        return {};
    }
    return {(static_cast<std::uint64_t>(t.tv_sec) + kEpochDifference) * imaging::kTicksPerSecond +
            t.tv_nsec / 100};
}

// Emptied arrays kept for the next batches, and the largest one kept: a larger one, left
// by a big folder the feeder fell behind on, goes back to the heap.
constexpr std::size_t kSpareArrays = 4;
constexpr std::size_t kKeptRecords = 4096;

}  // namespace

FileFeedRecord FeedQueue::TakeFront() {
    auto& front = batches_.front();
    FileFeedRecord record = std::move(front[head_++]);
    --queued_;
    if (head_ == front.size()) {
        Recycle(front);
        batches_.pop_front();
        head_ = 0;
    }
    return record;
}

void FeedQueue::Recycle(std::vector<FileFeedRecord>& records) {
    records.clear();
    if (spare_.size() < kSpareArrays && records.capacity() > 0 &&
        records.capacity() <= kKeptRecords) {
        spare_.push_back(std::move(records));
    }
}

void FeedQueue::Push(FileFeedRecord record) {
    {
        std::scoped_lock lock(mutex_);
        if (batches_.empty()) {
            batches_.emplace_back();
        }
        batches_.back().push_back(std::move(record));
        ++queued_;
        ++pushed_;
    }
    available_.release();
}

void FeedQueue::Push(std::vector<FileFeedRecord>& records) {
    if (records.empty()) {
        return;
    }
    const auto count = static_cast<std::ptrdiff_t>(records.size());
    {
        std::scoped_lock lock(mutex_);
        queued_ += records.size();
        pushed_ += records.size();
        batches_.push_back(std::move(records));
        records = std::vector<FileFeedRecord>();
        if (!spare_.empty()) {
            records.swap(spare_.back());
            spare_.pop_back();
        }
    }
    available_.release(count);
}

std::optional<FileFeedRecord> FeedQueue::Pop(std::chrono::milliseconds timeout) {
    if (!available_.try_acquire_for(timeout)) {
        return std::nullopt;
    }
    std::scoped_lock lock(mutex_);
    // Clear() may have emptied the queue after the count was taken.
    if (queued_ == 0) {
        return std::nullopt;
    }
    return TakeFront();
}

std::size_t FeedQueue::Pop(std::vector<FileFeedRecord>& out, std::size_t most,
                           std::chrono::milliseconds timeout) {
    if (most == 0 || !available_.try_acquire_for(timeout)) {
        return 0;
    }
    std::scoped_lock lock(mutex_);
    // Clear() may have emptied the queue after the count was taken; a count left over from
    // cleared records is simply used up here.
    if (queued_ == 0) {
        return 0;
    }
    // From the oldest batch only: a batch taken whole changes hands as its array, without
    // moving a record. The rest of the count is taken without waiting, for what is there.
    auto& front = batches_.front();
    const std::size_t wanted = std::min(most, front.size() - head_);
    std::size_t counted = 1;
    while (counted < wanted && available_.try_acquire()) {
        ++counted;
    }
    if (head_ == 0 && counted == front.size() && out.empty()) {
        queued_ -= counted;
        out.swap(front);
        Recycle(front);
        batches_.pop_front();
        return counted;
    }
    for (std::size_t i = 0; i < counted; ++i) {
        out.push_back(TakeFront());
    }
    return counted;
}

void FeedQueue::Clear() {
    std::scoped_lock lock(mutex_);
    done_ += queued_;
    for (auto& batch : batches_) {
        Recycle(batch);
    }
    batches_.clear();
    head_ = 0;
    queued_ = 0;
    if (done_ >= pushed_) {
        drained_.notify_all();
    }
}

void FeedQueue::MarkDone(std::size_t count) {
    std::scoped_lock lock(mutex_);
    done_ += count;
    if (done_ >= pushed_) {
        drained_.notify_all();
    }
}

bool FeedQueue::Drained() const {
    std::scoped_lock lock(mutex_);
    return done_ >= pushed_;
}

bool FeedQueue::WaitDrained(std::chrono::steady_clock::time_point deadline) const {
    std::unique_lock lock(mutex_);
    return drained_.wait_until(lock, deadline, [this] { return done_ >= pushed_; });
}

std::size_t FeedQueue::Size() const {
    std::scoped_lock lock(mutex_);
    return queued_;
}

bool ReadFileTimes(FileFeedRecord& record) {
    struct statx info {};
    if (statx(AT_FDCWD, record.path.c_str(), 0,
              STATX_BTIME | STATX_MTIME | STATX_ATIME | STATX_CTIME | STATX_SIZE, &info) != 0) {
        const imaging::FileTime allOnes{~std::uint64_t{0}};
        record.creationTime = record.lastAccessTime = record.lastWriteTime = allOnes;
        record.timesKnown = false;
        return false;
    }
    record.lastWriteTime = FromTimestamp(info.stx_mtime);
    record.lastAccessTime = FromTimestamp(info.stx_atime);
    // Filesystems without a birth time give the inode change time instead.
    record.creationTime =
        FromTimestamp((info.stx_mask & STATX_BTIME) ? info.stx_btime : info.stx_ctime);
    record.size = info.stx_size;
    record.timesKnown = true;
    return true;
}

}  // namespace orvanta::list

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

// An emptied queue keeps its array up to this many records; a larger one, left by a big
// folder the feeder fell behind on, goes back to the heap.
constexpr std::size_t kKeptRecords = 4096;

}  // namespace

FileFeedRecord FeedQueue::TakeFront() {
    FileFeedRecord record = std::move(records_[head_++]);
    if (head_ == records_.size()) {
        Emptied();
    }
    return record;
}

void FeedQueue::Emptied() {
    if (records_.capacity() > kKeptRecords) {
        std::vector<FileFeedRecord>().swap(records_);
    } else {
        records_.clear();
    }
    head_ = 0;
}

void FeedQueue::Compact() {
    if (head_ > 0 && head_ >= Queued()) {
        records_.erase(records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(head_));
        head_ = 0;
    }
}

void FeedQueue::Push(FileFeedRecord record) {
    {
        std::scoped_lock lock(mutex_);
        Compact();
        records_.push_back(std::move(record));
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
        Compact();
        for (auto& record : records) {
            records_.push_back(std::move(record));
        }
        pushed_ += records.size();
    }
    records.clear();
    available_.release(count);
}

std::optional<FileFeedRecord> FeedQueue::Pop(std::chrono::milliseconds timeout) {
    if (!available_.try_acquire_for(timeout)) {
        return std::nullopt;
    }
    std::scoped_lock lock(mutex_);
    // Clear() may have emptied the queue after the count was taken.
    if (Queued() == 0) {
        return std::nullopt;
    }
    return TakeFront();
}

std::size_t FeedQueue::Pop(std::vector<FileFeedRecord>& out, std::size_t most,
                           std::chrono::milliseconds timeout) {
    if (most == 0 || !available_.try_acquire_for(timeout)) {
        return 0;
    }
    // The rest of the count is taken without waiting: only what is there already.
    std::size_t counted = 1;
    while (counted < most && available_.try_acquire()) {
        ++counted;
    }
    std::scoped_lock lock(mutex_);
    // Clear() may have emptied the queue after the count was taken; a count left over from
    // cleared records is simply used up here.
    const std::size_t taken = std::min(counted, Queued());
    for (std::size_t i = 0; i < taken; ++i) {
        out.push_back(TakeFront());
    }
    return taken;
}

void FeedQueue::Clear() {
    std::scoped_lock lock(mutex_);
    done_ += Queued();
    Emptied();
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
    return Queued();
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

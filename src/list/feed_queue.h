// The queue between the threads that find files (the folder scan and the folder watcher)
// and the list's feeder thread that adds them: unbounded, guarded by a mutex and counted by
// a semaphore so the feeder can wait with a timeout. Safe for any number of threads.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "platform/imaging/file_time.h"

namespace orvanta::list {

// One file found. The times are read only when the list's order needs them (the
// name-order scan reads none); `timesKnown` says whether they were.
struct FileFeedRecord {
    // Canonical full path. Kept as plain text: the scan makes one per file, and parsing it
    // into a path object would cost more than reading the directory entry.
    std::string path;
    std::uint32_t attributes = 0;
    bool timesKnown = false;
    imaging::FileTime creationTime;
    imaging::FileTime lastAccessTime;
    imaging::FileTime lastWriteTime;
    std::uint64_t size = 0;
};

class FeedQueue {
public:
    void Push(FileFeedRecord record);
    // Several records with one lock and one count: a scan hands over a folder's files in
    // batches, so the feeder is not woken once per file.
    void Push(std::vector<FileFeedRecord>& records);
    // The oldest record, or none when nothing arrived within `timeout`.
    std::optional<FileFeedRecord> Pop(std::chrono::milliseconds timeout);
    // Moves up to `most` of the oldest records to the end of `out` with one lock, waiting up
    // to `timeout` for the first; returns how many were moved (each to be marked done).
    std::size_t Pop(std::vector<FileFeedRecord>& out, std::size_t most,
                    std::chrono::milliseconds timeout);
    void Clear();
    // Lets a waiting Pop return at once (with nothing, when the queue is empty), so that a
    // consumer asked to stop need not sit out its timeout.
    void Wake() { available_.release(); }
    std::size_t Size() const;
    // The consumer calls this when it has dealt with a popped record; Drained() is true
    // when every record pushed has been dealt with or cleared.
    void MarkDone(std::size_t count = 1);
    bool Drained() const;
    // Waits until Drained() or `deadline`; true when drained.
    bool WaitDrained(std::chrono::steady_clock::time_point deadline) const;

private:
    // With the lock held.
    std::size_t Queued() const { return records_.size() - head_; }
    FileFeedRecord TakeFront();
    void Emptied();
    // Drops the records taken from the front once they are as many as the queued ones, so
    // that a queue never emptied does not grow without end.
    void Compact();

    mutable std::mutex mutex_;  // guards records_, head_ and the counts; a leaf lock
    // The records from head_ on are queued. One array rather than a deque: a deque takes
    // a block from the heap for every few records, and the feeder gives it back on another
    // thread; the array is reused once emptied.
    std::vector<FileFeedRecord> records_;
    std::size_t head_ = 0;
    std::uint64_t pushed_ = 0;
    std::uint64_t done_ = 0;
    mutable std::condition_variable drained_;  // signalled when done_ reaches pushed_
    std::counting_semaphore<> available_{0};
};

// Fills the times and size of `record` from the file (statx); false when it cannot be
// read, and then the times are all ones, as a watcher that could not read them reports.
bool ReadFileTimes(FileFeedRecord& record);

}  // namespace orvanta::list

// The queue between the threads that find files (the folder scan and the folder watcher)
// and the list's feeder thread that adds them: unbounded, guarded by a mutex and counted by
// a semaphore so the feeder can wait with a timeout. Safe for any number of threads.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "platform/imaging/file_time.h"

namespace orvanta::list {

// Where a record's base path stands against the one before it in its batch, when the scan
// sorted the batch by base path in logical order: the feeder then places a file next to
// the one before it without comparing the two again.
enum class FeedOrder : std::uint8_t {
    Unknown = 0,
    After,  // a later base path
    Same,   // the same one (a sibling file)
};

// One file found. The times are read only when the list's order needs them (the
// name-order scan reads none); `timesKnown` says whether they were.
struct FileFeedRecord {
    // Canonical full path. Kept as plain text: the scan makes one per file, and parsing it
    // into a path object would cost more than reading the directory entry.
    std::string path;
    std::uint32_t attributes = 0;
    bool timesKnown = false;
    FeedOrder order = FeedOrder::Unknown;
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
    // Moves up to `most` of the oldest records, all from the batch they were pushed in, to
    // the end of `out` with one lock, waiting up to `timeout` for the first; returns how
    // many were moved (each to be marked done). An empty `out` takes a whole batch by
    // exchanging arrays.
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
    FileFeedRecord TakeFront();
    // Keeps an emptied array for a later push to fill, unless enough are kept or it is large.
    void Recycle(std::vector<FileFeedRecord>& records);

    mutable std::mutex mutex_;  // guards what follows; a leaf lock
    // The queued records in the arrays they were pushed in (a single record joins the last
    // one), oldest first; the first array's records from head_ on. A batch changes hands
    // whole: pushing it and popping it as a whole move no records.
    std::deque<std::vector<FileFeedRecord>> batches_;
    std::size_t head_ = 0;
    std::size_t queued_ = 0;
    // Arrays the feeder emptied, handed to the next pusher of a batch in exchange for its
    // own, so that the scan and the feeder pass the same few arrays back and forth.
    std::vector<std::vector<FileFeedRecord>> spare_;
    std::uint64_t pushed_ = 0;
    std::uint64_t done_ = 0;
    mutable std::condition_variable drained_;  // signalled when done_ reaches pushed_
    std::counting_semaphore<> available_{0};
};

// Fills the times and size of `record` from the file (statx); false when it cannot be
// read, and then the times are all ones, as a watcher that could not read them reports.
bool ReadFileTimes(FileFeedRecord& record);

}  // namespace orvanta::list

// The queue of entries waiting for a decode worker, first in first out. Each request carries
// the entry and the ExtensionSet it had when it was queued (read under the list lock), so a
// worker never reads list-guarded fields while it decodes. The queue's length is its
// semaphore count: a take waits for both the lock and a request together, at most the given
// time, and wakes at once when the worker is asked to stop. A push when the queue holds the
// maximum is refused.
//
// Thread rules: guarded by its own mutex (after the cache lock in the lock order; nothing is
// called with it held except an entry's decode lock, tried without waiting).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

namespace orvanta::list {
struct PictureEntry;
}

namespace orvanta::decode {

struct DecodeRequest {
    list::PictureEntry* entry = nullptr;
    std::string extensionSet;
};

class DecodeRequestQueue {
public:
    static constexpr std::size_t kMaxCount = 0x7fffffff;

    explicit DecodeRequestQueue(std::size_t maxCount = kMaxCount) : maxCount_(maxCount) {}

    // False when the queue is full.
    bool Push(DecodeRequest request);
    // The oldest request, waiting up to `timeout` or until `stop` is requested. The take
    // succeeds only when the entry's decode lock can be had without waiting; the caller then
    // holds it. A request whose entry is locked elsewhere is dropped (the worker skips it).
    bool Take(std::chrono::milliseconds timeout, std::stop_token stop, DecodeRequest& out);
    // Drops every request for `entry`; how many there were.
    std::size_t Remove(const list::PictureEntry* entry);
    void Clear();
    std::size_t Size() const;
    // The queued entries, oldest first.
    std::vector<const list::PictureEntry*> Entries() const;

private:
    const std::size_t maxCount_;
    mutable std::mutex mutex_;  // guards requests_
    std::condition_variable_any arrived_;
    std::deque<DecodeRequest> requests_;
};

}  // namespace orvanta::decode

// The prefetch cache around the picture list's current entry and its decode workers. It
// keeps a window of decoded pictures, `ahead` entries after the current one and `behind`
// before it; every move re-plans the window, queues what it lacks (current, +1, +2, -1, +3,
// ...) and drops what fell out. A pool of one to eight workers takes the queued entries; a
// controller grows or shrinks the window after each decode against the measured memory
// load. The list reaches the cache through DecodeCacheHooks; the window code and tests call
// the operations below.
//
// Thread rules: the hooks run with the list lock held. The cache lock (mutex_) comes after
// the list lock and guards the window state and the decoded set; the statistics lock guards
// the size ring and is never held with another. A worker holds only its entry's decode lock
// (and a drive throttle) while it decodes, and takes no other lock before giving it back.
// Releasing an entry never blocks on a running decode: it aborts it and leaves the rest to a
// work item. Every entry in the decoded set is still in the list (the list's release hook
// takes it out first), so a worker may touch an entry after its decode only after finding
// it in the set under the cache lock.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "decode/decode_notices.h"
#include "decode/decode_request_queue.h"
#include "decode/drive_throttle.h"
#include "decode/entry_decoder.h"
#include "decode/window_controller.h"
#include "decode/window_plan.h"
#include "list/list_hooks.h"
#include "platform/sync/manual_reset_event.h"
#include "platform/sync/work_queue.h"
#include "platform/system/memory_status.h"

namespace orvanta::list {
class PictureList;
}

namespace orvanta::decode {

// The waits of the worker pool; tests shorten the long ones.
struct CacheTiming {
    std::chrono::milliseconds startStagger{3000};  // worker i starts i times this late
    std::chrono::milliseconds takeWait{250};       // a worker sees its stop request this soon
    std::chrono::milliseconds backOff{250};        // worker 0 after a memory failure
    std::chrono::milliseconds backOffOthers{60'000};
    std::chrono::milliseconds stopWait{30'000};  // workers that take longer are left running
};

struct CacheServices {
    EntryDecoder* decoder = nullptr;   // required
    DecodeNotices* notices = nullptr;  // required
    // The system's figures when none.
    const platform::MemoryStatusProvider* memory = nullptr;
    // 0: from DisableSMP, MemoryUsageGuideNumber and the processor cores.
    std::uint32_t workers = 0;
    bool accelerated = false;  // the accelerated presenter is in use (out-of-memory text)
    CacheTiming timing;
};

struct CacheStats {
    std::uint64_t decodes = 0;   // decodes that made a picture
    std::uint64_t failures = 0;  // decodes that did not (aborted ones included)
    std::uint64_t dropped = 0;   // pictures freed because they left the window
};

class DecodeCache final : public list::DecodeCacheHooks {
public:
    static constexpr std::uint32_t kMaxWorkers = 8;

    explicit DecodeCache(CacheServices services);
    ~DecodeCache() override;
    DecodeCache(const DecodeCache&) = delete;
    DecodeCache& operator=(const DecodeCache&) = delete;

    // The list this cache serves; set once, before the first move.
    void Attach(list::PictureList* list) { list_ = list; }
    // Starts the workers (the first begins at once, the others startStagger apart).
    void Start();

    // DecodeCacheHooks.
    void Reschedule(const list::ListWindow& window) override;
    void Release(list::PictureEntry& entry) override;
    void Changed(list::PictureEntry& entry) override;
    void RestartWorkers() override;

    // The first window from the memory that can be spent, MemoryUsageGuideNumber and
    // DownscaleLargeImages; then re-plans (queueing) when `reschedule`.
    void ResetWindow(bool reschedule);
    void SetWindow(WindowSize window);
    WindowState Window() const;
    // Re-plans the window around the list's current entry (takes the list lock).
    void Replan(bool adjustOnly);
    // Queues `entry` at once unless it is cached or its last decode failed, then makes it
    // current.
    void GoToEntry(list::PictureEntry& entry);
    // Drops `entry` from the queue and the cache, aborting its decode.
    void ReleaseEntry(list::PictureEntry& entry);
    // After each decode: records the size and grows or shrinks the window; false when
    // memory ran out and the window cannot shrink.
    bool AfterDecode(Result result, std::uint64_t pictureSize, bool skip = false);
    // Stops the workers (aborting running decodes) and frees every picture. False when a
    // worker did not end within the stop wait; it is joined when the cache is destroyed.
    bool ShutDown();

    std::uint32_t WorkerCount() const { return workerCount_; }
    std::uint32_t WorkerDelay(std::uint32_t worker) const;
    std::size_t CachedCount() const;
    bool IsCached(const list::PictureEntry& entry) const;
    // The queued entries, oldest first.
    std::vector<const list::PictureEntry*> Queued() const;
    CacheStats Stats() const;

private:
    struct Deferred {
        std::uint64_t ticket = 0;  // the release that still counts; 0: cancelled
        std::uint32_t outstanding = 0;
    };
    struct Worker {
        std::jthread thread;
        std::shared_ptr<platform::ManualResetEvent> ended;
    };

    void Plan(const list::ListWindow& window, bool adjustOnly);
    // With the cache lock held. Queues `entry` unless it is queued, decoding or decoded, or
    // (when `respectFailure`) its last decode failed.
    bool TryQueueLocked(list::PictureEntry& entry, std::string extensionSet, bool respectFailure);
    void ReleaseLocked(list::PictureEntry& entry);
    void ReleaseAllLocked();
    // With the entry's decode lock held: the picture goes and a queued decode is called off.
    void FreePicture(list::PictureEntry& entry);
    bool StopWorkers();

    void WorkerLoop(std::uint32_t index, std::stop_token stop);
    void DecodeOne(std::uint32_t index, DecodeRequest& request, std::stop_token stop);
    void BackOff(std::uint32_t index, std::stop_token stop);

    CacheServices services_;
    platform::SystemMemoryStatus systemMemory_;
    const platform::MemoryStatusProvider* memory_;
    list::PictureList* list_ = nullptr;
    std::uint32_t workerCount_ = 1;

    // The cache lock: guards the group below. After the list lock in the lock order.
    mutable std::mutex mutex_;
    std::condition_variable deferredDone_;
    WindowState window_;
    std::set<list::PictureEntry*> decoded_;
    // Entries wanted again while an aborted decode of theirs still ran.
    std::unordered_set<const list::PictureEntry*> revived_;
    std::unordered_map<const list::PictureEntry*, Deferred> deferred_;
    std::uint64_t nextTicket_ = 1;

    // The statistics lock: guards sizes_; never held with another lock.
    std::mutex statsMutex_;
    SizeRing sizes_;

    DecodeRequestQueue queue_;
    DriveThrottle throttle_;
    std::array<std::atomic<std::uint32_t>, kMaxWorkers> delays_{};
    std::atomic<std::int32_t> backingOff_{0};
    std::atomic<std::uint64_t> decodes_{0};
    std::atomic<std::uint64_t> failures_{0};
    std::atomic<std::uint64_t> dropped_{0};

    // The pool; changed only by Start, RestartWorkers and ShutDown on the owner's thread.
    std::vector<Worker> workers_;
    std::vector<std::jthread> leftOver_;  // workers that outlived a stop wait
    platform::WorkQueue releases_;        // deferred releases
};

}  // namespace orvanta::decode

// Finds the picture files of a folder and feeds them into the list's feed queue: a
// depth-first scan (a sub-folder is entered as soon as it is met, before the rest of its
// parent) on its own thread or the caller's, and a watcher on its own thread that feeds
// the files that appear later (written and closed, or renamed into the folder) and, with
// sub-folders, watches new sub-folders too. Network folders are scanned but never watched.
// The scan watches the sub-folders it meets for new names only; the watcher completes their
// watches once the files found are all handed over (watch_upgrades.h).
//
// Thread rules: SetFolder, Start and Stop are called by the list's owner on one thread;
// the scan and watch threads only push records and read the immutable settings of the run.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "list/feed_queue.h"
#include "list/watch_upgrades.h"
#include "platform/result.h"
#include "platform/shell/path_match.h"
#include "platform/sync/manual_reset_event.h"

namespace orvanta::list {

enum class EnumeratorStart {
    WatchOnly = 0,
    ScanThread = 1,  // watch, and scan on a thread of its own
    ScanHere = 2,    // watch, and scan on the calling thread before returning
};

struct EnumeratorOptions {
    bool subFolders = false;
    bool noWatching = false;
    bool readTimes = false;  // stat each file (the list is sorted by a time)
    std::string patterns;    // SupportedPatterns; empty: every file
    // Hand each batch over sorted by base path in logical order, the list's name order, so
    // that the list can insert each file next to the one before it. The sort runs on the
    // scan thread, beside the feeder.
    bool nameOrder = false;
    // With it, an event-queue overflow makes the watcher rescan and feed the files for
    // which this returns false (files the list does not hold yet).
    std::function<bool(const std::filesystem::path&)> isListed;
};

class FolderEnumerator {
public:
    explicit FolderEnumerator(FeedQueue& queue) : queue_(queue) {}
    ~FolderEnumerator() { Stop(false); }
    FolderEnumerator(const FolderEnumerator&) = delete;
    FolderEnumerator& operator=(const FolderEnumerator&) = delete;

    // E_INVALIDARG when `folder` is not a directory; E_ACCESSDENIED for a network folder
    // unless noWatching is set; E_UNEXPECTED while running.
    Result SetFolder(const std::filesystem::path& folder, EnumeratorOptions options);
    // E_UNEXPECTED when running or no folder is set; a watch that cannot be set up ends
    // silently (the folder is still scanned).
    Result Start(EnumeratorStart mode);
    // Stops the scan and the watch and waits for both; optionally empties the feed queue.
    void Stop(bool emptyQueue);

    // Walks the folder again and feeds the files isListed() does not know: what the watcher
    // does when the kernel's event queue overflowed and events were lost.
    void FeedMissing() { Walk(folder_.string(), true); }

    bool ScanFinished() const { return scanFinished_.IsSet(); }
    bool WaitScanFinished(std::chrono::milliseconds timeout) const {
        return scanFinished_.WaitFor(timeout);
    }
    bool Watching() const { return watching_.load(std::memory_order_relaxed); }
    const std::filesystem::path& Folder() const { return folder_; }

private:
    // Walks `folder` depth first, pushing matching files; `missingOnly` pushes only files
    // isListed() does not know. Adds a watch on every directory entered when watching (for
    // new names only in the opening scan).
    void Walk(const std::string& folder, bool missingOnly);
    struct SortKey {
        // The first bytes of the key as a number (zeros past its end): most comparisons of
        // names in one folder end there.
        std::uint64_t head;
        std::uint32_t at;
        std::uint32_t size;
        std::uint32_t record;
    };
    // The files found and not yet handed over: those of the folder being read, and those
    // of the folders read before it (each folder's sorted in name order), and how many
    // make a batch.
    struct Batch {
        std::vector<FileFeedRecord> records;
        std::vector<FileFeedRecord> ready;
        std::size_t size = 0;
        bool limitedWatches = false;
        // Room to sort in, kept from one batch to the next: the sort keys one after another,
        // and where each key is.
        std::string keyText;
        std::vector<SortKey> keys;
        // A buffer to read directory entries into for each depth of the walk.
        std::vector<std::unique_ptr<std::byte[]>> buffers;
        std::size_t depth = 0;
    };
    void Walk(const std::string& folder, bool missingOnly, Batch& batch);
    void Scan();
    void WatchLoop(std::stop_token stop);
    // Reads the queued events until none is left; false when the watch broke.
    bool ReadEvents(std::span<char> buffer);
    // The watcher's step once the list is complete: full watches for a few more of the
    // folders the scan watched for names only, and the files made unseen fed.
    void CompleteWatches();
    void AddWatch(const std::filesystem::path& folder, bool limited = false);
    std::uint32_t FullMask() const;
    void Feed(std::string path, Batch& batch);
    // Hands over the files found; the first batch goes at once, later ones wait until they
    // are worth waking the feeder for, unless `all`.
    void Push(Batch& batch, bool all = true);
    // Moves the files of the folder being read behind the ready ones.
    void EndFolder(Batch& batch) const;
    static void SortByBasePath(Batch& batch);

    FeedQueue& queue_;
    std::filesystem::path folder_;
    EnumeratorOptions options_;
    std::unique_ptr<shell::PatternMatcher> matcher_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> running_{false};
    std::atomic<bool> watching_{false};
    platform::ManualResetEvent scanFinished_;
    int inotify_ = -1;
    std::mutex watchesMutex_;  // guards watches_ and upgrades_; a leaf lock
    std::unordered_map<int, std::filesystem::path> watches_;
    WatchUpgrades upgrades_;
    // The scan thread's batch, kept from one opening to the next with the room it grew.
    Batch scanBatch_;
    std::jthread scanThread_;
    std::jthread watchThread_;
};

}  // namespace orvanta::list

// The mark writer: one background thread that stores each new mark in every place the
// settings ask for, in a fixed order: the rating prefix of the file names, the XMP sidecar,
// then the picture files themselves. Requests are served strictly in arrival order and
// never merged; a failure is told through the notices and the writer goes on with the
// next request. When no place took the mark, the entry's mark goes back to unset.
//
// Thread rules: Queue, HasWork and Stop may be called from any thread (the user-interface
// thread in the program); the queue is guarded by the writer's own mutex, a leaf lock
// taken before no other. The thread reaches the list only through its locked calls.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "marks/mark_request.h"
#include "marks/mark_stores.h"
#include "marks/mark_writer_notices.h"
#include "platform/result.h"

namespace orvanta::list {
class PictureList;
}

namespace orvanta::marks {

// Which stores a request goes to; by default what the settings say when it is served.
struct StoreChoice {
    bool sidecar = false;
    bool embedded = false;
    bool prefix = false;  // plain ratings only
};
StoreChoice StoreChoiceFromSettings();

// The files a request is about: the base path and its ";"-joined extensions.
struct MarkTarget {
    std::string basePath;
    std::string extensionSet;
};

// What one store did with one file, for orvanta-cli's report.
struct StoreOutcome {
    enum class Store { Prefix, Sidecar, Embedded };
    Store store = Store::Sidecar;
    std::string path;
    Result result;
};

class MarkWriter {
public:
    // `list` (none for orvanta-cli) is where renamed entries are re-keyed and failed marks
    // reset.
    MarkWriter(MarkStores& stores, MarkWriterNotices& notices, list::PictureList* list);
    ~MarkWriter();
    MarkWriter(const MarkWriter&) = delete;
    MarkWriter& operator=(const MarkWriter&) = delete;

    void Start();
    // Asks the thread to end and joins it; a request being served is finished first, the
    // ones still queued are dropped.
    void Stop();
    bool Running() const { return thread_.joinable(); }

    // Appends a request for `target` (taken from the entry by the caller, on the thread
    // that set the mark) and wakes the thread. `choice` overrides the settings.
    void Queue(const MarkRequest& request, MarkTarget target,
               std::optional<StoreChoice> choice = std::nullopt);
    // True while requests wait or one is being served.
    bool HasWork() const;

    // Serves one request on the calling thread, as the thread would (orvanta-cli).
    std::vector<StoreOutcome> Serve(const MarkRequest& request, MarkTarget target,
                                    const StoreChoice& choice);

    // A held file is tried again after this long, up to kSharingTries times in all.
    void SetSharingRetryDelay(std::chrono::milliseconds delay) { retryDelay_ = delay; }
    static constexpr int kSharingTries = 100;

private:
    struct Item {
        MarkRequest request;
        MarkTarget target;
        std::optional<StoreChoice> choice;
    };

    void Run(std::stop_token stop);
    void Tell(int textId, int titleId, MessageIcon icon, std::vector<i18n::FormatArg> arguments);
    bool RenameWithPrefix(const MarkRequest& request, MarkTarget& target,
                          std::vector<StoreOutcome>& outcomes);
    void ResetMark(const MarkRequest& request, const MarkTarget& target);

    MarkStores& stores_;
    MarkWriterNotices& notices_;
    list::PictureList* list_;
    std::chrono::milliseconds retryDelay_{100};

    mutable std::mutex mutex_;  // guards queue_ and busy_
    std::condition_variable_any arrived_;
    std::deque<Item> queue_;
    bool busy_ = false;
    std::jthread thread_;
};

// Sets the entry's mark at once (on every frame of a multi-frame file) and queues its
// storage. E_UNEXPECTED without a writer, E_INVALIDARG without an entry.
Result QueueMarkWrite(list::PictureList& list, MarkWriter* writer, list::PictureEntry* entry,
                      std::uint32_t value, bool isLabel, std::uint32_t convention, bool isUrgency);

}  // namespace orvanta::marks

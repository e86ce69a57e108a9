#include "decode/decode_cache.h"

#include <algorithm>
#include <unordered_set>

#include "list/picture_entry.h"
#include "list/picture_list.h"
#include "platform/system/processor_cores.h"
#include "settings/settings.h"

namespace orvanta::decode {

namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

// An aborted decode says nothing about the picture: only a real failure keeps a current
// entry from being queued again by a move.
bool LastDecodeFailed(const list::PictureEntry& entry) {
    const Result last{static_cast<std::uint32_t>(entry.decodeResult)};
    return last.Failed() && last != E_ABORT;
}

std::uint32_t FirstDelay(std::uint32_t worker) {
    return 8 * (worker + 1);
}

}  // namespace

DecodeCache::DecodeCache(CacheServices services)
    : services_(std::move(services)),
      memory_(services_.memory ? services_.memory : &systemMemory_) {
    workerCount_ =
        services_.workers != 0
            ? std::min(services_.workers, kMaxWorkers)
            : decode::WorkerCount(settings::DisableSMP.On(), settings::MemoryUsageGuideNumber.Get(),
                                  platform::ProcessorCoreCount());
    for (std::uint32_t i = 0; i < kMaxWorkers; ++i) {
        delays_[i].store(FirstDelay(i), std::memory_order_relaxed);
    }
}

DecodeCache::~DecodeCache() {
    ShutDown();
    leftOver_.clear();  // joins workers that outlived the stop wait
    releases_.Drain();
}

void DecodeCache::Start() {
    if (!workers_.empty()) {
        return;
    }
    for (std::uint32_t i = 0; i < workerCount_; ++i) {
        Worker worker;
        worker.ended = std::make_shared<platform::ManualResetEvent>();
        worker.thread = std::jthread([this, i, ended = worker.ended](std::stop_token stop) {
            WorkerLoop(i, stop);
            ended->Set();
        });
        workers_.push_back(std::move(worker));
    }
}

void DecodeCache::Reschedule(const list::ListWindow& window) {
    Plan(window, false);
}

void DecodeCache::Replan(bool adjustOnly) {
    if (list_ != nullptr) {
        list_->VisitWindow([&](const list::ListWindow& window) { Plan(window, adjustOnly); });
    }
}

void DecodeCache::Plan(const list::ListWindow& window, bool adjustOnly) {
    list::PictureEntry* current = window.Current();
    if (current == nullptr || window.Count() == 0) {
        return;
    }
    const bool clip = !settings::WrapImageList.On() || window.TransferPending();
    std::scoped_lock lock(mutex_);
    const WindowSize size =
        ClipWindow({window_.ahead, window_.behind}, window.Position(), window.Count(), clip);
    for (std::uint32_t i = 0; i < kMaxWorkers; ++i) {
        delays_[i].store(FirstDelay(i), std::memory_order_relaxed);
    }
    const std::vector<list::PictureEntry*> order = WindowOrder(window, size);
    if (!adjustOnly) {
        for (list::PictureEntry* entry : order) {
            TryQueueLocked(*entry, entry->extensionSet, entry == current);
        }
    }
    const std::unordered_set<const list::PictureEntry*> wanted(order.begin(), order.end());
    for (auto it = decoded_.begin(); it != decoded_.end();) {
        list::PictureEntry* entry = *it;
        if (wanted.contains(entry)) {
            ++it;
            continue;
        }
        it = decoded_.erase(it);
        ReleaseLocked(*entry);
    }
}

bool DecodeCache::TryQueueLocked(list::PictureEntry& entry, std::string extensionSet,
                                 bool respectFailure) {
    // Queued, being decoded or decoded: every such entry is in the set.
    if (decoded_.contains(&entry)) {
        return false;
    }
    const auto deferred = deferred_.find(&entry);
    if (entry.decoding.load()) {
        // Let go while its decode ran and wanted again before that decode saw the abort:
        // it counts as cached again, and is queued anew if the decode ends aborted.
        decoded_.insert(&entry);
        revived_.insert(&entry);
        if (deferred != deferred_.end()) {
            deferred->second.ticket = 0;
        }
        return false;
    }
    if (respectFailure && LastDecodeFailed(entry)) {
        return false;
    }
    if (deferred != deferred_.end()) {
        deferred->second.ticket = 0;  // wanted again before its deferred release ran
    }
    entry.decodeResult = 0;
    entry.abortFlag.store(0);
    entry.decoding.store(true);
    if (!queue_.Push({&entry, std::move(extensionSet)})) {
        entry.decoding.store(false);
        return false;
    }
    decoded_.insert(&entry);
    return true;
}

void DecodeCache::ReleaseLocked(list::PictureEntry& entry) {
    revived_.erase(&entry);
    std::unique_lock decodeLock(entry.decodeLock, std::try_to_lock);
    if (decodeLock.owns_lock()) {
        FreePicture(entry);
        return;
    }
    // A worker is decoding it: ask the decode to stop and free the picture once it has.
    entry.abortFlag.store(1);
    Deferred& deferred = deferred_[&entry];
    const std::uint64_t ticket = nextTicket_++;
    deferred.ticket = ticket;
    ++deferred.outstanding;
    list::PictureEntry* target = &entry;
    releases_.Submit([this, target, ticket] {
        std::scoped_lock decodeLock(target->decodeLock);
        {
            std::scoped_lock lock(mutex_);
            const auto it = deferred_.find(target);
            if (it->second.ticket == ticket && !decoded_.contains(target)) {
                FreePicture(*target);
            }
            if (--it->second.outstanding == 0) {
                deferred_.erase(it);
            }
        }
        deferredDone_.notify_all();
    });
}

void DecodeCache::FreePicture(list::PictureEntry& entry) {
    queue_.Remove(&entry);
    if (entry.decoding.load()) {
        entry.decoding.store(false);
        entry.abortFlag.store(1);
    }
    if (entry.decodedPicture) {
        dropped_.fetch_add(1, std::memory_order_relaxed);
    }
    entry.decodedPicture.reset();
    entry.systemMemoryCopy.reset();
}

void DecodeCache::ReleaseAllLocked() {
    for (list::PictureEntry* entry : decoded_) {
        ReleaseLocked(*entry);
    }
    decoded_.clear();
    revived_.clear();
}

void DecodeCache::ReleaseEntry(list::PictureEntry& entry) {
    std::scoped_lock lock(mutex_);
    decoded_.erase(&entry);
    ReleaseLocked(entry);
}

void DecodeCache::Release(list::PictureEntry& entry) {
    // The entry is about to be destroyed: no work item may still be waiting to touch it.
    std::unique_lock lock(mutex_);
    decoded_.erase(&entry);
    revived_.erase(&entry);
    queue_.Remove(&entry);
    deferredDone_.wait(lock, [&] { return !deferred_.contains(&entry); });
    entry.decoding.store(false);
}

void DecodeCache::Changed(list::PictureEntry& entry) {
    std::scoped_lock lock(mutex_);
    decoded_.erase(&entry);
    revived_.erase(&entry);
    queue_.Remove(&entry);
    if (const auto it = deferred_.find(&entry); it != deferred_.end()) {
        it->second.ticket = 0;  // the list dropped the picture itself
    }
    entry.decoding.store(false);
}

void DecodeCache::GoToEntry(list::PictureEntry& entry) {
    if (list_ == nullptr) {
        return;
    }
    // The extension set is read under the list lock.
    list_->VisitWindow([&](const list::ListWindow&) {
        std::scoped_lock lock(mutex_);
        if (!decoded_.contains(&entry)) {
            TryQueueLocked(entry, entry.extensionSet, true);
        }
    });
    list_->MakeCurrent(entry);
}

void DecodeCache::ResetWindow(bool reschedule) {
    const platform::MemoryFigures figures = memory_->Read();
    const WindowSize size =
        InitialWindow(settings::MemoryUsageGuideNumber.Get(), figures.available / kMiB,
                      settings::DownscaleLargeImages.Get());
    {
        std::scoped_lock lock(mutex_);
        window_.ahead = size.ahead;
        window_.behind = size.behind;
        window_.pendingAhead = 0;
        window_.pendingBehind = 0;
        window_.growCounter = 0;
    }
    if (reschedule) {
        Replan(false);
    }
}

void DecodeCache::SetWindow(WindowSize window) {
    std::scoped_lock lock(mutex_);
    window_.ahead = window.ahead;
    window_.behind = window.behind;
}

WindowState DecodeCache::Window() const {
    std::scoped_lock lock(mutex_);
    return window_;
}

bool DecodeCache::AfterDecode(Result result, std::uint64_t pictureSize, bool skip) {
    if (skip) {
        return true;
    }
    std::uint64_t mean = 0;
    {
        std::scoped_lock lock(statsMutex_);
        if (pictureSize != 0) {
            sizes_.Record(pictureSize);
        }
        mean = sizes_.Mean();
    }
    ControlInput input;
    input.result = result;
    input.guide = settings::MemoryUsageGuideNumber.Get();
    input.memory = memory_->Read();
    input.meanSize = mean;
    ControlOutcome outcome;
    {
        std::scoped_lock lock(mutex_);
        input.cachedCount = decoded_.size();
        outcome = ControlWindow(window_, input);
    }
    if (outcome.reschedule) {
        Replan(true);
    }
    return outcome.ok;
}

bool DecodeCache::StopWorkers() {
    {
        // Running decodes stop at their next check instead of finishing a picture nobody
        // will see.
        std::scoped_lock lock(mutex_);
        for (list::PictureEntry* entry : decoded_) {
            if (entry->decoding.load()) {
                entry->abortFlag.store(1);
            }
        }
    }
    for (Worker& worker : workers_) {
        worker.thread.request_stop();
    }
    const auto deadline = std::chrono::steady_clock::now() + services_.timing.stopWait;
    bool allEnded = true;
    for (Worker& worker : workers_) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (worker.ended->WaitFor(std::max(left, std::chrono::milliseconds(0)))) {
            worker.thread.join();
        } else {
            allEnded = false;
            leftOver_.push_back(std::move(worker.thread));
        }
    }
    workers_.clear();
    backingOff_.store(0);
    queue_.Clear();
    return allEnded;
}

void DecodeCache::RestartWorkers() {
    StopWorkers();
    {
        std::scoped_lock lock(mutex_);
        ReleaseAllLocked();
    }
    // The list is about to destroy its entries: the deferred releases must be done.
    releases_.Drain();
    Start();
}

bool DecodeCache::ShutDown() {
    const bool ended = StopWorkers();
    {
        std::scoped_lock lock(mutex_);
        ReleaseAllLocked();
    }
    return ended;
}

std::uint32_t DecodeCache::WorkerDelay(std::uint32_t worker) const {
    return worker < kMaxWorkers ? delays_[worker].load(std::memory_order_relaxed) : 0;
}

std::size_t DecodeCache::CachedCount() const {
    std::scoped_lock lock(mutex_);
    return decoded_.size();
}

bool DecodeCache::IsCached(const list::PictureEntry& entry) const {
    std::scoped_lock lock(mutex_);
    return decoded_.contains(const_cast<list::PictureEntry*>(&entry));
}

std::vector<const list::PictureEntry*> DecodeCache::Queued() const {
    return queue_.Entries();
}

CacheStats DecodeCache::Stats() const {
    return {decodes_.load(), failures_.load(), dropped_.load()};
}

}  // namespace orvanta::decode

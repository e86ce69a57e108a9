// The decode workers of the cache: each takes the next queued entry, decodes it and hands
// the outcome to the window controller.
#include <condition_variable>
#include <mutex>

#include "decode/decode_cache.h"
#include "list/picture_entry.h"
#include "list/supported_formats.h"
#include "marks/apply_metadata_marks.h"
#include "metadata/picture_metadata.h"

namespace orvanta::decode {

namespace {

// Waits `duration` unless a stop is requested first; true when it was.
bool WaitForStop(std::stop_token stop, std::chrono::milliseconds duration) {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_for(lock, stop, duration, [] { return false; });
    return stop.stop_requested();
}

}  // namespace

void DecodeCache::WorkerLoop(std::uint32_t index, std::stop_token stop) {
    // The first picture is not slowed down by the others starting at once.
    if (index > 0 && WaitForStop(stop, services_.timing.startStagger * index)) {
        return;
    }
    while (!stop.stop_requested()) {
        DecodeRequest request;
        if (!queue_.Take(services_.timing.takeWait, stop, request)) {
            continue;
        }
        // The visible picture goes to worker 0 first; the others start a little later, and
        // sooner with every entry they take.
        const std::uint32_t delay = delays_[index].load(std::memory_order_relaxed);
        if (WaitForStop(stop, std::chrono::milliseconds(delay))) {
            request.entry->decodeLock.unlock();
            return;
        }
        delays_[index].store(index <= delay / 2 ? delay / 2 : index, std::memory_order_relaxed);
        DecodeOne(index, request, stop);
    }
}

void DecodeCache::DecodeOne(std::uint32_t index, DecodeRequest& request, std::stop_token stop) {
    list::PictureEntry& entry = *request.entry;
    const list::SiblingChoice sibling = list::ChooseSibling(request.extensionSet);
    Result result = E_FAIL;
    {
        const DriveThrottle::Pass pass =
            throttle_.Enter(std::filesystem::path(entry.BasePathCopy() + "." + sibling.extension));
        result = services_.decoder->Decode(entry, sibling.extension, sibling.raw);
    }
    std::uint64_t size = 0;
    if (result.Succeeded() && entry.decodedPicture) {
        size = entry.decodedPicture->CountedBytes();
    }
    if (result == S_OK) {
        decodes_.fetch_add(1, std::memory_order_relaxed);
        if (entry.metadata) {
            marks::ApplyMetadataMarks(entry, *entry.metadata);
        }
        entry.decoding.store(false);
        entry.decodeLock.unlock();
        {
            std::scoped_lock lock(mutex_);
            revived_.erase(&entry);
        }
        AfterDecode(result, size);
        if (index >= 1) {
            while (backingOff_.load() > 0 && !WaitForStop(stop, services_.timing.backOffOthers)) {
            }
        }
        return;
    }

    failures_.fetch_add(1, std::memory_order_relaxed);
    entry.decoding.store(false);
    entry.decodeLock.unlock();
    const bool memoryFailure = IsMemoryFailure(result);
    {
        // Only an entry still in the set is sure to be alive: the list takes entries out of
        // the set before it destroys them.
        std::scoped_lock lock(mutex_);
        const bool revived = revived_.erase(&entry) != 0 && result == E_ABORT;
        if (decoded_.erase(&entry) != 0 && (memoryFailure || revived)) {
            // Queued again at once, so that the entry is not lost while the window shrinks;
            // the controller's re-plan drops it if it no longer fits.
            TryQueueLocked(entry, request.extensionSet, false);
        }
    }
    if (AfterDecode(result, size)) {
        if (memoryFailure) {
            BackOff(index, stop);
        }
        return;
    }
    {
        std::scoped_lock lock(mutex_);
        if (queue_.Remove(&entry) != 0) {
            decoded_.erase(&entry);
            entry.decoding.store(false);
        }
    }
    services_.notices->MemoryRanOut46F();
    services_.notices->OutOfMemoryMessage(services_.accelerated ? MemoryTextId::kAccelerated
                                                                : MemoryTextId::kRaster);
    BackOff(index, stop);
}

void DecodeCache::BackOff(std::uint32_t index, std::stop_token stop) {
    if (index == 0) {
        WaitForStop(stop, services_.timing.backOff);
        return;
    }
    backingOff_.fetch_add(1);
    bool stopped = WaitForStop(stop, services_.timing.backOffOthers);
    backingOff_.fetch_sub(1);
    while (!stopped && backingOff_.load() > 0) {
        stopped = WaitForStop(stop, services_.timing.backOffOthers);
    }
}

}  // namespace orvanta::decode

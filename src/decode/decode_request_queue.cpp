#include "decode/decode_request_queue.h"

#include <algorithm>

#include "list/picture_entry.h"

namespace orvanta::decode {

bool DecodeRequestQueue::Push(DecodeRequest request) {
    {
        std::scoped_lock lock(mutex_);
        if (requests_.size() >= maxCount_) {
            return false;
        }
        requests_.push_back(std::move(request));
    }
    arrived_.notify_one();
    return true;
}

bool DecodeRequestQueue::Take(std::chrono::milliseconds timeout, std::stop_token stop,
                              DecodeRequest& out) {
    std::unique_lock lock(mutex_);
    if (!arrived_.wait_for(lock, stop, timeout, [this] { return !requests_.empty(); })) {
        return false;
    }
    DecodeRequest request = std::move(requests_.front());
    requests_.pop_front();
    if (!request.entry->decodeLock.try_lock()) {
        return false;
    }
    out = std::move(request);
    return true;
}

std::size_t DecodeRequestQueue::Remove(const list::PictureEntry* entry) {
    std::scoped_lock lock(mutex_);
    return std::erase_if(requests_,
                         [entry](const DecodeRequest& request) { return request.entry == entry; });
}

void DecodeRequestQueue::Clear() {
    std::scoped_lock lock(mutex_);
    requests_.clear();
}

std::size_t DecodeRequestQueue::Size() const {
    std::scoped_lock lock(mutex_);
    return requests_.size();
}

std::vector<const list::PictureEntry*> DecodeRequestQueue::Entries() const {
    std::scoped_lock lock(mutex_);
    std::vector<const list::PictureEntry*> entries;
    for (const DecodeRequest& request : requests_) {
        entries.push_back(request.entry);
    }
    return entries;
}

}  // namespace orvanta::decode

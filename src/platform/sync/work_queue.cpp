#include "platform/sync/work_queue.h"

namespace orvanta::platform {

WorkQueue::WorkQueue(unsigned threads) {
    for (unsigned i = 0; i < (threads == 0 ? 1 : threads); ++i) {
        threads_.emplace_back([this](std::stop_token stop) { Run(stop); });
    }
}

WorkQueue::~WorkQueue() {
    Drain();
    for (auto& thread : threads_) {
        thread.request_stop();
    }
    wake_.notify_all();
    threads_.clear();
}

void WorkQueue::Submit(std::function<void()> item) {
    {
        std::scoped_lock lock(mutex_);
        items_.push_back(std::move(item));
    }
    wake_.notify_one();
}

void WorkQueue::Drain() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return items_.empty() && running_ == 0; });
}

void WorkQueue::Run(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    while (true) {
        if (!wake_.wait(lock, stop, [this] { return !items_.empty(); })) {
            return;
        }
        std::function<void()> item = std::move(items_.front());
        items_.pop_front();
        ++running_;
        lock.unlock();
        item();
        lock.lock();
        --running_;
        if (items_.empty() && running_ == 0) {
            idle_.notify_all();
        }
    }
}

}  // namespace orvanta::platform

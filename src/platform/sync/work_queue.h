// A small pool of threads for short work items that must not run on the caller's thread
// (a release that has to wait for a running decode). Items run in submission order on the
// first free thread. Drain() waits until every item submitted so far has run; the
// destructor drains and joins.
//
// Thread rules: Submit and Drain may be called from any thread, but not from inside an item.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace orvanta::platform {

class WorkQueue {
public:
    explicit WorkQueue(unsigned threads = 1);
    ~WorkQueue();
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    void Submit(std::function<void()> item);
    void Drain();

private:
    void Run(std::stop_token stop);

    std::mutex mutex_;  // guards items_ and running_; a leaf lock
    std::condition_variable_any wake_;
    std::condition_variable idle_;
    std::deque<std::function<void()>> items_;
    std::uint32_t running_ = 0;
    std::vector<std::jthread> threads_;
};

}  // namespace orvanta::platform

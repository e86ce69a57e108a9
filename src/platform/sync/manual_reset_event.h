// A manual-reset event: once set it stays set, releasing every waiter, until reset. Used
// where one thread announces a state (a scan finished, a watch ended) that others wait for
// or poll. Safe for any number of threads.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace orvanta::platform {

class ManualResetEvent {
public:
    void Set() {
        {
            std::scoped_lock lock(mutex_);
            set_ = true;
        }
        changed_.notify_all();
    }
    void Reset() {
        std::scoped_lock lock(mutex_);
        set_ = false;
    }
    bool IsSet() const {
        std::scoped_lock lock(mutex_);
        return set_;
    }
    void Wait() const {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return set_; });
    }
    // True when the event was set within `timeout`.
    bool WaitFor(std::chrono::milliseconds timeout) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [this] { return set_; });
    }

private:
    mutable std::mutex mutex_;  // guards set_; a leaf lock
    mutable std::condition_variable changed_;
    bool set_ = false;
};

}  // namespace orvanta::platform

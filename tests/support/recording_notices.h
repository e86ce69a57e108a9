// A ListNotices that records every notice, for tests of the picture list: each call is kept
// in arrival order with its arguments, and a test can wait until a condition over the
// record holds (the feeder and watcher threads call in from elsewhere). Thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "list/list_notices.h"

namespace orvanta::test {

struct RecordedNotice {
    int message = 0;          // 0x464, 0x46A, ...; 0 for a beep
    std::uint32_t count = 0;  // list grew, new shot
    std::uint32_t delay = 0;  // list grew
    int textId = 0;           // status text
    std::string basePath;     // new shot, entry removed, entry changed
    list::BeepKind beep = list::BeepKind::Exclamation;
};

class RecordingNotices final : public list::ListNotices {
public:
    void ListGrew464(std::uint32_t count, std::uint32_t delay) override;
    void StatusText46A(int textId) override;
    void NewShot46B(std::uint32_t count, std::string basePath) override;
    void EntryRemoved479(const list::PictureEntry& entry) override;
    void EntryChanged483(const list::PictureEntry& entry) override;
    void Beep(list::BeepKind kind) override;

    std::vector<RecordedNotice> All() const;
    std::vector<RecordedNotice> Of(int message) const;
    void Clear();
    // True when `done` held within `timeout` (checked on every notice).
    bool WaitFor(const std::function<bool(const std::vector<RecordedNotice>&)>& done,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

    static constexpr int kBeep = 0;

private:
    void Record(RecordedNotice notice);

    mutable std::mutex mutex_;  // guards notices_; a leaf lock
    mutable std::condition_variable changed_;
    std::vector<RecordedNotice> notices_;
};

}  // namespace orvanta::test

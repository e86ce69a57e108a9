#include "support/recording_notices.h"

#include "list/picture_entry.h"

namespace orvanta::test {

void RecordingNotices::Record(RecordedNotice notice) {
    {
        std::scoped_lock lock(mutex_);
        notices_.push_back(std::move(notice));
    }
    changed_.notify_all();
}

void RecordingNotices::ListGrew464(std::uint32_t count, std::uint32_t delay) {
    Record({0x464, count, delay, 0, {}, {}});
}

void RecordingNotices::StatusText46A(int textId) {
    Record({0x46A, 0, 0, textId, {}, {}});
}

void RecordingNotices::NewShot46B(std::uint32_t count, std::string basePath) {
    Record({0x46B, count, 0, 0, std::move(basePath), {}});
}

void RecordingNotices::EntryRemoved479(const list::PictureEntry& entry) {
    Record({0x479, 0, 0, 0, list::KeyName(entry), {}});
}

void RecordingNotices::EntryChanged483(const list::PictureEntry& entry) {
    Record({0x483, 0, 0, 0, list::KeyName(entry), {}});
}

void RecordingNotices::Beep(list::BeepKind kind) {
    Record({kBeep, 0, 0, 0, {}, kind});
}

std::vector<RecordedNotice> RecordingNotices::All() const {
    std::scoped_lock lock(mutex_);
    return notices_;
}

std::vector<RecordedNotice> RecordingNotices::Of(int message) const {
    std::scoped_lock lock(mutex_);
    std::vector<RecordedNotice> out;
    for (const auto& notice : notices_) {
        if (notice.message == message) {
            out.push_back(notice);
        }
    }
    return out;
}

void RecordingNotices::Clear() {
    std::scoped_lock lock(mutex_);
    notices_.clear();
}

bool RecordingNotices::WaitFor(const std::function<bool(const std::vector<RecordedNotice>&)>& done,
                               std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return done(notices_); });
}

}  // namespace orvanta::test

// What the decode cache tells the main window: one method per notice, each named and
// numbered after the window message it stands for. The window implements them with queued
// calls (the waiting and wait-over notices block until handled, as they are sent), tests and
// orvanta-cli with recorders.
//
// Thread rules: the waiting notices come from the user-interface thread that waits; the
// memory notices from a decode worker, which holds no lock while it calls them.
#pragma once

namespace orvanta::list {
struct PictureEntry;
}

namespace orvanta::decode {

// Out-of-memory texts, loaded by id from the language module: 10131 with a stop icon when
// the accelerated presenter is in use, 10132 with an exclamation icon otherwise.
struct MemoryTextId {
    static constexpr int kAccelerated = 10131;
    static constexpr int kRaster = 10132;
};

class DecodeNotices {
public:
    virtual ~DecodeNotices() = default;
    // 0x467: the window starts waiting for `entry`'s picture.
    virtual void Waiting467(const list::PictureEntry& entry) = 0;
    // 0x468: the wait is over; `abortedWithoutPicture` when the decode was aborted and no
    // picture came.
    virtual void WaitOver468(bool abortedWithoutPicture, const list::PictureEntry& entry) = 0;
    // 0x46F: memory ran out and the window cannot shrink; the window leaves full-screen
    // states before the message that follows.
    virtual void MemoryRanOut46F() = 0;
    // The out-of-memory message box (title 100, task-modal, topmost).
    virtual void OutOfMemoryMessage(int textId) = 0;
};

}  // namespace orvanta::decode

// What the picture list tells the main window. One method per notice, each named and
// numbered after the window message it stands for; the window implements them with queued
// calls (posted) or a blocking queued call (sent), tests and orvanta-cli with recorders.
//
// Thread rules: called from the feeder thread (list grew, new shot, entry changed), the
// opening thread (status text) and whichever thread moves or removes (beeps, entry
// removed). EntryRemoved is the one sent notice: it runs while the list lock is held, so
// it must not call back into the list from another thread.
#pragma once

#include <cstdint>
#include <string>

namespace orvanta::list {

struct PictureEntry;

// Status texts, loaded by id from the language module.
struct StatusTextId {
    static constexpr int kFolderUnreadable = 10127;
    static constexpr int kScanningInCaptureMode = 10128;
    static constexpr int kScanning = 10129;
    static constexpr int kFirstScan = 10130;
    static constexpr int kDecodersSlow = 10133;
};

// First-picture delays carried by the list-grew notice, in milliseconds: the window waits
// longer for a raw neighbour before showing the first picture.
inline constexpr std::uint32_t kQuickFirstDelay = 25;
inline constexpr std::uint32_t kSlowFirstDelay = 75;

enum class BeepKind {
    Exclamation,  // a refused move
    Asterisk,     // a move that wrapped round
};

class ListNotices {
public:
    virtual ~ListNotices() = default;

    // 0x464. `count` is the picture count, or 0 when the list was empty before this file;
    // `delay` is kSlowFirstDelay when the list holds exactly one entry whose file is not of
    // a quick format, kQuickFirstDelay otherwise.
    virtual void ListGrew464(std::uint32_t count, std::uint32_t delay) = 0;
    // 0x46A: a scan started or failed.
    virtual void StatusText46A(int textId) = 0;
    // 0x46B: an entry was added while track or tethered mode is on; the window makes it
    // current.
    virtual void NewShot46B(std::uint32_t count, std::string basePath) = 0;
    // 0x479, sent (list lock held) just before `entry` is erased.
    virtual void EntryRemoved479(const PictureEntry& entry) = 0;
    // 0x483: a file already in the list was written again; its picture was dropped.
    virtual void EntryChanged483(const PictureEntry& entry) = 0;
    // The message beep; only called when EnableMessageBeep is on.
    virtual void Beep(BeepKind kind) = 0;
};

// Notices nobody watches: for command-line tools and benchmarks that run a list without a
// window.
class QuietListNotices final : public ListNotices {
public:
    void ListGrew464(std::uint32_t, std::uint32_t) override {}
    void StatusText46A(int) override {}
    void NewShot46B(std::uint32_t, std::string) override {}
    void EntryRemoved479(const PictureEntry&) override {}
    void EntryChanged483(const PictureEntry&) override {}
    void Beep(BeepKind) override {}
};

}  // namespace orvanta::list

// Where the picture list calls the subsystems built on top of it: the decode cache around
// the current entry and the bookmark store. Each default does nothing, so the list works
// alone (orvanta-cli, tests) and those subsystems override only what they need.
//
// Thread rules: Reschedule, Release and Changed are called with the list lock held (the
// cache lock comes after it in the lock order); they must not call back into the list. The
// bookmark calls run on the thread that opens or removes.
#pragma once

#include <chrono>
#include <cstdint>

namespace orvanta::list {

struct PictureEntry;

// The list as the decode cache sees it while it plans its window around the current entry:
// lent for the length of one call, with the list lock held.
class ListWindow {
public:
    virtual ~ListWindow() = default;
    virtual PictureEntry* Current() const = 0;   // none when the list is empty
    virtual std::uint32_t Position() const = 0;  // 1-based; 0 when the list is empty
    virtual std::uint32_t Count() const = 0;
    // A tethered transfer is pending: the window must not wrap round the list's end.
    virtual bool TransferPending() const = 0;
    // The entry after `entry` (after the last: the first), or before it (before the first:
    // the last).
    virtual PictureEntry* Neighbour(const PictureEntry& entry, bool forward) const = 0;
};

class DecodeCacheHooks {
public:
    virtual ~DecodeCacheHooks() = default;
    // After every move, and when the first entry becomes current: re-plan the decode window
    // around the window's current entry (none when the list is empty).
    virtual void Reschedule(const ListWindow& /*window*/) {}
    // The entry leaves the list: drop it from the cache. Its decode has already stopped.
    virtual void Release(PictureEntry& /*entry*/) {}
    // The entry's file was written again and its picture dropped: forget what the cache
    // holds of it, so that it is decoded again when it is in the window.
    virtual void Changed(PictureEntry& /*entry*/) {}
    // Opening another folder: stop the workers and empty the cache, then restart them.
    virtual void RestartWorkers() {}
    // The first opening waits this long for the first decoder to be created; false when it
    // was not (the codecs are slow to load).
    virtual bool WaitForFirstDecoder(std::chrono::milliseconds /*timeout*/) { return true; }
};

class BookmarkHooks {
public:
    virtual ~BookmarkHooks() = default;
    // Before the list is emptied for another folder: save unsaved bookmarks (asking first
    // while stored bookmarks still wait for pictures of the running scan).
    virtual void SaveBeforeOpening(bool /*scanRunning*/) {}
    // An entry arrived: give it the bookmark stored for its key name, if any.
    virtual void Attach(PictureEntry& /*entry*/) {}
    // An entry is removed: drop it from the bookmark slots.
    virtual void Detach(PictureEntry& /*entry*/) {}
};

}  // namespace orvanta::list

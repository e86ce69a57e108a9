// The command behind the digit keys: 0..9 sets the star rating of the current picture, with
// Shift its colour label, with Ctrl its urgency. The refusals (marks switched off, a label
// the convention does not have, more than five stars) come back as a text id for the
// window to show; a key pressed again within a second on the same value is not written a
// second time but still advances. Everything the window must do is in the outcome.
//
// Thread rules: user-interface thread; takes the list lock through the list's own calls.
#pragma once

#include <cstdint>

namespace orvanta::list {
class PictureList;
}

namespace orvanta::marks {

class MarkWriter;

struct MarkKeys {
    bool shift = false;  // label
    bool ctrl = false;   // urgency
};

struct MarkOutcome {
    int messageId = 0;     // a refusal to show (title 100, information icon); 0 for none
    bool beep = false;     // no current picture
    bool advance = false;  // start the advance timer
    bool queued = false;   // a write was queued
};

// A repeated press within this many 100 ns units of the entry's last mark is not written.
inline constexpr std::uint64_t kRepeatWindow = 10'000'000;

// The current time as FILETIME units (100 ns since 1601).
std::uint64_t FileTimeNow();

MarkOutcome SetMark(list::PictureList& list, MarkWriter* writer, std::uint32_t digit, MarkKeys keys,
                    std::uint64_t now);

}  // namespace orvanta::marks

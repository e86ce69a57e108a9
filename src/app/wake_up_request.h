// What the running instance does with the argument list a second start handed over: the
// decision alone, as a pure function, so that the rules are checked without windows or
// sockets. The receiver (wake_up_receiver.h) carries it out.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvanta::app {

// The cool-down after a wake-up that opened an explicitly named image folder.
inline constexpr int kWakeUpCoolDownMs = 4000;

struct WakeUpDecision {
    // A wake-up during the cool-down is dropped: nothing else below applies.
    bool ignored = false;
    // Plain arguments before the first switch, each followed by "|": they replace the list.
    std::optional<std::string> openList;
    // The -i switch: the folder to open; empty means the user's pictures folder.
    std::optional<std::string> openFolder;
    // The -c switch's value, made the keep folder once the folder opened.
    std::optional<std::string> keepFolder;
    // An explicitly named folder starts the cool-down once it opened.
    bool coolDownAfterOpening = false;
};

// `arguments` are the second start's arguments without the program name.
WakeUpDecision DecideWakeUp(const std::vector<std::string>& arguments, bool coolingDown);

}  // namespace orvanta::app

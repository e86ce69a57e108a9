// Track mode (the view follows new files that tethering software writes into the open
// folder) and tethered mode (the program imports new shots from a camera itself): two
// process-wide flags, at most one set. Written on the user-interface thread (command line,
// menu), read by the list's feeder thread when it adds a file.
#pragma once

#include <atomic>

namespace orvanta::list {

extern std::atomic<bool> TrackModeActive;
extern std::atomic<bool> TetheredModeActive;

// Setting tethered mode clears track mode; setting track mode clears tethered mode.
void SetTrackMode(bool on);
void SetTetheredMode(bool on);

// Either mode: an added entry is announced as a new shot.
bool CaptureModeActive();

}  // namespace orvanta::list

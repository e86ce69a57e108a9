#include "list/capture_modes.h"

namespace orvanta::list {

std::atomic<bool> TrackModeActive{false};
std::atomic<bool> TetheredModeActive{false};

void SetTrackMode(bool on) {
    if (on) {
        TetheredModeActive.store(false, std::memory_order_relaxed);
    }
    TrackModeActive.store(on, std::memory_order_relaxed);
}

void SetTetheredMode(bool on) {
    if (on) {
        TrackModeActive.store(false, std::memory_order_relaxed);
    }
    TetheredModeActive.store(on, std::memory_order_relaxed);
}

bool CaptureModeActive() {
    return TrackModeActive.load(std::memory_order_relaxed) ||
           TetheredModeActive.load(std::memory_order_relaxed);
}

}  // namespace orvanta::list

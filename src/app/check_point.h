// CheckPoint: one process-wide progress value that start-up, the frame's handlers, the
// display code and the background threads set to fixed numbers as they pass notable steps.
// Only the crash report reads it. Every thread writes it without further synchronisation;
// relaxed atomic order is enough for a diagnostic value.
#pragma once

#include <atomic>

namespace orvanta {

inline std::atomic<double> CheckPoint{0.0};

inline void SetCheckPoint(double value) {
    CheckPoint.store(value, std::memory_order_relaxed);
}

}  // namespace orvanta

// The start-up trace: with ORVANTA_TRACE set, notable steps of start-up print the wall-clock
// time in milliseconds, so that a script can count from before the process began and see
// where the time between the process start and the first picture goes.
//
// Thread rules: any thread; each line is one write to stderr.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace orvanta {

inline bool StartupTraceOn() {
    static const bool on = [] {
        const char* value = std::getenv("ORVANTA_TRACE");
        return value != nullptr && *value != '\0';
    }();
    return on;
}

inline void TraceStartup(const char* step) {
    if (StartupTraceOn()) {
        const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::system_clock::now().time_since_epoch());
        std::fprintf(stderr, "orvanta: %s at %lld ms\n", step, static_cast<long long>(now.count()));
    }
}

}  // namespace orvanta

// What the colour step tells the user: a target profile the colour system rejects (message
// 10029) and an embedded profile it cannot read (message 10030), both titled 10028. The
// window code implements ColourNotices and shows the message; tests record the calls. Only
// the first profile warning of a run is shown: ProfileWarnings is the gate, and the
// decoder holds the one process-wide gate. Thread rules: ProfileWarnings may be used from
// any thread (an atomic counter); ColourNotices is called from the decode workers.
#pragma once

#include <atomic>

#include "platform/result.h"

namespace orvanta::decode {

class ColourNotices {
public:
    virtual ~ColourNotices() = default;
    // 10029: the chosen target profile is not valid; sRGB is used instead.
    virtual void Notice10029InvalidTargetProfile(Result code) = 0;
    // 10030: the picture's embedded colour profile cannot be read.
    virtual void Notice10030UnreadableEmbeddedProfile(Result code) = 0;
};

class ProfileWarnings {
public:
    explicit ProfileWarnings(ColourNotices* notices = nullptr) : notices_(notices) {}
    void SetNotices(ColourNotices* notices) { notices_.store(notices); }

    // Each passes the warning on only when no profile warning was given before.
    void InvalidTargetProfile(Result code);
    void UnreadableEmbeddedProfile(Result code);

    // The gate of the process, used by the decode pipeline.
    static ProfileWarnings& Process();

private:
    bool First() { return count_.fetch_add(1, std::memory_order_relaxed) == 0; }

    std::atomic<ColourNotices*> notices_;
    std::atomic<unsigned> count_{0};
};

}  // namespace orvanta::decode

// Slow media are read by few workers at once: a file on an optical drive admits one decode
// at a time process-wide, a file on a removable drive two; other drives are not throttled.
// Enter returns a pass that gives the place back when it goes.
//
// Thread rules: one instance shared by all decode workers; Enter blocks until a place is
// free.
#pragma once

#include <filesystem>
#include <mutex>
#include <semaphore>

#include "platform/system/drive_kind.h"

namespace orvanta::decode {

class DriveThrottle {
public:
    class Pass {
    public:
        Pass() = default;
        Pass(Pass&& other) noexcept : throttle_(other.throttle_), kind_(other.kind_) {
            other.throttle_ = nullptr;
        }
        Pass& operator=(Pass&&) = delete;
        ~Pass();

    private:
        friend class DriveThrottle;
        Pass(DriveThrottle* throttle, platform::DriveKind kind)
            : throttle_(throttle), kind_(kind) {}
        DriveThrottle* throttle_ = nullptr;
        platform::DriveKind kind_ = platform::DriveKind::Fixed;
    };

    Pass Enter(platform::DriveKind kind);
    Pass Enter(const std::filesystem::path& file) { return Enter(platform::DriveKindOf(file)); }

private:
    std::mutex optical_;  // held for a whole decode from an optical drive; a leaf lock
    std::counting_semaphore<2> removable_{2};
};

}  // namespace orvanta::decode

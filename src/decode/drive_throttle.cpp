#include "decode/drive_throttle.h"

namespace orvanta::decode {

DriveThrottle::Pass::~Pass() {
    if (throttle_ == nullptr) {
        return;
    }
    if (kind_ == platform::DriveKind::Optical) {
        throttle_->optical_.unlock();
    } else if (kind_ == platform::DriveKind::Removable) {
        throttle_->removable_.release();
    }
}

DriveThrottle::Pass DriveThrottle::Enter(platform::DriveKind kind) {
    if (kind == platform::DriveKind::Optical) {
        optical_.lock();
    } else if (kind == platform::DriveKind::Removable) {
        removable_.acquire();
    } else {
        return {};
    }
    return {this, kind};
}

}  // namespace orvanta::decode

#include "decode/colour_notices.h"

namespace orvanta::decode {

void ProfileWarnings::InvalidTargetProfile(Result code) {
    if (ColourNotices* notices = notices_.load(); notices != nullptr && First()) {
        notices->Notice10029InvalidTargetProfile(code);
    }
}

void ProfileWarnings::UnreadableEmbeddedProfile(Result code) {
    if (ColourNotices* notices = notices_.load(); notices != nullptr && First()) {
        notices->Notice10030UnreadableEmbeddedProfile(code);
    }
}

ProfileWarnings& ProfileWarnings::Process() {
    static ProfileWarnings warnings;
    return warnings;
}

}  // namespace orvanta::decode

#include "settings/setting.h"

namespace orvanta::settings {

std::uint32_t Setting::Normalise(std::uint32_t raw) const {
    switch (normalisation_) {
        case Normalisation::None:
            return raw;
        case Normalisation::Boolean:
            return raw != 0 ? 1 : 0;
        case Normalisation::ClampAbove:
            return raw > limit_ ? limit_ : raw;
        case Normalisation::ZeroAbove:
            return raw > limit_ ? 0 : raw;
        case Normalisation::RaiseBelow:
            return raw < limit_ ? limit_ : raw;
        case Normalisation::AllOnesToZero:
            return raw == 0xFFFFFFFFu ? 0 : raw;
    }
    return raw;
}

}  // namespace orvanta::settings

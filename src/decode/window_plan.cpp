#include "decode/window_plan.h"

#include <algorithm>
#include <unordered_set>

namespace orvanta::decode {

WindowSize InitialWindow(std::uint32_t guide, std::uint64_t availableMiB, std::uint32_t downscale) {
    const std::uint32_t divisor = (downscale & 0xFFFF) == 0 ? 1 : (downscale & 0xFFFF);
    const double byMemory = static_cast<double>(availableMiB) / divisor;
    const double n = std::min(static_cast<double>(guide), byMemory) / 3.0;
    return {static_cast<std::int64_t>(2 * n + 0.5), static_cast<std::int64_t>(n + 0.5)};
}

WindowSize ClipWindow(WindowSize window, std::uint32_t position, std::uint32_t count, bool clip) {
    if (!clip) {
        return window;
    }
    WindowSize clipped = window;
    if (clipped.behind >= std::int64_t{position} - 1) {
        clipped.behind = std::int64_t{position} - 1;
    }
    clipped.ahead += window.behind - clipped.behind;
    if (clipped.ahead >= std::int64_t{count} - position) {
        clipped.ahead = std::int64_t{count} - position;
    }
    return clipped;
}

std::vector<list::PictureEntry*> WindowOrder(const list::ListWindow& list, WindowSize window) {
    std::vector<list::PictureEntry*> order;
    list::PictureEntry* current = list.Current();
    if (current == nullptr || list.Count() == 0) {
        return order;
    }
    std::unordered_set<const list::PictureEntry*> wanted{current};
    order.push_back(current);
    std::int64_t ahead = std::max<std::int64_t>(window.ahead, 0);
    std::int64_t behind = std::max<std::int64_t>(window.behind, 0);
    list::PictureEntry* front = current;
    list::PictureEntry* back = current;
    // One step; false when the walk reached an entry it already has.
    const auto step = [&](list::PictureEntry*& at, bool forward) {
        at = list.Neighbour(*at, forward);
        if (at == nullptr || !wanted.insert(at).second) {
            return false;
        }
        order.push_back(at);
        return true;
    };
    while (ahead > 0 || behind > 0) {
        for (int i = 0; i < 2 && ahead > 0; ++i) {
            --ahead;
            if (!step(front, true)) {
                return order;
            }
        }
        if (behind > 0) {
            --behind;
            if (!step(back, false)) {
                return order;
            }
        }
    }
    return order;
}

std::uint32_t WorkerCount(bool disableSmp, std::uint32_t guide, std::uint32_t cores) {
    if (disableSmp || guide == 0) {
        return 1;
    }
    return std::clamp<std::uint32_t>(cores, 1, 8);
}

}  // namespace orvanta::decode

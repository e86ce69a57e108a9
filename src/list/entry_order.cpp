#include "list/entry_order.h"

namespace orvanta::list {

bool EntryOrder::operator()(const PictureEntry* a, const PictureEntry* b) const {
    if (byTime_ && a->sortTime != b->sortTime) {
        return a->sortTime < b->sortTime;
    }
    const int names = shell::CompareLogical(a->BasePath(), b->BasePath());
    if (names != 0) {
        return names < 0;
    }
    if (a->IsFrame() != b->IsFrame()) {
        return !a->IsFrame();
    }
    // One base path holds at most one single-frame entry (siblings join it), so its
    // ExtensionSet may grow while it is in the set without moving it.
    if (!a->IsFrame()) {
        return false;
    }
    const int sets = shell::CompareLogical(a->extensionSet, b->extensionSet);
    if (sets != 0) {
        return sets < 0;
    }
    return a->frameIndex < b->frameIndex;
}

}  // namespace orvanta::list

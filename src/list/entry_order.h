// The display order of the picture list, a strict weak order over entries: by sort time
// when the list is sorted by a time, then by base path in logical order, then for entries
// of one base path the single-frame entry first, frames by ExtensionSet and frame index.
// Immutable; the mode is fixed for the lifetime of the set that uses it.
#pragma once

#include <memory>

#include "list/picture_entry.h"

namespace orvanta::list {

class EntryOrder {
public:
    using is_transparent = void;
    explicit EntryOrder(bool byTime = false) : byTime_(byTime) {}

    bool operator()(const PictureEntry* a, const PictureEntry* b) const;
    bool operator()(const std::unique_ptr<PictureEntry>& a,
                    const std::unique_ptr<PictureEntry>& b) const {
        return (*this)(a.get(), b.get());
    }
    bool operator()(const PictureEntry* a, const std::unique_ptr<PictureEntry>& b) const {
        return (*this)(a, b.get());
    }
    bool operator()(const std::unique_ptr<PictureEntry>& a, const PictureEntry* b) const {
        return (*this)(a.get(), b);
    }

private:
    bool byTime_;
};

}  // namespace orvanta::list

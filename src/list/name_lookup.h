// Finding the nodes of one base path in the name index. A folder's files reach the list
// sorted by base path, so each lookup can start where the one before it ended and take a
// couple of comparisons instead of a descent from the root. Pure functions over the index
// they are given; the caller holds whatever lock guards it.
#pragma once

#include <optional>
#include <string_view>

#include "list/picture_entry.h"

namespace orvanta::list {

struct NameRange {
    NameIndex::iterator first;  // the first node of the base path, or where it would go
    NameIndex::iterator last;   // one past its last node: where new nodes of it go
};

// The nodes whose key equals `base` (logical order, without regard to case). `near`, when
// given, is a guess at `first`, such as the `last` of the previous lookup of a sorted run;
// any guess gives the right answer, a good one only saves comparisons.
NameRange FindNames(NameIndex& names, std::string_view base,
                    std::optional<NameIndex::iterator> near = std::nullopt);

}  // namespace orvanta::list

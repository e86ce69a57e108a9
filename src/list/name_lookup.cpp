#include "list/name_lookup.h"

#include <iterator>

#include "platform/shell/logical_compare.h"

namespace orvanta::list {

namespace {

// How far a guess is followed before the index is searched from its root instead.
constexpr int kSteps = 8;

// The first node of `base` found by walking from `near`, or none when it is not within
// reach. `order` gets the comparison of the node found against `base` (1 at the end).
std::optional<NameIndex::iterator> WalkFrom(NameIndex& names, std::string_view base,
                                            NameIndex::iterator near, int& order) {
    const auto end = names.end();
    const auto keyOrder = [&](NameIndex::iterator it) {
        return it == end ? 1 : shell::CompareLogical(it->first, base);
    };
    const int before = near == names.begin() ? -1 : keyOrder(std::prev(near));
    if (before < 0) {
        // Forward to the first node not below `base`.
        for (int step = 0; step < kSteps; ++step, ++near) {
            order = keyOrder(near);
            if (order >= 0) {
                return near;
            }
        }
        return std::nullopt;
    }
    // Back over the nodes of `base` (a sibling of the previous file), and no further.
    if (before > 0) {
        return std::nullopt;
    }
    for (int step = 0; step < kSteps; ++step) {
        --near;
        if (near == names.begin() || keyOrder(std::prev(near)) < 0) {
            order = 0;
            return near;
        }
    }
    return std::nullopt;
}

}  // namespace

NameRange FindNames(NameIndex& names, std::string_view base,
                    std::optional<NameIndex::iterator> near) {
    const auto end = names.end();
    int order = 1;
    std::optional<NameIndex::iterator> first;
    if (near) {
        first = WalkFrom(names, base, *near, order);
    }
    if (!first) {
        first = names.lower_bound(base);
        order = *first == end ? 1 : shell::CompareLogical((*first)->first, base);
    }
    auto last = *first;
    while (order == 0) {
        ++last;
        order = last == end ? 1 : shell::CompareLogical(last->first, base);
    }
    return {*first, last};
}

}  // namespace orvanta::list

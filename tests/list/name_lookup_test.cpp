// Looking up base paths in the name index from a guess: whatever the order the names come
// in and whatever the guess, the answer is the one a search from the root gives.
#include "list/name_lookup.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/shell/logical_compare.h"

namespace orvanta::list {
namespace {

enum class Arrival { Sorted, Reversed, Shuffled, RandomGuess };

// Base paths with the traps of the logical order: numbers of several lengths, leading
// zeros (different keys), case variants (one key) and siblings (one key, several nodes).
std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (int i = 0; i < 120; ++i) {
        names.push_back("/p/IMG_" + std::to_string(i));
        if (i % 7 == 0) {
            names.push_back("/p/img_" + std::to_string(i));  // the same key in other case
            names.push_back("/p/IMG_0" + std::to_string(i));
        }
        if (i % 5 == 0) {
            names.push_back("/p/IMG_" + std::to_string(i));  // a sibling or a frame
        }
    }
    names.push_back("/p/a");
    names.push_back("/p/a b");
    names.push_back("/p/a-1");
    names.push_back("/p/\xc3\xa4pfel");
    names.push_back("/p/\xc3\x84PFEL");
    names.push_back("/p/z");
    return names;
}

class FindNamesFrom : public testing::TestWithParam<Arrival> {};

TEST_P(FindNamesFrom, AnyGuessFindsWhatASearchFinds) {
    std::vector<std::string> names = Names();
    std::mt19937 random(7);
    switch (GetParam()) {
        case Arrival::Sorted:
        case Arrival::RandomGuess:
            std::stable_sort(names.begin(), names.end(), shell::LogicalLess{});
            break;
        case Arrival::Reversed:
            std::stable_sort(names.begin(), names.end(), shell::LogicalLess{});
            std::reverse(names.begin(), names.end());
            break;
        case Arrival::Shuffled:
            std::shuffle(names.begin(), names.end(), random);
            break;
    }
    // Each node's value tells when it arrived.
    std::vector<PictureEntry> arrivals(names.size());
    NameIndex index;
    std::optional<NameIndex::iterator> near;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string& name = names[i];
        if (GetParam() == Arrival::RandomGuess && !index.empty()) {
            near = std::next(index.begin(), static_cast<long>(random() % (index.size() + 1)));
        }
        const NameRange found = FindNames(index, name, near);
        const auto expected = index.equal_range(name);
        ASSERT_TRUE(found.first == expected.first) << name;
        ASSERT_TRUE(found.last == expected.second) << name;
        index.emplace_hint(found.last, name, &arrivals[i]);
        near = found.last;
    }
    ASSERT_EQ(index.size(), names.size());
    // In order, and the nodes of one key in the order they arrived.
    for (auto it = index.begin(); std::next(it) != index.end(); ++it) {
        const auto next = std::next(it);
        const int order = shell::CompareLogical(it->first, next->first);
        ASSERT_LE(order, 0) << it->first << " " << next->first;
        if (order == 0) {
            EXPECT_LT(it->second, next->second) << it->first;
        }
    }
    const auto range = index.equal_range("/p/img_0");
    EXPECT_EQ(std::distance(range.first, range.second), 3);
}

INSTANTIATE_TEST_SUITE_P(Orders, FindNamesFrom,
                         testing::Values(Arrival::Sorted, Arrival::Reversed, Arrival::Shuffled,
                                         Arrival::RandomGuess));

}  // namespace
}  // namespace orvanta::list

// Comparison of file names the way people read them: runs of digits compare as numbers
// ("img2" before "img10"), letters without regard to case. The picture list orders its name
// index and its display order with it. Pure functions; thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace orvanta::shell {

// Negative, zero or positive. Zero only when the two texts are equal without regard to
// case, so it is a strict weak order whose equivalence is case-insensitive equality: equal
// numbers written with different counts of leading zeros ("1" and "01") still differ, the
// shorter one first.
int CompareLogical(std::string_view a, std::string_view b);

// Appends a sort key of `text` to `key`: keys compared byte by byte (as std::string_view
// compares them) order texts as CompareLogical does, and are equal exactly when it finds the
// texts equal. For sorting many names: each is read once, and every comparison is a memcmp.
void AppendLogicalKey(std::string_view text, std::string& key);

// CompareLogical, then byte order to tell apart texts that differ only in case: a total
// order (zero only for identical texts).
int CompareLogicalTotal(std::string_view a, std::string_view b);

// Case-insensitive equality and ordering by folded code points, no number rule.
int CompareNoCase(std::string_view a, std::string_view b);

// Comparators for ordered containers keyed by names.
struct LogicalLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
        return CompareLogical(a, b) < 0;
    }
};
struct LogicalTotalLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
        return CompareLogicalTotal(a, b) < 0;
    }
};

}  // namespace orvanta::shell

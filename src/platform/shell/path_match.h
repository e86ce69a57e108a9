// Matching names against patterns such as "*.jpg;*.nef": "*" matches any run
// of characters (dots included), "?" exactly one, other characters match without regard to
// case; several patterns are separated by ";" (blanks before a pattern are skipped), and a
// name matches when any of them does. "*.*" matches every name, with or without a dot.
// Pure functions; thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvanta::shell {

bool MatchPatterns(std::string_view name, std::string_view patterns);

// The same test with the patterns prepared once, for a folder scan that tests every name:
// patterns of the form "*.ext" become one look-up of the name's last extension, the rest
// are matched in full. Immutable after construction; thread-safe.
class PatternMatcher {
public:
    explicit PatternMatcher(std::string_view patterns);
    bool Matches(std::string_view name) const;

private:
    std::vector<std::string> extensions_;  // folded, without dot, sorted
    std::vector<std::u32string> general_;  // folded
    bool matchAll_ = false;
};

}  // namespace orvanta::shell

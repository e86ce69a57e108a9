#include "platform/shell/path_match.h"

#include <algorithm>

#include "platform/text/unicode.h"

namespace orvanta::shell {

namespace {

std::u32string Folded(std::string_view utf8) {
    std::u32string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        out.push_back(text::FoldCase(text::NextCodePoint(utf8, i)));
    }
    return out;
}

// Greedy matching with one back-tracking point per star: linear in practice and never
// exponential, whatever the pattern.
bool MatchOne(const std::u32string& name, const std::u32string& pattern) {
    if (pattern == U"*.*") {
        return true;
    }
    std::size_t n = 0;
    std::size_t p = 0;
    std::size_t starP = std::u32string::npos;
    std::size_t starN = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == U'?' || pattern[p] == name[n])) {
            ++n;
            ++p;
        } else if (p < pattern.size() && pattern[p] == U'*') {
            starP = p++;
            starN = n;
        } else if (starP != std::u32string::npos) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == U'*') {
        ++p;
    }
    return p == pattern.size();
}

template <typename Visit>
void ForEachPattern(std::string_view patterns, Visit visit) {
    while (true) {
        while (!patterns.empty() && patterns.front() == ' ') {
            patterns.remove_prefix(1);
        }
        const std::size_t end = patterns.find(';');
        const std::string_view one = patterns.substr(0, end);
        if (!one.empty() && visit(one)) {
            return;
        }
        if (end == std::string_view::npos) {
            return;
        }
        patterns.remove_prefix(end + 1);
    }
}

std::string FoldedUtf8(std::string_view utf8) {
    std::string out;
    for (std::size_t i = 0; i < utf8.size();) {
        text::AppendUtf8(out, text::FoldCase(text::NextCodePoint(utf8, i)));
    }
    return out;
}

}  // namespace

PatternMatcher::PatternMatcher(std::string_view patterns) {
    ForEachPattern(patterns, [this](std::string_view one) {
        const std::string_view ext = one.substr(std::min<std::size_t>(2, one.size()));
        if (one == "*.*" || one == "*") {
            matchAll_ = true;
        } else if (one.substr(0, 2) == "*." && !ext.empty() &&
                   ext.find_first_of("*?.") == std::string_view::npos) {
            extensions_.push_back(FoldedUtf8(ext));
        } else {
            general_.push_back(Folded(one));
        }
        return false;
    });
    std::sort(extensions_.begin(), extensions_.end());
}

bool PatternMatcher::Matches(std::string_view name) const {
    if (matchAll_) {
        return true;
    }
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && !extensions_.empty()) {
        const std::string_view ext = name.substr(dot + 1);
        // Extensions are short and mostly ASCII: fold into a small buffer.
        std::string folded;
        bool ascii = true;
        for (char c : ext) {
            ascii = ascii && static_cast<unsigned char>(c) < 0x80;
        }
        folded = ascii ? std::string(ext) : FoldedUtf8(ext);
        if (ascii) {
            for (char& c : folded) {
                c = static_cast<char>(text::FoldCase(static_cast<char32_t>(c)));
            }
        }
        if (std::binary_search(extensions_.begin(), extensions_.end(), folded)) {
            return true;
        }
    }
    if (general_.empty()) {
        return false;
    }
    const std::u32string folded = Folded(name);
    for (const auto& pattern : general_) {
        if (MatchOne(folded, pattern)) {
            return true;
        }
    }
    return false;
}

bool MatchPatterns(std::string_view name, std::string_view patterns) {
    const std::u32string folded = Folded(name);
    bool matched = false;
    ForEachPattern(patterns, [&](std::string_view one) {
        matched = MatchOne(folded, Folded(one));
        return matched;
    });
    return matched;
}

}  // namespace orvanta::shell

#include "cmdline/command_line.h"

#include <cctype>
#include <limits>

namespace orvanta::cmdline {

namespace {

bool EqualsAscii(std::string_view a, std::string_view b, bool caseSensitive) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        const auto ca = static_cast<unsigned char>(a[i]);
        const auto cb = static_cast<unsigned char>(b[i]);
        if (caseSensitive ? ca != cb : std::tolower(ca) != std::tolower(cb)) {
            return false;
        }
    }
    return true;
}

// The word matches a name written "i*mageFolder" when it is the whole name or exactly the
// part before '*'; lengths in between never match.
bool MatchesSwitchName(std::string_view word, std::string_view name, bool caseSensitive) {
    const std::size_t star = name.find('*');
    if (star == std::string_view::npos) {
        return EqualsAscii(word, name, caseSensitive);
    }
    if (word.size() == star) {
        return EqualsAscii(word, name.substr(0, star), caseSensitive);
    }
    return word.size() == name.size() - 1 &&
           EqualsAscii(word.substr(0, star), name.substr(0, star), caseSensitive) &&
           EqualsAscii(word.substr(star), name.substr(star + 1), caseSensitive);
}

}  // namespace

TokenSet TokenSet::Split(std::string_view text, std::string_view prefixes,
                         bool programNameMissing) {
    TokenSet set;
    set.prefixes_ = std::string(prefixes);
    if (programNameMissing) {
        set.tokens_.emplace_back("exe");
    }
    std::size_t pos = 0;
    while (set.tokens_.size() < kMaxTokens && pos < text.size()) {
        while (pos < text.size() && text[pos] == ' ') {
            ++pos;
        }
        if (pos >= text.size()) {
            break;
        }
        if (text[pos] == '"') {
            const std::size_t start = pos + 1;
            std::size_t end = text.find('"', start);
            if (end == std::string_view::npos) {
                end = text.size();
            }
            set.tokens_.emplace_back(text.substr(start, end - start));
            pos = end + 1;
            continue;
        }
        const std::size_t start = pos;
        while (pos < text.size() && text[pos] != ' ' && text[pos] != '"') {
            ++pos;
        }
        set.tokens_.emplace_back(text.substr(start, pos - start));
        if (pos < text.size() && text[pos] == '"') {
            // -i"/My Pictures" gives the two tokens -i and /My Pictures.
            const std::size_t quoted = pos + 1;
            std::size_t end = text.find('"', quoted);
            if (end == std::string_view::npos) {
                end = text.size();
            }
            if (set.tokens_.size() < kMaxTokens) {
                set.tokens_.emplace_back(text.substr(quoted, end - quoted));
            }
            pos = end + 1;
        }
    }
    set.consumed_.assign(set.tokens_.size(), false);
    return set;
}

TokenSet TokenSet::FromArguments(const std::vector<std::string>& arguments,
                                 std::string_view prefixes) {
    TokenSet set;
    set.prefixes_ = std::string(prefixes);
    for (const auto& argument : arguments) {
        if (set.tokens_.size() == kMaxTokens) {
            break;
        }
        set.tokens_.push_back(argument);
    }
    set.consumed_.assign(set.tokens_.size(), false);
    return set;
}

bool TokenSet::StartsSwitch(std::string_view token) const {
    if (token.empty() || prefixes_.find(token.front()) == std::string::npos) {
        return false;
    }
    if (token.front() != '/') {
        return true;
    }
    // A '/' token is a switch only when it names one of the program's switches; anything
    // else ("/home/ann/shots", "/media") is an absolute path.
    std::string_view word = token.substr(1);
    word = word.substr(0, word.find(':'));
    for (std::string_view name : {kImageFolder, kCopyFolder, kMonitor, kKiosk, kTrackMode, kPtpMode,
                                  kAutoMode, kColorProfile, kLang, kOem}) {
        if (MatchesSwitchName(word, name, false)) {
            return true;
        }
    }
    return false;
}

std::size_t TokenSet::FindSwitch(std::string_view name, bool caseSensitive) const {
    name = name.substr(0, 255);
    if (!name.empty() && prefixes_.find(name.front()) != std::string::npos) {
        name.remove_prefix(1);
    }
    for (std::size_t i = 1; i < tokens_.size(); ++i) {
        if (!StartsSwitch(tokens_[i])) {
            continue;
        }
        std::string_view word = std::string_view(tokens_[i]).substr(1);
        word = word.substr(0, word.find(':'));
        if (MatchesSwitchName(word, name, caseSensitive)) {
            return i;
        }
    }
    return 0;
}

std::optional<std::string> TokenSet::SwitchValue(std::string_view name) {
    const std::size_t index = FindSwitch(name);
    if (index == 0) {
        return std::nullopt;
    }
    const std::string& token = tokens_[index];
    if (const std::size_t colon = token.find(':'); colon != std::string::npos) {
        return token.substr(colon + 1);
    }
    if (index + 1 < tokens_.size() && !StartsSwitch(tokens_[index + 1])) {
        consumed_[index + 1] = true;
        return tokens_[index + 1];
    }
    return std::nullopt;
}

std::string TokenSet::SwitchValue(std::string_view name, std::string_view defaultValue) {
    auto value = SwitchValue(name);
    return value ? std::move(*value) : std::string(defaultValue);
}

int TokenSet::NumericSwitchValue(std::string_view name, int defaultValue) {
    return LeadingNumber(SwitchValue(name, std::to_string(defaultValue)));
}

std::string TokenSet::PlainArguments(bool stopAtFirstSwitch, bool firstOnly,
                                     std::string_view separator) const {
    std::string result;
    for (std::size_t i = 1; i < tokens_.size(); ++i) {
        if (StartsSwitch(tokens_[i])) {
            if (stopAtFirstSwitch) {
                break;
            }
            continue;
        }
        if (consumed_[i]) {
            continue;
        }
        result += tokens_[i];
        if (firstOnly) {
            break;
        }
        result += separator;
    }
    while (!result.empty() && std::isspace(static_cast<unsigned char>(result.back()))) {
        result.pop_back();
    }
    return result;
}

int LeadingNumber(std::string_view text) {
    std::size_t pos = 0;
    while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos]))) {
        ++pos;
    }
    bool negative = false;
    if (pos < text.size() && (text[pos] == '-' || text[pos] == '+')) {
        negative = text[pos] == '-';
        ++pos;
    }
    long long value = 0;
    for (; pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos])); ++pos) {
        value = value * 10 + (text[pos] - '0');
        if (value > std::numeric_limits<int>::max()) {
            value = std::numeric_limits<int>::max();
        }
    }
    return static_cast<int>(negative ? -value : value);
}

std::vector<std::string> RelaunchArguments(std::string_view currentFolder,
                                           std::string_view keepCopyFolder) {
    std::vector<std::string> arguments;
    if (!currentFolder.empty()) {
        arguments.emplace_back("-i");
        arguments.emplace_back(currentFolder);
    }
    if (!keepCopyFolder.empty()) {
        arguments.emplace_back("-c");
        arguments.emplace_back(keepCopyFolder);
    }
    return arguments;
}

}  // namespace orvanta::cmdline

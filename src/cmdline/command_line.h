// The command line: splitting a text into tokens by the quote rules, finding a switch by
// its full name or its minimum abbreviation ("i*mageFolder": -i or -imageFolder, never
// -ima), a switch's value (after ':' or the next token, which is then consumed), plain
// arguments, and the parameters of a relaunch. The same parser reads the program's own
// start and the command line a second instance forwards. A TokenSet is a value used by one
// thread.
//
// Switches start with '-' or '/'. Because absolute paths here start with '/', a token that
// starts with '/' is a switch only when the word before its first ':' names one of the
// program's switches ("/I:D:\Shots" and "/t" are switches; "/home/ann/shots" and "/media"
// are plain arguments).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::cmdline {

inline constexpr std::string_view kPrefixes = "-/";
// Text beyond this many tokens (the program name included) is ignored.
inline constexpr std::size_t kMaxTokens = 256;

// The switches of the switch table; the part before '*' is the minimum abbreviation.
inline constexpr std::string_view kImageFolder = "i*mageFolder";
inline constexpr std::string_view kCopyFolder = "c*opyFolder";
inline constexpr std::string_view kMonitor = "m*onitor";
inline constexpr std::string_view kKiosk = "k*iosk";
inline constexpr std::string_view kTrackMode = "t*rackMode";
inline constexpr std::string_view kPtpMode = "p*tpMode";
inline constexpr std::string_view kAutoMode = "a*utoMode";
inline constexpr std::string_view kColorProfile = "c*olorProfile";
// Looked up by their full word only.
inline constexpr std::string_view kLang = "lang";
inline constexpr std::string_view kOem = "oem";

class TokenSet {
public:
    // Splits `text`. Only the blank separates; a token that starts with a double quote runs
    // to the next double quote, and an unquoted token that runs into a double quote ends
    // there, the quoted text after it becoming a token of its own. With
    // `programNameMissing` the token "exe" takes the program name's place.
    static TokenSet Split(std::string_view text, std::string_view prefixes,
                          bool programNameMissing);
    // Each argument one token (the program's own start; argv[0] is the program name).
    static TokenSet FromArguments(const std::vector<std::string>& arguments,
                                  std::string_view prefixes);

    std::size_t Count() const { return tokens_.size(); }
    const std::string& Token(std::size_t index) const { return tokens_[index]; }
    const std::vector<std::string>& Tokens() const { return tokens_; }
    bool Consumed(std::size_t index) const { return consumed_[index]; }
    bool IsSwitch(std::size_t index) const { return StartsSwitch(tokens_[index]); }

    // Index (1 or more) of the first token matching the switch, 0 when absent. Switch names
    // are written with '*' after the abbreviation, optionally with a leading prefix.
    std::size_t FindSwitch(std::string_view name, bool caseSensitive = false) const;
    // The value after the first ':' of the matching token, else the next token when it is
    // not a switch (that token becomes consumed); nullopt when the switch is absent or has
    // no value.
    std::optional<std::string> SwitchValue(std::string_view name);
    std::string SwitchValue(std::string_view name, std::string_view defaultValue);
    // The value by the leading-digits rule (no digits: 0); the default when there is none.
    int NumericSwitchValue(std::string_view name, int defaultValue);
    // Unconsumed tokens that are not switches, each followed by the separator (with
    // `firstOnly` only the first, and no separator). With `stopAtFirstSwitch` the walk ends
    // at the first switch, otherwise switches are skipped. Trailing white space is trimmed.
    std::string PlainArguments(bool stopAtFirstSwitch, bool firstOnly,
                               std::string_view separator) const;

private:
    bool StartsSwitch(std::string_view token) const;

    std::string prefixes_;
    std::vector<std::string> tokens_;
    std::vector<bool> consumed_;
};

// The leading-digits conversion of a switch value: optional blanks and sign, then digits.
int LeadingNumber(std::string_view text);

// The arguments of a relaunch after the display failed: -i "folder" and -c "keep folder",
// each only when known. Given as an argument list (programs are started without a shell).
std::vector<std::string> RelaunchArguments(std::string_view currentFolder,
                                           std::string_view keepCopyFolder);

}  // namespace orvanta::cmdline

#include "i18n/language_module.h"

#include <array>
#include <cctype>
#include <charconv>

#include "platform/text/trim.h"
#include "platform/text/unicode.h"

namespace orvanta::i18n {
namespace {

constexpr std::array<std::string_view, 19> kNamedKeys = {
    "Left",   "Right", "Up",        "Down",  "PageUp", "PageDown", "Home",
    "End",    "Space", "Backspace", "Tab",   "Enter",  "Escape",   "Insert",
    "Delete", "Plus",  "Minus",     "Comma", "Period"};

// A decimal id 0..65535 at the start of `s`; advances past it.
std::optional<int> TakeId(std::string_view& s) {
    int value = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (ec != std::errc() || end == s.data() || value < 0 || value > 65535) {
        return std::nullopt;
    }
    s.remove_prefix(static_cast<std::size_t>(end - s.data()));
    return value;
}

// A double-quoted text with the escapes \n \t \" \\ at the start of `s`; advances past it.
std::optional<std::string> TakeQuoted(std::string_view& s, std::string& why) {
    if (s.empty() || s.front() != '"') {
        why = "a text in double quotes was expected";
        return std::nullopt;
    }
    std::string out;
    for (std::size_t i = 1; i < s.size(); ++i) {
        char c = s[i];
        if (c == '"') {
            s.remove_prefix(i + 1);
            return out;
        }
        if (c != '\\') {
            out.push_back(c);
            continue;
        }
        if (++i == s.size()) {
            break;
        }
        switch (s[i]) {
            case 'n':
                out.push_back('\n');
                break;
            case 't':
                out.push_back('\t');
                break;
            case 'r':
                out.push_back('\r');
                break;
            case '"':
                out.push_back('"');
                break;
            case '\\':
                out.push_back('\\');
                break;
            default:
                why = std::string("unknown escape \\") + s[i];
                return std::nullopt;
        }
    }
    why = "the text has no closing double quote";
    return std::nullopt;
}

bool ValidUtf8(std::string_view s) {
    std::size_t i = 0;
    while (i < s.size()) {
        auto c = static_cast<unsigned char>(s[i]);
        std::size_t more = c < 0x80         ? 0
                           : (c >> 5) == 6  ? 1
                           : (c >> 4) == 14 ? 2
                           : (c >> 3) == 30 ? 3
                                            : 4;
        if (more == 4 || s.size() - i <= more) {
            return false;
        }
        for (std::size_t k = 1; k <= more; ++k) {
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += more + 1;
    }
    return true;
}

std::optional<Accelerator> ParseKeyCombination(std::string_view text, std::string& why) {
    Accelerator acc;
    while (true) {
        std::size_t plus = text.find('+');
        // "Ctrl+Plus" and "Plus" name the key; a '+' that ends the text is the key itself.
        if (plus == std::string_view::npos || plus + 1 == text.size()) {
            break;
        }
        std::string_view word = text.substr(0, plus);
        std::uint8_t bit = text::EqualsNoCase(word, "Ctrl")    ? kCtrl
                           : text::EqualsNoCase(word, "Shift") ? kShift
                           : text::EqualsNoCase(word, "Alt")   ? kAlt
                                                               : 0;
        if (bit == 0) {
            why = "unknown modifier \"" + std::string(word) + "\" (Ctrl, Shift or Alt)";
            return std::nullopt;
        }
        if (acc.modifiers & bit) {
            why = "modifier \"" + std::string(word) + "\" given twice";
            return std::nullopt;
        }
        acc.modifiers |= bit;
        text.remove_prefix(plus + 1);
    }
    auto key = CanonicalKeyName(text);
    if (!key) {
        why = "unknown key \"" + std::string(text) + "\"";
        return std::nullopt;
    }
    acc.key = *key;
    return acc;
}

enum class Section { None, Strings, Menu, Accelerators };

}  // namespace

std::optional<std::string> CanonicalKeyName(std::string_view name) {
    if (name.size() == 1) {
        char c = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
        if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
            return std::string(1, c);
        }
        return std::nullopt;
    }
    for (std::string_view known : kNamedKeys) {
        if (text::EqualsNoCase(name, known)) {
            return std::string(known);
        }
    }
    if (name.size() == 4 && text::EqualsNoCase(name.substr(0, 3), "Num") && name[3] >= '0' &&
        name[3] <= '9') {
        return "Num" + std::string(1, name[3]);
    }
    if ((name[0] == 'F' || name[0] == 'f') && name.size() <= 3) {
        std::string_view digits = name.substr(1);
        int n = 0;
        auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
        if (ec == std::errc() && end == digits.data() + digits.size() && digits[0] != '0' &&
            n >= 1 && n <= 24) {
            return "F" + std::to_string(n);
        }
    }
    return std::nullopt;
}

std::string ParseError::ToString() const {
    if (line <= 0) {
        return message;
    }
    return "line " + std::to_string(line) + ": " + message;
}

std::optional<LanguageModule> LanguageModule::Parse(std::string_view text, ParseError& error) {
    if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF") {
        text.remove_prefix(3);
    }
    if (!ValidUtf8(text)) {
        error = {0, "the module is not valid UTF-8"};
        return std::nullopt;
    }
    LanguageModule module;
    Section section = Section::None;
    int sectionId = 0;
    // Open popups of the menu being read, innermost last.
    std::vector<std::vector<MenuItem>*> menuStack;
    int popupLine = 0;
    int lineNumber = 0;

    auto fail = [&](std::string message) {
        error = {lineNumber, std::move(message)};
        return std::nullopt;
    };
    auto closeSection = [&]() -> bool { return menuStack.size() <= 1; };

    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string_view line = text::TrimBlanks(text.substr(pos, end - pos));
        pos = end + 1;
        ++lineNumber;
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            if (!closeSection()) {
                --lineNumber;
                error = {popupLine, "popup without its \"end\""};
                return std::nullopt;
            }
            menuStack.clear();
            if (line.back() != ']') {
                return fail("a section header ends with ']'");
            }
            std::string_view header = text::TrimBlanks(line.substr(1, line.size() - 2));
            std::size_t blank = header.find(' ');
            std::string_view kind = header.substr(0, blank);
            std::string_view rest = blank == std::string_view::npos
                                        ? std::string_view()
                                        : text::TrimBlanks(header.substr(blank));
            if (kind == "strings" && rest.empty()) {
                section = Section::Strings;
                continue;
            }
            if (kind == "language") {
                if (rest.empty()) {
                    return fail("[language NAME] needs a name");
                }
                module.language_ = std::string(rest);
                section = Section::None;
                continue;
            }
            if (kind != "menu" && kind != "accelerators") {
                return fail("unknown section \"" + std::string(header) +
                            "\" (strings, menu N, accelerators N, language NAME)");
            }
            auto id = TakeId(rest);
            if (!id || !rest.empty()) {
                return fail("section \"" + std::string(kind) + "\" needs a numeric id");
            }
            sectionId = *id;
            if (kind == "menu") {
                if (module.menus_.count(sectionId)) {
                    return fail("menu " + std::to_string(sectionId) + " is defined twice");
                }
                section = Section::Menu;
                menuStack.push_back(&module.menus_[sectionId].items);
            } else {
                if (module.accelerators_.count(sectionId)) {
                    return fail("accelerators " + std::to_string(sectionId) + " are defined twice");
                }
                section = Section::Accelerators;
                module.accelerators_[sectionId];
            }
            continue;
        }

        std::string why;
        switch (section) {
            case Section::None:
                return fail("text outside a section");
            case Section::Strings: {
                auto id = TakeId(line);
                if (!id) {
                    return fail("a string line starts with its id (0..65535)");
                }
                line = text::TrimBlanks(line);
                if (line.empty() || line.front() != '=') {
                    return fail("'=' expected after the id");
                }
                line = text::TrimBlanks(line.substr(1));
                auto value = TakeQuoted(line, why);
                if (!value) {
                    return fail(why);
                }
                if (!text::TrimBlanks(line).empty()) {
                    return fail("unexpected text after the closing quote");
                }
                if (!module.strings_.emplace(*id, std::move(*value)).second) {
                    return fail("string " + std::to_string(*id) + " is defined twice");
                }
                break;
            }
            case Section::Menu: {
                std::size_t blank = line.find_first_of(" \t");
                std::string_view word = line.substr(0, blank);
                std::string_view rest = blank == std::string_view::npos
                                            ? std::string_view()
                                            : text::TrimBlanks(line.substr(blank));
                if (word == "end") {
                    if (menuStack.size() <= 1) {
                        return fail("\"end\" without an open popup");
                    }
                    menuStack.pop_back();
                } else if (word == "separator") {
                    menuStack.back()->push_back({MenuItem::Kind::Separator, 0, {}, {}});
                } else if (word == "popup") {
                    auto title = TakeQuoted(rest, why);
                    if (!title) {
                        return fail(why);
                    }
                    menuStack.back()->push_back({MenuItem::Kind::Popup, 0, *title, {}});
                    menuStack.push_back(&menuStack.back()->back().items);
                    popupLine = lineNumber;
                } else if (word == "item") {
                    auto id = TakeId(rest);
                    if (!id) {
                        return fail("\"item\" is followed by its command id");
                    }
                    rest = text::TrimBlanks(rest);
                    auto title = TakeQuoted(rest, why);
                    if (!title) {
                        return fail(why);
                    }
                    menuStack.back()->push_back({MenuItem::Kind::Command, *id, *title, {}});
                } else {
                    return fail("unknown menu line \"" + std::string(word) +
                                "\" (popup, item, separator, end)");
                }
                break;
            }
            case Section::Accelerators: {
                std::size_t eq = line.find('=', 1);
                if (eq == std::string_view::npos) {
                    return fail("an accelerator line reads KEYS = COMMAND");
                }
                auto acc = ParseKeyCombination(text::TrimBlanks(line.substr(0, eq)), why);
                if (!acc) {
                    return fail(why);
                }
                std::string_view rest = text::TrimBlanks(line.substr(eq + 1));
                auto command = TakeId(rest);
                if (!command || !rest.empty()) {
                    return fail("the command after '=' must be a number");
                }
                acc->command = *command;
                auto& table = module.accelerators_[sectionId];
                for (const Accelerator& other : table) {
                    if (other.key == acc->key && other.modifiers == acc->modifiers) {
                        return fail("the key combination is already bound to command " +
                                    std::to_string(other.command));
                    }
                }
                table.push_back(std::move(*acc));
                break;
            }
        }
    }
    if (menuStack.size() > 1) {
        error = {popupLine, "popup without its \"end\""};
        return std::nullopt;
    }
    if (module.strings_.empty()) {
        error = {0, "the module has no strings"};
        return std::nullopt;
    }
    return module;
}

const std::string* LanguageModule::FindString(int id) const {
    auto it = strings_.find(id);
    return it == strings_.end() ? nullptr : &it->second;
}

std::string_view LanguageModule::String(int id) const {
    const std::string* s = FindString(id);
    return s ? std::string_view(*s) : std::string_view();
}

const Menu* LanguageModule::FindMenu(int id) const {
    auto it = menus_.find(id);
    return it == menus_.end() ? nullptr : &it->second;
}

const std::vector<Accelerator>* LanguageModule::FindAccelerators(int id) const {
    auto it = accelerators_.find(id);
    return it == accelerators_.end() ? nullptr : &it->second;
}

}  // namespace orvanta::i18n

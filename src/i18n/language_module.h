// A language module: the string table, menus and accelerator tables of one language, read
// from a UTF-8 text file (the format is described at the top of lang/orvanta.ENU.lang).
// Parsing never throws: a malformed module gives an error naming the line and what is
// wrong. A parsed module is an immutable value; safe to read from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::i18n {

// One menu item: a command, a separator or a sub-menu with its own items.
struct MenuItem {
    enum class Kind { Command, Separator, Popup };
    Kind kind = Kind::Command;
    int command = 0;  // Command only
    std::string text;
    std::vector<MenuItem> items;  // Popup only
};

struct Menu {
    std::vector<MenuItem> items;  // the top level: usually popups ("first sub-menu")
};

enum Modifier : std::uint8_t {
    kShift = 1,
    kCtrl = 2,
    kAlt = 4,
};

struct Accelerator {
    std::uint8_t modifiers = 0;  // Modifier bits
    std::string key;             // canonical key name, see IsKnownKeyName
    int command = 0;

    friend bool operator==(const Accelerator&, const Accelerator&) = default;
};

// Key names an accelerator may use: "A".."Z", "0".."9", "Num0".."Num9", "F1".."F24", and
// Left Right Up Down PageUp PageDown Home End Space Backspace Tab Enter Escape Insert
// Delete Plus Minus Comma Period. Compared without regard to case; returns the canonical
// spelling or nullopt.
std::optional<std::string> CanonicalKeyName(std::string_view name);

struct ParseError {
    int line = 0;  // 1-based; 0 for the file as a whole
    std::string message;
    std::string ToString() const;
};

class LanguageModule {
public:
    // Reads a module from its text. On failure returns nullopt and fills `error`.
    static std::optional<LanguageModule> Parse(std::string_view text, ParseError& error);

    // The string with this id, or nullptr when the module has none.
    const std::string* FindString(int id) const;
    // The string, or an empty text when missing.
    std::string_view String(int id) const;
    const Menu* FindMenu(int id) const;
    const std::vector<Accelerator>* FindAccelerators(int id) const;

    const std::map<int, std::string>& Strings() const { return strings_; }
    const std::string& Language() const { return language_; }  // the header's language line

private:
    std::string language_;
    std::map<int, std::string> strings_;
    std::map<int, Menu> menus_;
    std::map<int, std::vector<Accelerator>> accelerators_;
};

}  // namespace orvanta::i18n

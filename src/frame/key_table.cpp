#include "frame/key_table.h"

#include <array>
#include <string_view>

namespace orvanta::frame {
namespace {

struct NamedKey {
    std::string_view name;
    Qt::Key key;
};

constexpr std::array<NamedKey, 19> kNamedKeys = {{
    {"Left", Qt::Key_Left},           {"Right", Qt::Key_Right},   {"Up", Qt::Key_Up},
    {"Down", Qt::Key_Down},           {"PageUp", Qt::Key_PageUp}, {"PageDown", Qt::Key_PageDown},
    {"Home", Qt::Key_Home},           {"End", Qt::Key_End},       {"Space", Qt::Key_Space},
    {"Backspace", Qt::Key_Backspace}, {"Tab", Qt::Key_Tab},       {"Enter", Qt::Key_Return},
    {"Escape", Qt::Key_Escape},       {"Insert", Qt::Key_Insert}, {"Delete", Qt::Key_Delete},
    {"Plus", Qt::Key_Plus},           {"Minus", Qt::Key_Minus},   {"Comma", Qt::Key_Comma},
    {"Period", Qt::Key_Period},
}};

// Qt has no key code of its own for the keypad digits: they are the digit keys with the
// keypad modifier.
bool KeyFor(std::string_view name, int& key, Qt::KeyboardModifiers& extra) {
    if (name.size() == 1 &&
        ((name[0] >= 'A' && name[0] <= 'Z') || (name[0] >= '0' && name[0] <= '9'))) {
        key = name[0];
        return true;
    }
    if (name.size() == 4 && name.substr(0, 3) == "Num") {
        key = Qt::Key_0 + (name[3] - '0');
        extra |= Qt::KeypadModifier;
        return true;
    }
    if (name.size() >= 2 && name[0] == 'F' && name[1] >= '1' && name[1] <= '9') {
        int n = 0;
        for (char c : name.substr(1)) {
            n = n * 10 + (c - '0');
        }
        key = Qt::Key_F1 + (n - 1);
        return true;
    }
    for (const NamedKey& named : kNamedKeys) {
        if (named.name == name) {
            key = named.key;
            return true;
        }
    }
    return false;
}

}  // namespace

QKeySequence KeySequenceFor(const i18n::Accelerator& accelerator) {
    int key = 0;
    Qt::KeyboardModifiers modifiers;
    if (!KeyFor(accelerator.key, key, modifiers)) {
        return {};
    }
    if (accelerator.modifiers & i18n::kShift) {
        modifiers |= Qt::ShiftModifier;
    }
    if (accelerator.modifiers & i18n::kCtrl) {
        modifiers |= Qt::ControlModifier;
    }
    if (accelerator.modifiers & i18n::kAlt) {
        modifiers |= Qt::AltModifier;
    }
    return QKeySequence(QKeyCombination(modifiers, static_cast<Qt::Key>(key)));
}

std::vector<Shortcut> Shortcuts(const std::vector<i18n::Accelerator>& table) {
    std::vector<Shortcut> shortcuts;
    for (const i18n::Accelerator& accelerator : table) {
        QKeySequence keys = KeySequenceFor(accelerator);
        if (!keys.isEmpty()) {
            shortcuts.push_back({keys, accelerator.command});
        }
    }
    return shortcuts;
}

}  // namespace orvanta::frame

#include "frame/key_table.h"

#include <set>

#include <gtest/gtest.h>

#include "support/english_module.h"

namespace orvanta::frame {
namespace {

TEST(KeyTable, AcceleratorsBecomeKeySequences) {
    auto text = [](std::uint8_t modifiers, const char* key) {
        return KeySequenceFor({modifiers, key, 0}).toString(QKeySequence::PortableText);
    };
    EXPECT_EQ(text(i18n::kCtrl, "F3"), "Ctrl+F3");
    EXPECT_EQ(text(0, "F24"), "F24");
    EXPECT_EQ(text(i18n::kCtrl | i18n::kShift, "K"), "Ctrl+Shift+K");
    EXPECT_EQ(text(i18n::kAlt, "Enter"), "Alt+Return");
    EXPECT_EQ(text(0, "PageDown"), "PgDown");
    EXPECT_EQ(text(0, "Backspace"), "Backspace");
    EXPECT_EQ(text(i18n::kCtrl, "Comma"), "Ctrl+,");
    // Keypad digits carry the keypad modifier, so they differ from the digit row.
    QKeySequence keypad = KeySequenceFor({0, "Num5", 0});
    EXPECT_EQ(keypad[0].keyboardModifiers(), Qt::KeypadModifier);
    EXPECT_EQ(keypad[0].key(), Qt::Key_5);
    EXPECT_NE(keypad, KeySequenceFor({0, "5", 0}));
    EXPECT_TRUE(KeySequenceFor({0, "NoSuchKey", 0}).isEmpty());
}

TEST(KeyTable, EveryKeyOfTheEnglishModuleIsDistinct) {
    const auto* table = test::EnglishModule().FindAccelerators(102);
    ASSERT_NE(table, nullptr);
    std::vector<Shortcut> shortcuts = Shortcuts(*table);
    EXPECT_EQ(shortcuts.size(), table->size());
    std::set<QString> seen;
    for (const Shortcut& shortcut : shortcuts) {
        EXPECT_TRUE(seen.insert(shortcut.keys.toString()).second)
            << shortcut.keys.toString().toStdString();
    }
}

}  // namespace
}  // namespace orvanta::frame

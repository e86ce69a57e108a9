#include "i18n/format_text.h"

#include <gtest/gtest.h>

namespace orvanta::i18n {
namespace {

TEST(FormatText, ConversionsFlagsAndWidths) {
    EXPECT_EQ(FormatText("%u x %u", {6000, 4000}), "6000 x 4000");
    EXPECT_EQ(FormatText("(0x%08X)", {0x80096010u}), "(0x80096010)");
    EXPECT_EQ(FormatText("(0x%08lx)", {0x2026u}), "(0x00002026)");
    EXPECT_EQ(FormatText("%d%% %ls", {-25, "fit"}), "-25% fit");
    EXPECT_EQ(FormatText("[%5d|%-5d|%05d]", {42, 42, -42}), "[   42|42   |-0042]");
    EXPECT_EQ(FormatText("%u", {-1}), "4294967295");
    EXPECT_EQ(FormatText("%c%c", {'o', 'k'}), "ok");
    // Precision cuts texts by characters, not bytes.
    EXPECT_EQ(FormatText("[%.3s]", {"Ünïcode"}), "[Ünï]");
    EXPECT_EQ(FormatText("[%4s]", {"é"}), "[   é]");
}

TEST(FormatText, HostileFormatsNeverReadWrongArguments) {
    // A text for a number, a number for a text, too few arguments, unknown conversions.
    EXPECT_EQ(FormatText("%d and %s", {"seven", 8}), "seven and 8");
    EXPECT_EQ(FormatText("%s %s %s|", {"a"}), "a  |");
    EXPECT_EQ(FormatText("%n%p%f", {1}), "%n%p%f");
    EXPECT_EQ(FormatText("100%", {}), "100%");
    EXPECT_EQ(FormatText("%l", {}), "%l");
    // Widths are capped so that a module cannot make a text of gigabytes.
    EXPECT_EQ(FormatText("%999999999d", {1}).size(), 512u);
}

TEST(FormatText, TruncateKeepsWholeCharacters) {
    EXPECT_EQ(Truncate("abc", 5), "abc");
    EXPECT_EQ(Truncate("abc", 0), "");
    EXPECT_EQ(Truncate("日本語テキスト", 3), "日本語");
}

}  // namespace
}  // namespace orvanta::i18n

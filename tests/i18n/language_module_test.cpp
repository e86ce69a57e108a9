#include "i18n/language_module.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "i18n/language_codes.h"
#include "support/english_module.h"

namespace orvanta::i18n {
namespace {

namespace fs = std::filesystem;

LanguageModule MustParse(std::string_view text) {
    ParseError error;
    auto module = LanguageModule::Parse(text, error);
    EXPECT_TRUE(module) << error.ToString();
    return module ? *module : LanguageModule();
}

TEST(LanguageModule, ReadsStringsMenusAndKeys) {
    auto module = MustParse(
        "\xEF\xBB\xBF# comment\r\n"
        "[language Deutsch]\n"
        "[strings]\n"
        "100 = \"Orvanta\"\n"
        "  10060=\"Warte \\\"auf\\\" das Bild\\n\\tfertig \\\\ \"  \n"
        "10067 = \"\"\n"
        "[menu 246]\n"
        "popup \"Editor\"\n"
        "  item 1980 \"&Öffnen\"\n"
        "  separator\n"
        "  popup \"Mehr\"\n"
        "    item 1981 \"Neu\"\n"
        "  end\n"
        "end\n"
        "[accelerators 102]\n"
        "ctrl+shift+f12 = 2171\n"
        "Shift+3 = 2003\n"
        "Ctrl+Plus = 7\n"
        "Plus = 8\n"
        "num5 = 2005\n");
    EXPECT_EQ(module.Language(), "Deutsch");
    EXPECT_EQ(module.String(100), "Orvanta");
    EXPECT_EQ(module.String(10060), "Warte \"auf\" das Bild\n\tfertig \\ ");
    ASSERT_NE(module.FindString(10067), nullptr);
    EXPECT_EQ(*module.FindString(10067), "");
    EXPECT_EQ(module.FindString(10068), nullptr);

    const Menu* menu = module.FindMenu(246);
    ASSERT_NE(menu, nullptr);
    ASSERT_EQ(menu->items.size(), 1u);
    const MenuItem& popup = menu->items[0];
    EXPECT_EQ(popup.kind, MenuItem::Kind::Popup);
    ASSERT_EQ(popup.items.size(), 3u);
    EXPECT_EQ(popup.items[0].command, 1980);
    EXPECT_EQ(popup.items[0].text, "&Öffnen");
    EXPECT_EQ(popup.items[1].kind, MenuItem::Kind::Separator);
    ASSERT_EQ(popup.items[2].items.size(), 1u);
    EXPECT_EQ(popup.items[2].items[0].command, 1981);
    EXPECT_EQ(module.FindMenu(102), nullptr);

    const auto* keys = module.FindAccelerators(102);
    ASSERT_NE(keys, nullptr);
    std::vector<Accelerator> expected = {{kCtrl | kShift, "F12", 2171},
                                         {kShift, "3", 2003},
                                         {kCtrl, "Plus", 7},
                                         {0, "Plus", 8},
                                         {0, "Num5", 2005}};
    EXPECT_EQ(*keys, expected);
}

struct BadModule {
    const char* text;
    int line;
    const char* words;  // part of the message
};

void PrintTo(const BadModule& bad, std::ostream* os) {
    *os << "expecting \"" << bad.words << "\"";
}

class LanguageModuleErrors : public testing::TestWithParam<BadModule> {};

TEST_P(LanguageModuleErrors, NameTheLineAndTheFault) {
    ParseError error;
    EXPECT_FALSE(LanguageModule::Parse(GetParam().text, error));
    EXPECT_EQ(error.line, GetParam().line) << error.ToString();
    EXPECT_NE(error.message.find(GetParam().words), std::string::npos) << error.message;
    if (error.line > 0) {
        EXPECT_EQ(error.ToString().rfind("line " + std::to_string(error.line) + ": ", 0), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LanguageModuleErrors,
    testing::Values(
        BadModule{"100 = \"x\"\n", 1, "outside a section"},
        BadModule{"[strings]\n100 = \"x\"\n[texts]\n", 3, "unknown section"},
        BadModule{"[strings]\n100 = \"x\n", 2, "closing double quote"},
        BadModule{"[strings]\n100 \"x\"\n", 2, "'='"},
        BadModule{"[strings]\n100 = x\n", 2, "double quotes"},
        BadModule{"[strings]\n100 = \"a\\q\"\n", 2, "escape"},
        BadModule{"[strings]\n100 = \"a\" b\n", 2, "after the closing quote"},
        BadModule{"[strings]\n100 = \"a\"\n\n100 = \"b\"\n", 4, "defined twice"},
        BadModule{"[strings]\n70000 = \"a\"\n", 2, "id"},
        BadModule{"[strings]\n100 = \"a\"\n[menu]\n", 3, "numeric id"},
        BadModule{"[strings]\n100 = \"a\"\n[menu 1]\n[menu 1]\n", 4, "defined twice"},
        BadModule{"[strings]\n100 = \"a\"\n[menu 1]\npopup \"P\"\nitem 5 \"x\"\n", 4,
                  "without its \"end\""},
        BadModule{"[strings]\n100 = \"a\"\n[menu 1]\npopup \"P\"\n[strings]\n", 4,
                  "without its \"end\""},
        BadModule{"[strings]\n100 = \"a\"\n[menu 1]\nend\n", 4, "without an open popup"},
        BadModule{"[strings]\n100 = \"a\"\n[menu 1]\nitem \"x\"\n", 4, "command id"},
        BadModule{"[strings]\n100 = \"a\"\n[menu 1]\nbutton 5 \"x\"\n", 4, "unknown menu line"},
        BadModule{"[strings]\n100 = \"a\"\n[accelerators 1]\nCtrl+Foo = 5\n", 4,
                  "unknown key \"Foo\""},
        BadModule{"[strings]\n100 = \"a\"\n[accelerators 1]\nMeta+A = 5\n", 4, "unknown modifier"},
        BadModule{"[strings]\n100 = \"a\"\n[accelerators 1]\nCtrl+Ctrl+A = 5\n", 4, "twice"},
        BadModule{"[strings]\n100 = \"a\"\n[accelerators 1]\nA = x\n", 4, "must be a number"},
        BadModule{"[strings]\n100 = \"a\"\n[accelerators 1]\nF25 = 1\n", 4, "unknown key"},
        BadModule{"[strings]\n100 = \"a\"\n[accelerators 1]\nctrl+a = 1\nCtrl+A = 2\n", 5,
                  "already bound to command 1"},
        BadModule{"[strings]\n100 = \"a\xC3\"\n", 0, "UTF-8"},
        BadModule{"[strings]\n100 = \"\xE2\x82\"\n", 0, "UTF-8"},
        BadModule{"# nothing\n[menu 1]\n", 0, "no strings"}));

// Ids named in the program's sources: the constants of every `string_ids` namespace and
// every `...TextId` struct.
std::set<int> StringIdsInSources() {
    std::set<int> ids;
    const std::regex block(
        R"((?:namespace\s+[\w:]*string_ids|struct\s+\w*(?:Text|String)Id\w*)\s*\{([^}]*)\})");
    const std::regex constant(R"(constexpr\s+int\s+k\w+\s*=\s*(\d+)\s*;)");
    for (const auto& entry :
         fs::recursive_directory_iterator(fs::path(ORVANTA_SOURCE_DIR) / "src")) {
        auto ext = entry.path().extension();
        if (ext != ".h" && ext != ".cpp") {
            continue;
        }
        std::ifstream in(entry.path());
        std::stringstream text;
        text << in.rdbuf();
        std::string all = text.str();
        for (std::sregex_iterator b(all.begin(), all.end(), block), end; b != end; ++b) {
            std::string body = (*b)[1];
            for (std::sregex_iterator c(body.begin(), body.end(), constant); c != end; ++c) {
                ids.insert(std::stoi((*c)[1]));
            }
        }
    }
    return ids;
}

TEST(EnglishModule, HoldsEveryStringIdTheProgramUses) {
    const LanguageModule& english = test::EnglishModule();
    std::set<int> ids = StringIdsInSources();
    // The scan must see the ids of both kinds of block.
    ASSERT_TRUE(ids.count(10060));  // string_ids
    ASSERT_TRUE(ids.count(10127));  // the picture list's StatusTextId
    for (int id : ids) {
        const std::string* text = english.FindString(id);
        ASSERT_NE(text, nullptr) << "string " << id << " is missing";
        EXPECT_FALSE(text->empty()) << "string " << id << " is empty";
    }
}

TEST(EnglishModule, KeysReachTheMarksEditorsAndPictures) {
    const LanguageModule& english = test::EnglishModule();
    const auto* keys = english.FindAccelerators(102);
    ASSERT_NE(keys, nullptr);
    auto command = [&](std::uint8_t modifiers, const std::string& key) {
        for (const Accelerator& a : *keys) {
            if (a.modifiers == modifiers && a.key == key) {
                return a.command;
            }
        }
        return -1;
    };
    for (int n = 0; n <= 9; ++n) {
        std::string digit = std::to_string(n);
        // The mark command reads Shift and Ctrl itself: every variant reaches it.
        EXPECT_EQ(command(0, digit), 2000 + n);
        EXPECT_EQ(command(kShift, digit), 2000 + n);
        EXPECT_EQ(command(kCtrl, digit), 2000 + n);
        EXPECT_EQ(command(0, "Num" + digit), 2000 + n);
    }
    for (int f = 1; f <= 12; ++f) {
        EXPECT_EQ(command(kCtrl, "F" + std::to_string(f)), 2159 + f);
    }
    EXPECT_EQ(command(0, "Right"), 1006);
    EXPECT_EQ(command(0, "Left"), 1005);
    EXPECT_EQ(command(0, "Space"), 1006);
    EXPECT_EQ(command(0, "Backspace"), 1005);
    EXPECT_EQ(command(0, "Home"), 1007);
    EXPECT_EQ(command(0, "End"), 1008);
    EXPECT_EQ(command(0, "Escape"), 1072);
    EXPECT_EQ(command(0, "Enter"), 1002);

    // The context menus the tool windows open, with the commands they act on.
    for (auto [menuId, commandId] :
         {std::pair{243, 32870}, {243, 32872}, {246, 1980}, {240, 1025}, {102, 1006}}) {
        const Menu* menu = english.FindMenu(menuId);
        ASSERT_NE(menu, nullptr) << menuId;
        ASSERT_FALSE(menu->items.empty());
        bool found = false;
        for (const MenuItem& popup : menu->items) {
            for (const MenuItem& item : popup.items) {
                found = found || item.command == commandId;
            }
        }
        EXPECT_TRUE(found) << "menu " << menuId << " lacks command " << commandId;
    }
}

}  // namespace
}  // namespace orvanta::i18n

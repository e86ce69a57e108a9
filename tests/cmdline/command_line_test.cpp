#include "cmdline/command_line.h"

#include <gtest/gtest.h>

#include "cmdline/startup_request.h"

namespace orvanta::cmdline {
namespace {

using Tokens = std::vector<std::string>;

TokenSet Args(std::initializer_list<std::string> args) {
    Tokens all{"orvanta"};
    all.insert(all.end(), args);
    return TokenSet::FromArguments(all, kPrefixes);
}

TEST(CommandLine, SplitsByBlanksAndQuotes) {
    EXPECT_EQ(TokenSet::Split("  a  b ", kPrefixes, true).Tokens(), (Tokens{"exe", "a", "b"}));
    EXPECT_EQ(TokenSet::Split("prog \"/home/ann/My Pictures/x.jpg\" y", kPrefixes, false).Tokens(),
              (Tokens{"prog", "/home/ann/My Pictures/x.jpg", "y"}));
    // -i directly followed by a quoted path gives two tokens.
    EXPECT_EQ(TokenSet::Split("-i\"/home/My Pictures\" z", kPrefixes, true).Tokens(),
              (Tokens{"exe", "-i", "/home/My Pictures", "z"}));
    // An unterminated quote runs to the end; tabs do not separate.
    EXPECT_EQ(TokenSet::Split("\"a b", kPrefixes, true).Tokens(), (Tokens{"exe", "a b"}));
    EXPECT_EQ(TokenSet::Split("a\tb", kPrefixes, true).Tokens(), (Tokens{"exe", "a\tb"}));
    EXPECT_EQ(TokenSet::Split("", kPrefixes, true).Tokens(), (Tokens{"exe"}));

    std::string many;
    for (int i = 0; i < 300; ++i) {
        many += "t" + std::to_string(i) + " ";
    }
    const auto set = TokenSet::Split(many, kPrefixes, true);
    EXPECT_EQ(set.Count(), kMaxTokens);
    EXPECT_EQ(set.Token(kMaxTokens - 1), "t254");
}

TEST(CommandLine, SwitchesMatchFullNameOrExactAbbreviation) {
    for (const auto& spelling : {"/I:D:\\Shots", "-imagefolder", "-IMAGEFOLDER:D:\\Shots", "-i"}) {
        EXPECT_EQ(Args({spelling, "D:\\Shots"}).FindSwitch(kImageFolder), 1u) << spelling;
    }
    auto set = Args({"-im", "/data/shots"});
    EXPECT_EQ(set.FindSwitch(kImageFolder), 0u);
    EXPECT_EQ(set.PlainArguments(false, false, "|"), "/data/shots|");
    EXPECT_EQ(Args({"-ima"}).FindSwitch(kImageFolder), 0u);
    // lang and oem only by their full word.
    EXPECT_EQ(Args({"-l:FR"}).FindSwitch(kLang), 0u);
    EXPECT_EQ(Args({"-LANG:fr"}).FindSwitch(kLang), 1u);
    EXPECT_EQ(Args({"-i"}).FindSwitch(kImageFolder, true), 1u);
    EXPECT_EQ(Args({"-I"}).FindSwitch(kImageFolder, true), 0u);
    // Absolute paths are not switches, except a '/' word that names one.
    EXPECT_EQ(Args({"/home/ann/a.jpg"}).FindSwitch(kAutoMode), 0u);
    EXPECT_FALSE(Args({"/media"}).IsSwitch(1));
    EXPECT_TRUE(Args({"/t"}).IsSwitch(1));
    EXPECT_EQ(Args({"/media", "-k"}).PlainArguments(false, false, "|"), "/media|");
}

TEST(CommandLine, ValuesAreTakenAfterAColonOrFromTheNextToken) {
    auto set = Args({"-a", "/pics/a.jpg"});
    EXPECT_EQ(set.NumericSwitchValue(kAutoMode, 1000), 0) << "the path is consumed as interval";
    EXPECT_EQ(set.PlainArguments(false, false, "|"), "");

    set = Args({"-a:2000", "/pics/a.jpg"});
    EXPECT_EQ(set.NumericSwitchValue(kAutoMode, 1000), 2000);
    EXPECT_EQ(set.PlainArguments(false, false, "|"), "/pics/a.jpg|");

    set = Args({"-a"});
    EXPECT_EQ(set.NumericSwitchValue(kAutoMode, 1500), 1500);
    set = Args({"-a", "-k"});
    EXPECT_EQ(set.NumericSwitchValue(kAutoMode, 1500), 1500) << "a switch is never a value";
    set = Args({"-i:"});
    EXPECT_EQ(set.SwitchValue(kImageFolder), std::optional<std::string>(""));
    set = Args({"-i:/x:y"});
    EXPECT_EQ(set.SwitchValue(kImageFolder, "default"), "/x:y");
    EXPECT_EQ(Args({}).SwitchValue(kImageFolder, "default"), "default");

    EXPECT_EQ(LeadingNumber(" 12ab"), 12);
    EXPECT_EQ(LeadingNumber("-3"), -3);
    EXPECT_EQ(LeadingNumber("x1"), 0);
}

TEST(CommandLine, PlainArgumentsStopSkipAndTrim) {
    auto set = TokenSet::Split("a b -k c -a:5 d ", kPrefixes, true);
    EXPECT_EQ(set.PlainArguments(false, false, "|"), "a|b|c|d|");
    EXPECT_EQ(set.PlainArguments(true, false, "|"), "a|b|");
    EXPECT_EQ(set.PlainArguments(false, true, "|"), "a");
    EXPECT_EQ(set.PlainArguments(false, false, " "), "a b c d");
}

TEST(CommandLine, StartupReadsSwitchesInTheProgramsOrder) {
    // -k consumes nothing, so the picture still opens in kiosk mode.
    auto set = Args({"-k", "/pics/a.jpg"});
    auto request = ReadStartupRequest(set);
    EXPECT_TRUE(request.kiosk.present);
    EXPECT_EQ(request.plain, "/pics/a.jpg|");

    // -c is offered to both the colour profile and the keep folder.
    set = Args({"-i", "/shots", "-c", "/keep"});
    request = ReadStartupRequest(set);
    EXPECT_EQ(request.imageFolder.value, "/shots");
    EXPECT_EQ(request.colorProfile.value, "/keep");
    EXPECT_EQ(request.copyFolder.value, "/keep");
    EXPECT_EQ(request.plain, "");

    set = Args({"-m", "2", "-t", "-p"});
    request = ReadStartupRequest(set);
    EXPECT_EQ(request.monitor.value, "2");
    EXPECT_TRUE(request.trackMode.present);
    EXPECT_TRUE(request.ptpMode.present);
    EXPECT_FALSE(request.autoMode.present);
}

TEST(CommandLine, RelaunchNamesTheFoldersItKnows) {
    EXPECT_EQ(RelaunchArguments("/shots/day 1", "/keep"),
              (Tokens{"-i", "/shots/day 1", "-c", "/keep"}));
    EXPECT_EQ(RelaunchArguments("", "/keep"), (Tokens{"-c", "/keep"}));
    EXPECT_TRUE(RelaunchArguments("", "").empty());
    // What a relaunch passes is read back as the same folders.
    Tokens all{"orvanta"};
    for (auto& a : RelaunchArguments("/shots/day 1", "/keep")) {
        all.push_back(a);
    }
    auto set = TokenSet::FromArguments(all, kPrefixes);
    auto request = ReadStartupRequest(set);
    EXPECT_EQ(request.imageFolder.value, "/shots/day 1");
    EXPECT_EQ(request.copyFolder.value, "/keep");
}

}  // namespace
}  // namespace orvanta::cmdline

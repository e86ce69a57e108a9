// orvanta-cli as a script sees it: exit codes, golden JSON, and the settings round trip
// through a temporary store.
#include <fstream>

#include <gtest/gtest.h>

#include "support/cli_runner.h"
#include "support/temp_folder.h"

namespace orvanta {
namespace {

test::CliRun Cli(const std::filesystem::path& registry, std::vector<std::string> args) {
    return test::RunCli(args, {registry, false});
}

TEST(Cli, ArgsJsonIsGolden) {
    test::TempFolder folder;
    const auto run = Cli(folder / "r.db", {"args", "--json", "--text",
                                           "-a /pics/a.jpg -k \"/My Pictures/b.jpg\" -im /x"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out,
              R"({"tokens":["exe","-a","/pics/a.jpg","-k","/My Pictures/b.jpg","-im","/x"],)"
              R"("switches":{"imageFolder":{"present":false,"value":null},)"
              R"("copyFolder":{"present":false,"value":null},)"
              R"("monitor":{"present":false,"value":null},)"
              R"("kiosk":{"present":true,"value":null},)"
              R"("trackMode":{"present":false,"value":null},)"
              R"("ptpMode":{"present":false,"value":null},)"
              R"("autoMode":{"present":true,"value":"/pics/a.jpg"},)"
              R"("colorProfile":{"present":false,"value":null},)"
              R"("lang":{"present":false,"value":null},"oem":{"present":false,"value":null}},)"
              R"("plain":"/My Pictures/b.jpg|/x|"})"
              "\n");
}

TEST(Cli, SettingsRoundTripAndRefuseBadInput) {
    test::TempFolder folder;
    const auto registry = folder / "r.db";
    EXPECT_EQ(Cli(registry, {"settings", "set", "AutoModeInterval", "5"}).exitCode, 0);
    EXPECT_EQ(Cli(registry, {"settings", "get", "automodeinterval"}).out, "5\n");
    const auto effective = Cli(registry, {"settings", "effective", "--json"});
    EXPECT_EQ(effective.exitCode, 0);
    EXPECT_NE(effective.out.find("\"AutoModeInterval\":10,"), std::string::npos);
    EXPECT_NE(effective.out.find("\"ExternalBookmarkFileName\":\"Bookmarks.orv\""),
              std::string::npos);

    EXPECT_EQ(Cli(registry, {"settings", "set", "LastPictureFolder", "/shots/a \"b\""}).exitCode,
              0);
    EXPECT_EQ(Cli(registry, {"settings", "export", (folder / "s.reg").string()}).exitCode, 0);
    EXPECT_EQ(Cli(registry, {"settings", "delete", "LastPictureFolder"}).exitCode, 0);
    EXPECT_EQ(Cli(registry, {"settings", "get", "LastPictureFolder"}).exitCode, 1);
    EXPECT_EQ(Cli(registry, {"settings", "import", (folder / "s.reg").string()}).exitCode, 0);
    EXPECT_EQ(Cli(registry, {"settings", "get", "LastPictureFolder", "--json"}).out,
              "{\"LastPictureFolder\":\"/shots/a \\\"b\\\"\"}\n");

    EXPECT_EQ(Cli(registry, {"settings", "set", "AutoModeInterval", "fast"}).exitCode, 2);
    EXPECT_EQ(Cli(registry, {"settings", "set", "NoSuchSetting", "1"}).exitCode, 2);
    EXPECT_EQ(Cli(registry, {"settings", "get", "NoSuchSetting"}).exitCode, 2);
    EXPECT_EQ(Cli(registry, {"frobnicate"}).exitCode, 2);
    std::ofstream(folder / "bad.reg") << "not a registry file\n";
    EXPECT_EQ(Cli(registry, {"settings", "import", (folder / "bad.reg").string()}).exitCode, 1);
    EXPECT_EQ(Cli(registry, {"settings", "get", "AutoModeInterval"}).out, "5\n");
}

}  // namespace
}  // namespace orvanta

namespace orvanta {
namespace {

TEST(Cli, DecodeReportsThePictureOrTheReasonItCannot) {
    test::TempFolder folder;
    // A 2 x 1 24-bit BMP written byte by byte: blue, then red.
    const unsigned char bmp[] = {
        'B', 'M', 62, 0, 0, 0,   0, 0, 0, 0, 54, 0, 0, 0,  // file header
        40,  0,   0,  0, 2, 0,   0, 0, 1, 0, 0,  0, 1, 0, 24, 0, 0, 0, 0, 0,
        8,   0,   0,  0, 0, 0,   0, 0, 0, 0, 0,  0, 0, 0, 0,  0, 0, 0, 0, 0,  // info header
        255, 0,   0,  0, 0, 255, 0, 0,                                        // one row, padded
    };
    std::ofstream(folder / "two.bmp", std::ios::binary)
        .write(reinterpret_cast<const char*>(bmp), sizeof bmp);
    const auto run = Cli(folder / "r.db", {"decode", (folder / "two.bmp").string(), "--json", "-o",
                                           (folder / "out.png").string()});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find("\"width\":2,\"height\":1,\"sourcePixelFormat\":\"24bppBGR\","
                           "\"sourceBitsPerPixel\":24"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("\"container\":\"{0af1d87e-fcfe-4188-bdeb-a7906471cbe3}\""),
              std::string::npos);
    EXPECT_TRUE(std::filesystem::file_size(folder / "out.png") > 0);

    std::ofstream(folder / "fake.jpg") << "this is not a picture at all";
    const auto bad = Cli(folder / "r.db", {"decode", (folder / "fake.jpg").string(), "--json"});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.out.find("\"result\":\"0x"), std::string::npos);
    EXPECT_EQ(Cli(folder / "r.db", {"decode", (folder / "missing.jpg").string()}).exitCode, 1);
    EXPECT_EQ(
        Cli(folder / "r.db", {"decode", (folder / "two.bmp").string(), "--frame", "1"}).exitCode,
        1);
    EXPECT_EQ(Cli(folder / "r.db", {"decode"}).exitCode, 2);
}

}  // namespace
}  // namespace orvanta

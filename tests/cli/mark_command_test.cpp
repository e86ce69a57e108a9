// orvanta-cli mark over real files: the stores' report, the marks read back by the
// program's own reader and by exiftool, and the rating prefix there and back.
#include <gtest/gtest.h>

#include "support/cli_runner.h"
#include "support/command_output.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta {
namespace {

test::CliRun Cli(std::vector<std::string> args) {
    return test::RunCli(args, {{}, true});
}

TEST(MarkCommand, StoresEverywhereAndReadsBack) {
    test::TempFolder folder;
    test::WriteFile(folder / "IMG_1.jpg", test::MakeJpeg(32, 24));
    const std::string jpeg = (folder / "IMG_1.jpg").string();
    const auto rated = Cli({"mark", jpeg, "--rating", "4", "--sidecar", "--embed", "--prefix"});
    ASSERT_EQ(rated.exitCode, 0) << rated.out;
    const std::string renamed = (folder / "{4}IMG_1.jpg").string();
    const std::string sidecar = (folder / "{4}IMG_1.xmp").string();
    EXPECT_EQ(rated.out, "prefix " + renamed + " ok\nsidecar " + sidecar + " ok\nembedded " +
                             renamed + " ok\n");
    const auto info = Cli({"info", "--json", renamed});
    EXPECT_NE(info.out.find("\"rating\":4"), std::string::npos) << info.out;
    if (test::HaveCommand("exiftool -ver")) {
        for (const std::string& file : {renamed, sidecar}) {
            EXPECT_EQ(test::CommandOutput("exiftool -s3 -XMP-xmp:Rating '" + file + "'"), "4\n");
        }
    }
    // A label under the nine-colour convention also sets the urgency in the sidecar.
    const auto label = Cli({"mark", renamed, "--label", "2", "--convention", "1", "--sidecar"});
    ASSERT_EQ(label.exitCode, 0) << label.out;
    if (test::HaveCommand("exiftool -ver")) {
        EXPECT_EQ(test::CommandOutput("exiftool -s3 -XMP-xmp:Label -XMP-photoshop:Urgency '" +
                                      sidecar + "'"),
                  "Orange\n2\n");
    }
    const auto cleared = Cli({"mark", renamed, "--rating", "0", "--prefix"});
    ASSERT_EQ(cleared.exitCode, 0) << cleared.out;
    EXPECT_TRUE(std::filesystem::exists(folder / "IMG_1.jpg"));
    EXPECT_TRUE(std::filesystem::exists(folder / "IMG_1.xmp"));
    EXPECT_FALSE(std::filesystem::exists(renamed));
}

TEST(MarkCommand, RefusalsAndNothingToDo) {
    test::TempFolder folder;
    test::WriteFile(folder / "a.png", test::MakePng(8, 8));
    const std::string png = (folder / "a.png").string();
    EXPECT_EQ(Cli({"mark", png, "--rating", "6", "--sidecar"}).exitCode, 2);
    EXPECT_EQ(Cli({"mark", png, "--label", "6", "--sidecar"}).exitCode, 2);
    EXPECT_EQ(Cli({"mark", png, "--rating", "1", "--label", "1"}).exitCode, 2);
    const auto none = Cli({"mark", png, "--rating", "2"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_NE(none.out.find("message 10171"), std::string::npos) << none.out;
    // A PNG cannot carry the mark: left untouched, and said so.
    const auto before = std::filesystem::last_write_time(png);
    const auto embedded = Cli({"mark", png, "--rating", "2", "--embed"});
    EXPECT_EQ(embedded.exitCode, 1);
    EXPECT_NE(embedded.out.find("message 10175 (10174) " + png), std::string::npos) << embedded.out;
    EXPECT_EQ(std::filesystem::last_write_time(png), before);
}

}  // namespace
}  // namespace orvanta

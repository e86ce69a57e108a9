// orvanta-cli list: golden JSON of a folder's listing, the failure for a folder that cannot
// be read, and new shots while watching.
#include <gtest/gtest.h>

#include "support/cli_runner.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta {
namespace {

TEST(CliList, JsonListingIsGolden) {
    test::TempFolder folder;
    const auto pictures = std::filesystem::canonical(folder.Path()) / "p";
    std::filesystem::create_directories(pictures / "sub");
    for (const char* name : {"img10.jpg", "img2.jpg", "sub/a.jpg", "x.txt"}) {
        test::WriteFile(pictures / name, {});
    }
    test::CliProcess cli(folder / "r.db",
                         {"list", "--json", "--subfolders", "0", pictures.string()});
    std::string out;
    EXPECT_EQ(cli.Finish(&out), 0);
    const std::string p = pictures.string();
    EXPECT_EQ(out, "[{\"key\":\"" + p + "/img2\",\"basePath\":\"" + p +
                       "/img2\",\"extensionSet\":\"jpg\",\"frameIndex\":0,\"frameCount\":1,"
                       "\"sortTime\":null},"
                       "{\"key\":\"" +
                       p + "/img10\",\"basePath\":\"" + p +
                       "/img10\",\"extensionSet\":\"jpg\",\"frameIndex\":0,\"frameCount\":1,"
                       "\"sortTime\":null}]\n");
}

TEST(CliList, SortTimesAndBadArguments) {
    test::TempFolder folder;
    test::WriteFile(folder / "a.jpg", {});
    std::string out;
    test::CliProcess sorted(folder / "r.db",
                            {"list", "--json", "--sort", "1", folder.Path().string()});
    EXPECT_EQ(sorted.Finish(&out), 0);
    EXPECT_NE(out.find("\"sortTime\":\"20"), std::string::npos) << out;
    for (std::vector<std::string> args : {std::vector<std::string>{"list"},
                                          {"list", "--sort", "5", "x"},
                                          {"list", "--subfolders", "2", "x"},
                                          {"list", "--watch", "soon", "x"}}) {
        test::CliProcess bad(folder / "r.db", args);
        EXPECT_EQ(bad.Finish(), 2);
    }
}

TEST(CliList, UnreadableFolderFails) {
    test::TempFolder folder;
    test::CliProcess cli(folder / "r.db", {"list", (folder / "missing").string()});
    std::string out;
    EXPECT_EQ(cli.Finish(&out), 1);
    EXPECT_NE(out.find("the folder cannot be read"), std::string::npos) << out;
}

TEST(CliList, WatchPrintsNewShots) {
    test::TempFolder folder;
    const auto pictures = std::filesystem::canonical(folder.Path()) / "p";
    std::filesystem::create_directories(pictures);
    test::WriteFile(pictures / "b.jpg", {});
    test::CliProcess cli(folder / "r.db", {"list", "--json", "--watch", "3", pictures.string()});
    std::string line;
    ASSERT_TRUE(cli.ReadLine(line));
    EXPECT_NE(line.find("/p/b\""), std::string::npos) << line;
    // The listing is printed once the folder is watched.
    test::WriteFile(pictures / "a.jpg", {});
    test::WriteFile(pictures / "c.txt", {});
    ASSERT_TRUE(cli.ReadLine(line));
    EXPECT_EQ(line,
              "{\"newShot\":\"" + (pictures / "a").string() + "\",\"position\":1,\"count\":2}");
    EXPECT_EQ(cli.Finish(), 0);
}

}  // namespace
}  // namespace orvanta

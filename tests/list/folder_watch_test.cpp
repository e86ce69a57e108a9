// Watching the open folder: new files join in sorted place, as new shots in track mode;
// unsupported names are ignored; bursts and new sub-folders lose nothing.
#include <string>
#include <thread>

#include "list_fixture.h"

namespace orvanta::list {
namespace {

using testing::ElementsAre;

bool HasCount(const std::vector<test::RecordedNotice>& notices, int message, std::uint32_t count) {
    for (const auto& notice : notices) {
        if (notice.message == message && notice.count == count) {
            return true;
        }
    }
    return false;
}

TEST_F(ListTest, CopiedFileJoinsInSortedPlace) {
    Touch("a.jpg");
    Touch("c.jpg");
    auto& list = Open();
    ASSERT_TRUE(list.Watching());
    list.First();
    list.Next();
    Touch("b.jpg");
    // Renamed into the folder counts as arriving too.
    test::TempFolder elsewhere;
    test::WriteFile(elsewhere / "0.jpg", {});
    std::filesystem::rename(elsewhere / "0.jpg", folder_ / "0.jpg");
    ASSERT_TRUE(notices_.WaitFor([](const auto& n) { return HasCount(n, 0x464, 4); }));
    EXPECT_THAT(Keys(), ElementsAre("0", "a", "b", "c"));
    EXPECT_EQ(CurrentKey(), "c");  // the current entry stays; its position follows it
    EXPECT_EQ(list.Position(), 4u);
}

TEST_F(ListTest, TrackModeReportsANewShot) {
    Touch("a.jpg");
    Open();
    SetTrackMode(true);
    Touch("b.jpg");
    ASSERT_TRUE(notices_.WaitFor([](const auto& n) { return HasCount(n, 0x46B, 2); }));
    const auto shots = notices_.Of(0x46B);
    ASSERT_EQ(shots.size(), 1u);
    EXPECT_EQ(shots[0].basePath, (std::filesystem::canonical(folder_.Path()) / "b").string());
    EXPECT_EQ(notices_.Of(0x464).size(), 1u);  // only the scanned file grew the list
}

TEST_F(ListTest, UnsupportedFileChangesNothing) {
    Touch("a.jpg");
    auto& list = Open();
    Touch("notes.txt");
    Touch("raw.xyz");
    Touch("z.jpg");  // arrives after the others were seen
    ASSERT_TRUE(notices_.WaitFor([](const auto& n) { return HasCount(n, 0x464, 2); }));
    EXPECT_THAT(Keys(), ElementsAre("a", "z"));
    EXPECT_EQ(list.Count(), 2u);
}

TEST_F(ListTest, BurstOfFilesAllArrive) {
    auto& list = Open();
    constexpr int kFiles = 1000;
    for (int i = 0; i < kFiles; ++i) {
        Touch("burst" + std::to_string(i) + ".jpg");
    }
    ASSERT_TRUE(notices_.WaitFor([](const auto& n) { return HasCount(n, 0x464, kFiles); },
                                 std::chrono::seconds(60)));
    EXPECT_EQ(list.Count(), static_cast<std::uint32_t>(kFiles));
    const auto keys = Keys();
    EXPECT_EQ(keys.front(), "burst0");
    EXPECT_EQ(keys[9], "burst9");
    EXPECT_EQ(keys[10], "burst10");
}

TEST_F(ListTest, NewSubFolderIsWatchedWhenBrowsingSubFolders) {
    settings::SubFoldersBrowsing.Set(1);
    Touch("old/a.jpg");
    Open();
    Touch("old/b.jpg");       // a sub-folder watched since the scan
    Touch("new/deep/c.jpg");  // made while watching: its files arrive even if they beat
                              // the watch
    ASSERT_TRUE(notices_.WaitFor([](const auto& n) { return HasCount(n, 0x464, 3); }));
    Touch("new/deep/d.jpg");
    ASSERT_TRUE(notices_.WaitFor([](const auto& n) { return HasCount(n, 0x464, 4); }));
    EXPECT_THAT(Keys(), ElementsAre("new/deep/c", "new/deep/d", "old/a", "old/b"));
}

TEST_F(ListTest, FeedRecordsOfAnotherFolderDoNotSurviveOpening) {
    Touch("a.jpg");
    Open();
    test::TempFolder other;
    test::WriteFile(other / "x.jpg", {});
    ASSERT_TRUE(list_->OpenFolder(other.Path(), {}, kTestPatterns));
    ASSERT_TRUE(list_->WaitUntilScanned(std::chrono::seconds(20)));
    Touch("b.jpg");  // the old folder is no longer watched
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(list_->Count(), 1u);
}

}  // namespace
}  // namespace orvanta::list

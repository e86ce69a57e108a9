// The folder scan on its own: depth-first order with sub-folders entered at once, pattern
// filtering, file times only when asked for, and the rescan after lost watch events.
#include "list/folder_enumerator.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::list {
namespace {

std::vector<std::string> Drain(FeedQueue& queue, const std::filesystem::path& root) {
    std::vector<std::string> names;
    while (auto record = queue.Pop(std::chrono::milliseconds(0))) {
        names.push_back(std::filesystem::relative(record->path, root).string());
    }
    return names;
}

class Enumerator : public testing::Test {
protected:
    void SetUp() override {
        root_ = std::filesystem::canonical(folder_.Path());
        for (const char* name :
             {"a.jpg", "b.JPG", "c.txt", "s1/x.jpg", "s1/y.jpg", "s1/deep/z.jpg", "s2/w.nef"}) {
            std::filesystem::create_directories((root_ / name).parent_path());
            test::WriteFile(root_ / name, {});
        }
    }
    test::TempFolder folder_;
    std::filesystem::path root_;
    FeedQueue queue_;
};

TEST_F(Enumerator, WalksDepthFirstAndFilters) {
    FolderEnumerator enumerator(queue_);
    ASSERT_TRUE(
        enumerator
            .SetFolder(root_, {.subFolders = true, .noWatching = true, .patterns = "*.jpg;*.nef"})
            .Succeeded());
    ASSERT_TRUE(enumerator.Start(EnumeratorStart::ScanHere).Succeeded());
    EXPECT_TRUE(enumerator.ScanFinished());
    EXPECT_FALSE(enumerator.Watching());
    const auto names = Drain(queue_, root_);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
              (std::set<std::string>{"a.jpg", "b.JPG", "s1/x.jpg", "s1/y.jpg", "s1/deep/z.jpg",
                                     "s2/w.nef"}));
    // A sub-folder's files come together: it is walked whole when it is met.
    const auto first = std::find_if(names.begin(), names.end(),
                                    [](const auto& n) { return n.starts_with("s1/"); });
    ASSERT_NE(first, names.end());
    EXPECT_TRUE(std::all_of(first, first + 3, [](const auto& n) { return n.starts_with("s1/"); }));
}

TEST_F(Enumerator, FolderOfManyReadsWithSubFoldersInBetween) {
    // More names than one read of the folder takes, and sub-folders met between reads: each
    // file is found once, whatever the depth it is read at.
    std::set<std::string> expected;
    const std::string padding(40, 'x');
    std::filesystem::create_directories(root_ / "many");
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "many/" + padding + std::to_string(i) + ".jpg";
        test::WriteFile(root_ / name, {});
        expected.insert(name);
    }
    // Sub-folders large enough to fill much of a read themselves.
    for (const char* folder : {"many/sub1", "many/sub2", "many/sub2/deeper"}) {
        std::filesystem::create_directories(root_ / folder);
        for (int i = 0; i < 300; ++i) {
            const std::string name =
                std::string(folder) + "/" + padding + std::to_string(i) + ".jpg";
            test::WriteFile(root_ / name, {});
            expected.insert(name);
        }
    }
    FolderEnumerator enumerator(queue_);
    ASSERT_TRUE(enumerator
                    .SetFolder(root_ / "many",
                               {.subFolders = true, .noWatching = true, .patterns = "*.jpg"})
                    .Succeeded());
    ASSERT_TRUE(enumerator.Start(EnumeratorStart::ScanHere).Succeeded());
    std::vector<std::string> found;
    for (const auto& name : Drain(queue_, root_)) {
        found.push_back(name);
    }
    EXPECT_EQ(found.size(), expected.size());
    EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), expected);
}

TEST_F(Enumerator, ReadsTimesOnlyWhenAsked) {
    for (bool readTimes : {false, true}) {
        FolderEnumerator enumerator(queue_);
        ASSERT_TRUE(
            enumerator
                .SetFolder(root_, {.noWatching = true, .readTimes = readTimes, .patterns = "a.jpg"})
                .Succeeded());
        ASSERT_TRUE(enumerator.Start(EnumeratorStart::ScanHere).Succeeded());
        auto record = queue_.Pop(std::chrono::milliseconds(0));
        ASSERT_TRUE(record);
        EXPECT_EQ(record->timesKnown, readTimes);
        EXPECT_EQ(record->lastWriteTime.ticks != 0, readTimes);
    }
}

TEST_F(Enumerator, RefusesWhatIsNoFolderAndStartsOnce) {
    FolderEnumerator enumerator(queue_);
    EXPECT_EQ(enumerator.SetFolder(root_ / "a.jpg", {}), E_INVALIDARG);
    EXPECT_EQ(enumerator.SetFolder(root_ / "missing", {}), E_INVALIDARG);
    EXPECT_EQ(enumerator.Start(EnumeratorStart::ScanHere), E_UNEXPECTED);  // no folder
    ASSERT_TRUE(enumerator.SetFolder(root_, {.patterns = "*.jpg"}).Succeeded());
    ASSERT_TRUE(enumerator.Start(EnumeratorStart::WatchOnly).Succeeded());
    EXPECT_TRUE(enumerator.Watching());
    EXPECT_EQ(enumerator.Start(EnumeratorStart::WatchOnly), E_UNEXPECTED);
    EXPECT_EQ(enumerator.SetFolder(root_, {}), E_UNEXPECTED);
    enumerator.Stop(true);
    EXPECT_FALSE(enumerator.Watching());
}

TEST_F(Enumerator, LostEventsAreMadeUpByFeedingWhatIsMissing) {
    FolderEnumerator enumerator(queue_);
    EnumeratorOptions options{.subFolders = true, .patterns = "*.jpg"};
    options.isListed = [this](const std::filesystem::path& p) {
        return p == root_ / "a.jpg" || p == root_ / "s1/x.jpg";
    };
    ASSERT_TRUE(enumerator.SetFolder(root_, std::move(options)).Succeeded());
    ASSERT_TRUE(enumerator.Start(EnumeratorStart::WatchOnly).Succeeded());
    enumerator.FeedMissing();
    const auto names = Drain(queue_, root_);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
              (std::set<std::string>{"b.JPG", "s1/y.jpg", "s1/deep/z.jpg"}));
}

TEST_F(Enumerator, FileClosedBeforeItsSubFolderIsFullyWatchedStillArrives) {
    FolderEnumerator enumerator(queue_);
    ASSERT_TRUE(enumerator.SetFolder(root_, {.subFolders = true, .patterns = "*.jpg"}).Succeeded());
    // Nothing marks the scanned files done here, so the sub-folders keep the watch for new
    // names that the scan gave them for a while.
    ASSERT_TRUE(enumerator.Start(EnumeratorStart::ScanHere).Succeeded());
    (void)Drain(queue_, root_);
    test::WriteFile(root_ / "s1/new.jpg", {});
    test::WriteFile(root_ / "s1/gone.jpg", {});
    std::filesystem::remove(root_ / "s1/gone.jpg");
    auto record = queue_.Pop(std::chrono::seconds(20));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->path, (root_ / "s1/new.jpg").string());
    // Fully watched by now: a file written later arrives when it is closed.
    test::WriteFile(root_ / "s1/deep/later.jpg", {});
    record = queue_.Pop(std::chrono::seconds(20));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->path, (root_ / "s1/deep/later.jpg").string());
    // Each once, and nothing for the file that went again.
    EXPECT_FALSE(queue_.Pop(std::chrono::milliseconds(300)));
    enumerator.Stop(true);
}

}  // namespace
}  // namespace orvanta::list

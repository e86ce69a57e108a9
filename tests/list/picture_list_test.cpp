// The picture list: its order, siblings and frames, moves, removal, rewritten files and
// the pending target.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "list/entry_order.h"
#include "list_fixture.h"
#include "platform/registry/registry.h"
#include "settings/settings_io.h"

namespace orvanta::list {
namespace {

using testing::ElementsAre;

TEST_F(ListTest, NameOrderIsLogicalAndFirstArrivalBecomesCurrent) {
    for (const char* name : {"img10.jpg", "IMG2.jpg", "img1.jpg", "notes.txt", "b.png"}) {
        Touch(name);
    }
    auto& list = Open();
    EXPECT_THAT(Keys(), ElementsAre("b", "img1", "IMG2", "img10"));
    EXPECT_EQ(list.Count(), 4u);
    // Entries may arrive before the current one: the position follows the current entry.
    ASSERT_NE(list.Current(), nullptr);
    EXPECT_EQ(Keys()[list.Position() - 1], CurrentKey());
    EXPECT_TRUE(notices_.Of(0x46A).size() >= 1);
    EXPECT_EQ(notices_.Of(0x46A).front().textId, StatusTextId::kFirstScan);
    const auto grew = notices_.Of(0x464);
    ASSERT_EQ(grew.size(), 4u);
    EXPECT_EQ(grew[0].count, 0u);  // the list was empty before the first file
    EXPECT_EQ(grew[3].count, 4u);
}

struct TimeOrderCase {
    std::uint32_t sortMode;
    std::vector<std::string> expected;
};

class TimeOrder : public ListTest, public testing::WithParamInterface<TimeOrderCase> {};

TEST_P(TimeOrder, EqualTimesFallBackToNames) {
    settings::SortByDateTime.Set(GetParam().sortMode);
    Touch("c.jpg", 1'600'000'000);
    Touch("a.jpg", 1'700'000'000);
    Touch("b10.jpg", 1'600'000'000);
    Touch("b9.jpg", 1'600'000'000);
    Open();
    EXPECT_EQ(Keys(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Modes, TimeOrder,
                         testing::Values(TimeOrderCase{0, {"a", "b9", "b10", "c"}},
                                         TimeOrderCase{1, {"b9", "b10", "c", "a"}},
                                         // Values above 4 mean name order.
                                         TimeOrderCase{9, {"a", "b9", "b10", "c"}}));

TEST_F(ListTest, DateTakenOrdersBeforeFileTimes) {
    settings::SortByDateTime.Set(3);
    const auto shot = [](const char* date) {
        test::MetadataEdits edits;
        edits.exif = {{"Exif.Photo.DateTimeOriginal", date}};
        return test::WithMetadata(test::MakeJpeg(8, 8), edits);
    };
    test::WriteFile(folder_ / "a.jpg", shot("2021:05:01 10:00:00"));
    test::WriteFile(folder_ / "b.jpg", shot("2020:05:01 10:00:00"));
    // No date taken: the file time (now) stands in, after both shots.
    test::WriteFile(folder_ / "0.jpg", test::MakeJpeg(8, 8));
    Open();
    EXPECT_THAT(Keys(), ElementsAre("b", "a", "0"));
}

TEST_F(ListTest, SiblingsJoinOneEntryWithoutNotice) {
    Touch("a.jpg");
    Touch("b.jpg");
    auto& list = Open();
    notices_.Clear();
    EXPECT_TRUE(list.AddFile(folder_ / "a.NEF", std::nullopt));
    EXPECT_FALSE(list.AddFile(folder_ / "a.txt", std::nullopt));
    EXPECT_EQ(list.Count(), 2u);
    EXPECT_TRUE(notices_.All().empty());
    std::string set;
    list.ForEach([&](const PictureEntry& e) {
        if (KeyName(e).ends_with("/a")) {
            set = e.extensionSet;
        }
    });
    EXPECT_EQ(set, "jpg;nef");
}

TEST_F(ListTest, FirstPictureDelayDependsOnItsFormat) {
    Touch("a.nef");
    Open();
    auto grew = notices_.Of(0x464);
    ASSERT_EQ(grew.size(), 1u);
    EXPECT_EQ(grew[0].delay, kSlowFirstDelay);
    list_->AddFile(folder_ / "b.jpg", std::nullopt);
    grew = notices_.Of(0x464);
    EXPECT_EQ(grew.back().delay, kQuickFirstDelay);
    EXPECT_EQ(grew.back().count, 2u);
}

TEST_F(ListTest, MultiFrameFilesMakeOneEntryPerFrame) {
    test::WriteFile(folder_ / "scan.jpg", test::MakeJpeg(4, 4));
    test::WriteFile(folder_ / "scan.tif", test::MakeMultiPageTiff(3, 4, 4));
    test::WriteFile(folder_ / "rest.tif", test::MakeMultiPageTiff(2, 4, 4));
    settings::EnableMultiFrameSupport.Set(1);
    Open();
    // The single-frame entry of a base path comes before the frames sharing it.
    EXPECT_THAT(Keys(), ElementsAre("rest<0>", "rest<1>", "scan", "scan<0>", "scan<1>", "scan<2>"));
    notices_.Clear();
    // The same multi-frame file again adds nothing; a single-frame sibling joins the
    // single-frame entry.
    EXPECT_FALSE(list_->AddFile(folder_ / "scan.tif", std::nullopt));
    EXPECT_TRUE(list_->AddFile(folder_ / "scan.png", std::nullopt));
    EXPECT_TRUE(notices_.All().empty());
    EXPECT_EQ(list_->Count(), 6u);

    settings::EnableMultiFrameSupport.Set(0);
    Open();
    EXPECT_THAT(Keys(), ElementsAre("rest", "scan"));
}

struct MoveCase {
    const char* name;
    bool wrap;
    bool forward;
    bool quiet;
    int expectedPosition;  // 0: refused
    int beeps;             // 0: none, 1: exclamation, 2: asterisk
};

class MoveAtTheEnds : public ListTest, public testing::WithParamInterface<MoveCase> {};

TEST_P(MoveAtTheEnds, WrapsOrBeeps) {
    const auto& c = GetParam();
    settings::WrapImageList.Set(c.wrap ? 1 : 0);
    for (const char* name : {"a.jpg", "b.jpg", "c.jpg"}) {
        Touch(name);
    }
    auto& list = Open();
    c.forward ? list.Last() : list.First();
    notices_.Clear();
    PictureEntry* moved = c.forward ? list.Next(1, c.quiet) : list.Previous(1);
    EXPECT_EQ(moved == nullptr, c.expectedPosition == 0);
    const int endPosition = c.forward ? 3 : 1;
    EXPECT_EQ(list.Position(),
              static_cast<std::uint32_t>(c.expectedPosition ? c.expectedPosition : endPosition));
    const auto beeps = notices_.Of(test::RecordingNotices::kBeep);
    ASSERT_EQ(beeps.size(), c.beeps ? 1u : 0u);
    if (c.beeps) {
        EXPECT_EQ(beeps[0].beep, c.beeps == 1 ? BeepKind::Exclamation : BeepKind::Asterisk);
    }
}

INSTANTIATE_TEST_SUITE_P(Ends, MoveAtTheEnds,
                         testing::Values(MoveCase{"NextStays", false, true, false, 0, 1},
                                         MoveCase{"NextStaysQuietly", false, true, true, 0, 0},
                                         MoveCase{"NextWraps", true, true, false, 1, 2},
                                         MoveCase{"NextWrapsQuietly", true, true, true, 1, 0},
                                         MoveCase{"PreviousStays", false, false, false, 0, 1},
                                         MoveCase{"PreviousWraps", true, false, false, 3, 2}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ListTest, StepsStopAtTheEndsAndBeepsFollowTheSetting) {
    for (int i = 1; i <= 6; ++i) {
        Touch("p" + std::to_string(i) + ".jpg");
    }
    auto& list = Open();
    list.First();
    PictureEntry* moved = list.Next(4);
    EXPECT_EQ(moved, list.Current());
    EXPECT_EQ(list.Position(), 5u);
    list.Next(10);
    EXPECT_EQ(list.Position(), 6u);
    EXPECT_EQ(CurrentKey(), "p6");
    list.Previous(2);
    EXPECT_EQ(CurrentKey(), "p4");
    list.Previous(50);
    EXPECT_EQ(list.Position(), 1u);
    ASSERT_NE(list.GoTo((folder_ / "P3").string()), nullptr);  // without regard to case
    EXPECT_EQ(list.Position(), 3u);
    EXPECT_EQ(list.GoTo((folder_ / "p7").string()), nullptr);
    settings::EnableMessageBeep.Set(0);
    notices_.Clear();
    list.First();
    EXPECT_EQ(list.Previous(), nullptr);
    EXPECT_TRUE(notices_.All().empty());
}

TEST_F(ListTest, RemovingTheCurrentEntry) {
    for (const char* name : {"a.jpg", "b.jpg", "c.jpg"}) {
        Touch(name);
    }
    auto& list = Open();
    list.First();
    list.Next();
    ASSERT_TRUE(list.RemoveCurrent());
    EXPECT_EQ(CurrentKey(), "c");  // the next becomes current
    EXPECT_EQ(list.Position(), 2u);
    ASSERT_TRUE(list.RemoveCurrent());
    EXPECT_EQ(CurrentKey(), "a");  // the last went: the new last
    EXPECT_EQ(list.Position(), 1u);
    ASSERT_TRUE(list.RemoveCurrent());
    EXPECT_EQ(list.Current(), nullptr);
    EXPECT_EQ(list.Position(), 0u);
    EXPECT_EQ(list.Count(), 0u);
    EXPECT_FALSE(list.RemoveCurrent());
    const auto removed = notices_.Of(0x479);
    ASSERT_EQ(removed.size(), 3u);
    EXPECT_TRUE(removed[0].basePath.ends_with("/b"));
    // A removed base path may come back.
    EXPECT_TRUE(list.AddFile(folder_ / "b.jpg", std::nullopt));
    EXPECT_EQ(list.Position(), 1u);
}

TEST_F(ListTest, RemovingAFrameRemovesTheWholeFile) {
    test::WriteFile(folder_ / "a.jpg", test::MakeJpeg(4, 4));
    test::WriteFile(folder_ / "m.tif", test::MakeMultiPageTiff(3, 4, 4));
    test::WriteFile(folder_ / "z.jpg", test::MakeJpeg(4, 4));
    settings::EnableMultiFrameSupport.Set(1);
    auto& list = Open();
    list.First();
    list.Next(2);
    ASSERT_EQ(CurrentKey(), "m<1>");
    ASSERT_TRUE(list.RemoveCurrent());
    EXPECT_THAT(Keys(), ElementsAre("a", "z"));
    EXPECT_EQ(CurrentKey(), "z");
    EXPECT_EQ(list.Position(), 2u);
    EXPECT_EQ(notices_.Of(0x479).size(), 3u);
}

TEST_F(ListTest, RewrittenFileChangesItsEntry) {
    Touch("a.jpg");
    Touch("b.jpg");
    auto& list = Open();
    notices_.Clear();
    EXPECT_FALSE(list.AddFile(folder_ / "a.jpg", std::nullopt));
    auto changed = notices_.Of(0x483);
    ASSERT_EQ(changed.size(), 1u);
    EXPECT_TRUE(changed[0].basePath.ends_with("/a"));
    EXPECT_EQ(list.Count(), 2u);
    EXPECT_TRUE(notices_.Of(0x464).empty());

    // A file the user added, or one our own metadata writer replaced, is not a change once.
    EXPECT_TRUE(list.AddFile(folder_ / "c.jpg", std::nullopt, true));
    list.GoTo((folder_ / "b").string())->selfReplaced = true;
    notices_.Clear();
    EXPECT_FALSE(list.AddFile(folder_ / "c.jpg", std::nullopt));
    EXPECT_FALSE(list.AddFile(folder_ / "b.jpg", std::nullopt));
    EXPECT_TRUE(notices_.Of(0x483).empty());
    EXPECT_FALSE(list.AddFile(folder_ / "b.jpg", std::nullopt));
    EXPECT_EQ(notices_.Of(0x483).size(), 1u);
}

TEST_F(ListTest, PendingTargetBecomesCurrentWhenItArrives) {
    for (int i = 1; i <= 20; ++i) {
        Touch("p" + std::to_string(i) + ".jpg");
    }
    auto& list = Open(folder_ / "p13.jpg");
    EXPECT_EQ(CurrentKey(), "p13");
    EXPECT_EQ(list.Position(), 13u);
    // The file the user asked to show, written again, is not a change the first time.
    notices_.Clear();
    list.AddFile(folder_ / "p13.jpg", std::nullopt);
    EXPECT_TRUE(notices_.Of(0x483).empty());

    // A target not there yet becomes current on arrival; First and Last cancel it.
    Open(folder_ / "late.jpg");
    list_->AddFile(Touch("late.jpg"), std::nullopt);
    EXPECT_EQ(CurrentKey(), "late");
    Open(folder_ / "later.jpg");
    list_->First();
    list_->AddFile(Touch("later.jpg"), std::nullopt);  // "later" sorts before "p1"
    EXPECT_EQ(CurrentKey(), "late");
    EXPECT_EQ(list_->Position(), 1u);
}

TEST_F(ListTest, UnreadableFolderFailsWithStatusText) {
    PictureList list(ListServices{&notices_, nullptr, nullptr, nullptr});
    EXPECT_FALSE(list.OpenFolder(folder_ / "missing", {}, kTestPatterns));
    const auto texts = notices_.Of(0x46A);
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.back().textId, StatusTextId::kFolderUnreadable);
}

TEST_F(ListTest, SubFoldersAreListedOnlyWhenBrowsed) {
    Touch("a.jpg");
    Touch("sub/b.jpg");
    Touch("sub/deeper/c.jpg");
    Open();
    EXPECT_THAT(Keys(), ElementsAre("a"));
    settings::SubFoldersBrowsing.Set(1);
    Open();
    EXPECT_THAT(Keys(), ElementsAre("a", "sub/b", "sub/deeper/c"));
}

TEST_F(ListTest, OpeningRemembersTheFolder) {
    auto store = platform::RegistryStore::Open(folder_ / "registry.db");
    Touch("a.jpg");
    PictureList list(ListServices{&notices_, nullptr, nullptr, store});
    ASSERT_TRUE(list.OpenFolder(folder_.Path(), {}, kTestPatterns));
    platform::RegKey key;
    ASSERT_EQ(platform::RegKey::Open(store, settings::kSettingsKey, key), 0);
    std::string value;
    ASSERT_EQ(settings::ReadString(key, "LastPictureFolder", value), 0);
    EXPECT_EQ(value, std::filesystem::canonical(folder_.Path()).string());
}

TEST(EntryOrder, KeyNamesOfFrames) {
    NameIndex names;
    PictureEntry single;
    single.nameLink = names.emplace("/p/scan", &single);
    PictureEntry frame;
    frame.nameLink = names.emplace("/p/scan", &frame);
    frame.frameIndex = 2;
    frame.frameCount = 3;
    frame.extensionSet = "tif";
    EXPECT_EQ(KeyName(single), "/p/scan");
    EXPECT_EQ(KeyName(frame), "/p/scan<2>");
    const EntryOrder byName;
    EXPECT_TRUE(byName(&single, &frame));
    EXPECT_FALSE(byName(&frame, &single));
    // A time order puts an earlier frame first whatever the names.
    const EntryOrder byTime(true);
    frame.sortTime = 1;
    single.sortTime = 2;
    EXPECT_TRUE(byTime(&frame, &single));
}

}  // namespace
}  // namespace orvanta::list

namespace orvanta::list {

TEST_F(ListTest, RebaseMovesTheEntryToItsNewPlace) {
    Touch("b.jpg");
    Touch("b.nef");
    Touch("c.jpg");
    Touch("d.jpg");
    Open();
    ASSERT_NE(list_->GoTo((folder_ / "b").string()), nullptr);
    PictureEntry* renamed = list_->Current();
    EXPECT_EQ(list_->Rebase((folder_ / "b").string(), (folder_ / "e").string()), 1u);
    EXPECT_EQ(Keys(), (std::vector<std::string>{"c", "d", "e"}));
    EXPECT_EQ(list_->Current(), renamed);
    EXPECT_EQ(list_->Position(), 3u);
    EXPECT_EQ(list_->GoTo((folder_ / "b").string()), nullptr);
    // A file of the new name arriving joins the moved entry instead of making another.
    Touch("e.png");
    (void)list_->AddFile(folder_ / "e.png", std::nullopt);  // the watcher may be first
    EXPECT_EQ(list_->Count(), 3u);
    EXPECT_EQ(list_->Rebase((folder_ / "x").string(), (folder_ / "y").string()), 0u);
}

TEST_F(ListTest, BasePathCopiesStayWholeWhileTheEntryIsRenamed) {
    Touch("IMG_1.jpg");
    Open();
    PictureEntry* entry = list_->Current();
    ASSERT_NE(entry, nullptr);
    // Long names, so that each rename frees a heap buffer a torn read would touch.
    const std::string plain = (folder_ / "IMG_1").string();
    const std::string longName = (folder_ / ("{5}IMG_1" + std::string(64, '_'))).string();
    std::atomic<bool> done{false};
    std::thread renamer([&] {
        for (int i = 0; i < 2000; ++i) {
            (void)list_->Rebase(plain, longName);
            (void)list_->Rebase(longName, plain);
        }
        done = true;
    });
    std::size_t torn = 0;
    while (!done) {
        const std::string copy = entry->BasePathCopy();
        torn += copy != plain && copy != longName;
    }
    renamer.join();
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(entry->BasePathCopy(), plain);
}

}  // namespace orvanta::list

#include "marks/mark_writer.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mark_fakes.h"
#include "marks/rated_file_name.h"

namespace orvanta::marks {
namespace {

using test::MarksTest;
using testing::ElementsAre;

struct PrefixCase {
    const char* path;
    int rating;
    const char* expected;  // nullptr: no name
};

class RatedName : public testing::TestWithParam<PrefixCase> {};

TEST_P(RatedName, ReplacesOrDropsTheLeadingGroup) {
    const auto name = RatedFileName(GetParam().path, GetParam().rating);
    if (GetParam().expected == nullptr) {
        EXPECT_FALSE(name.has_value());
    } else {
        EXPECT_EQ(name.value_or("<none>"), GetParam().expected);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Names, RatedName,
    testing::Values(PrefixCase{"/p/IMG_1", 3, "/p/{3}IMG_1"},
                    PrefixCase{"/p/{3}IMG_1", 5, "/p/{5}IMG_1"},
                    PrefixCase{"/p/{5}IMG_1", 0, "/p/IMG_1"},
                    PrefixCase{"/p/{5}IMG_1", 12, "/p/IMG_1"},
                    PrefixCase{"/{3}/IMG", 1, "/{3}/{1}IMG"},  // only the file name's prefix
                    PrefixCase{"/p/{x}IMG", 2, "/p/{2}{x}IMG"},
                    PrefixCase{"/p/{12}IMG", 2, "/p/{2}{12}IMG"}, PrefixCase{"a/b", 1, nullptr}));

TEST(RatedNameLength, RefusesAPathBeyondTheBuffer) {
    const std::string folder = "/" + std::string(kMaxRatedPath - 8, 'f') + "/";
    EXPECT_TRUE(RatedFileName(folder + "IMG", 4).has_value());
    EXPECT_FALSE(RatedFileName(folder + "IMG_1", 4).has_value());
}

class MarkWriterTest : public MarksTest {
protected:
    // IMG_1 with a raw sibling and a sidecar, listed by file time so that prefixes apply.
    list::PictureEntry& OpenRatedFolder() {
        Touch("IMG_1.jpg");
        Touch("IMG_1.nef");
        Touch("IMG_1.xmp");
        Touch("IMG_2.jpg");
        settings::SortByDateTime.Set(1);
        settings::PrefixFileNamesWithRating.Set(1);
        settings::CreateSidecarFiles.Set(1);
        Open();
        EXPECT_NE(list_->GoTo(Base("IMG_1")), nullptr);
        return *list_->Current();
    }
    void Rate(list::PictureEntry& entry, std::uint32_t stars) {
        ASSERT_EQ(QueueMarkWrite(*list_, writer_.get(), &entry, stars, false, 0, false), S_OK);
        Drain();
    }
    bool Present(const std::string& name) const { return std::filesystem::exists(folder_ / name); }
};

TEST_F(MarkWriterTest, PrefixRenamesEveryFileAndRekeysTheEntry) {
    list::PictureEntry& entry = OpenRatedFolder();
    Rate(entry, 3);
    EXPECT_TRUE(Present("{3}IMG_1.jpg") && Present("{3}IMG_1.nef") && Present("{3}IMG_1.xmp"));
    EXPECT_EQ(entry.BasePath(), Base("{3}IMG_1"));
    Rate(entry, 5);
    EXPECT_TRUE(Present("{5}IMG_1.jpg") && Present("{5}IMG_1.nef") && Present("{5}IMG_1.xmp"));
    Rate(entry, 0);
    EXPECT_TRUE(Present("IMG_1.jpg") && Present("IMG_1.nef") && Present("IMG_1.xmp"));
    EXPECT_FALSE(Present("{5}IMG_1.jpg"));
    EXPECT_EQ(entry.BasePath(), Base("IMG_1"));
    EXPECT_EQ(list_->Current(), &entry);
    EXPECT_EQ(list_->GoTo(Base("{5}IMG_1")), nullptr);
    EXPECT_EQ(list_->GoTo(Base("IMG_1")), &entry);
    // The sidecar store always worked on the sidecar's name of the moment.
    std::vector<std::string> sidecars;
    for (const auto& call : stores_.Calls()) {
        sidecars.push_back(call.kind + " " + call.path);
    }
    EXPECT_THAT(sidecars,
                ElementsAre("update " + Base("{3}IMG_1.xmp"), "update " + Base("{5}IMG_1.xmp"),
                            "update " + Base("IMG_1.xmp")));
    EXPECT_TRUE(messages_.All().empty());
    EXPECT_EQ(entry.marks.rating, 0);
}

TEST_F(MarkWriterTest, ATakenNameRenamesNothing) {
    list::PictureEntry& entry = OpenRatedFolder();
    Touch("{4}IMG_1.nef");  // not listed: the folder was scanned before
    Rate(entry, 4);
    EXPECT_TRUE(Present("IMG_1.jpg") && Present("IMG_1.nef") && Present("IMG_1.xmp"));
    EXPECT_EQ(entry.BasePath(), Base("IMG_1"));
    const auto shown = messages_.All();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].textId, 10182);
    EXPECT_EQ(shown[0].titleId, 10174);
    EXPECT_EQ(shown[0].icon, MessageIcon::Stop);
    EXPECT_TRUE(shown[0].leftFullScreen);
    EXPECT_THAT(shown[0].arguments, ElementsAre(Base("{4}IMG_1.nef")));
    // The sidecar still takes the mark, so the rating stays.
    EXPECT_EQ(stores_.Calls().size(), 1u);
    EXPECT_EQ(entry.marks.rating, 4);
}

TEST_F(MarkWriterTest, AReadOnlyFolderStopsAtTheFirstRename) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "the superuser renames in a read-only folder";
    }
    list::PictureEntry& entry = OpenRatedFolder();
    settings::CreateSidecarFiles.Set(0);
    ::chmod(folder_.Path().c_str(), 0555);
    Rate(entry, 2);
    ::chmod(folder_.Path().c_str(), 0755);
    const auto shown = messages_.All();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].textId, 10183);
    EXPECT_THAT(shown[0].arguments,
                ElementsAre(Base("IMG_1.jpg"), Base("{2}IMG_1.jpg"), std::to_string(EACCES)));
    EXPECT_EQ(entry.BasePath(), Base("IMG_1"));
    EXPECT_EQ(entry.marks.rating, -1);  // nothing took the mark
}

TEST_F(MarkWriterTest, PrefixAloneNeedsATimeOrder) {
    Touch("a.jpg");
    settings::PrefixFileNamesWithRating.Set(1);
    Open();
    Rate(*list_->Current(), 3);
    const auto shown = messages_.All();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].textId, 10171);
    EXPECT_EQ(shown[0].titleId, 10172);
    EXPECT_EQ(shown[0].icon, MessageIcon::Information);
    EXPECT_TRUE(shown[0].leftFullScreen);
    EXPECT_TRUE(stores_.Calls().empty());
    EXPECT_TRUE(Present("a.jpg"));
}

TEST_F(MarkWriterTest, HeldFileIsRetriedAHundredTimes) {
    Touch("a.jpg");
    settings::EmbedMetadata.Set(1);
    Open();
    int calls = 0;
    stores_.embed = [&](const std::filesystem::path&) {
        return ++calls < MarkWriter::kSharingTries ? E_SHARING_VIOLATION : S_OK;
    };
    list::PictureEntry& entry = *list_->Current();
    Rate(entry, 2);
    EXPECT_EQ(calls, 100);
    EXPECT_TRUE(messages_.All().empty());
    EXPECT_EQ(entry.marks.rating, 2);

    calls = 0;
    stores_.embed = [&](const std::filesystem::path&) {
        ++calls;
        return E_SHARING_VIOLATION;
    };
    Rate(entry, 4);
    EXPECT_EQ(calls, 100);
    const auto shown = messages_.All();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].textId, 10153);
    EXPECT_THAT(shown[0].arguments, ElementsAre(Base("a.jpg"), std::to_string(0x80070020u)));
    EXPECT_EQ(entry.marks.rating, -1);
}

TEST_F(MarkWriterTest, UnsupportedFilesAreToldOnlyWhenNothingTookTheMark) {
    Touch("a.png");
    Touch("a.nef");
    settings::EmbedMetadata.Set(1);
    Open();
    stores_.embed = [](const std::filesystem::path&) { return E_UNSUPPORTED_TYPE; };
    list::PictureEntry& entry = *list_->Current();
    ASSERT_EQ(QueueMarkWrite(*list_, writer_.get(), &entry, 3, true, 1, false), S_OK);
    Drain();
    auto shown = messages_.All();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].textId, 10175);
    EXPECT_EQ(shown[0].arguments.at(0),
              entry.BasePath() + "." + entry.extensionSet.substr(0, entry.extensionSet.find(';')));
    EXPECT_EQ(entry.marks.label, -1);

    settings::CreateSidecarFiles.Set(1);
    ASSERT_EQ(QueueMarkWrite(*list_, writer_.get(), &entry, 3, true, 1, false), S_OK);
    Drain();
    EXPECT_EQ(messages_.All().size(), 1u);
    EXPECT_EQ(entry.marks.label, 3);
}

TEST_F(MarkWriterTest, FailedSidecarUpdateResetsTheMarkOnlyWithoutEmbedding) {
    Touch("a.jpg");
    Touch("a.xmp");
    settings::CreateSidecarFiles.Set(1);
    Open();
    stores_.update = [](const std::filesystem::path&) { return E_FAIL; };
    list::PictureEntry& entry = *list_->Current();
    ASSERT_EQ(QueueMarkWrite(*list_, writer_.get(), &entry, 7, false, 0, true), S_OK);
    Drain();
    EXPECT_THAT(TextIds(), ElementsAre(10173));
    EXPECT_EQ(messages_.All()[0].arguments.at(0), Base("a.xmp"));
    EXPECT_EQ(entry.marks.urgency, -1);

    settings::EmbedMetadata.Set(1);
    ASSERT_EQ(QueueMarkWrite(*list_, writer_.get(), &entry, 7, false, 0, true), S_OK);
    Drain();
    EXPECT_THAT(TextIds(), ElementsAre(10173, 10173));
    EXPECT_EQ(entry.marks.urgency, 7);
}

TEST_F(MarkWriterTest, FailedSidecarCreateIsToldWithItsPath) {
    Touch("a.jpg");
    settings::CreateSidecarFiles.Set(1);
    Open();
    stores_.create = [](const std::filesystem::path&) { return E_DISK_FULL; };
    Rate(*list_->Current(), 1);
    EXPECT_THAT(TextIds(), ElementsAre(10176));
    EXPECT_THAT(messages_.All()[0].arguments, ElementsAre(Base("a.xmp")));
    EXPECT_EQ(list_->Current()->marks.rating, -1);
}

TEST_F(MarkWriterTest, RequestsAreServedInArrivalOrder) {
    Touch("a.jpg");
    Touch("b.jpg");
    settings::EmbedMetadata.Set(1);
    Open();
    // The first write holds the thread while the others queue up behind it.
    std::mutex gate;
    std::unique_lock held(gate);
    stores_.embed = [&](const std::filesystem::path&) {
        std::scoped_lock pass(gate);
        return S_OK;
    };
    std::vector<std::uint32_t> sent;
    list::PictureEntry* entries[] = {list_->First(), list_->Next()};
    for (std::uint32_t i = 0; i < 20; ++i) {
        const std::uint32_t value = (i * 7) % 6;
        sent.push_back(value);
        ASSERT_EQ(QueueMarkWrite(*list_, writer_.get(), entries[i % 2], value, false, 0, false),
                  S_OK);
    }
    EXPECT_TRUE(writer_->HasWork());
    held.unlock();
    Drain();
    std::vector<std::uint32_t> served;
    for (const auto& call : stores_.Calls()) {
        served.push_back(call.request.value);
    }
    EXPECT_EQ(served, sent);
    EXPECT_EQ(entries[0]->marks.rating, static_cast<std::int32_t>(sent[18]));
}

TEST_F(MarkWriterTest, QueueingNeedsAWriterAndAnEntry) {
    Touch("a.jpg");
    Open();
    EXPECT_EQ(QueueMarkWrite(*list_, nullptr, list_->Current(), 1, false, 0, false), E_UNEXPECTED);
    EXPECT_EQ(QueueMarkWrite(*list_, writer_.get(), nullptr, 1, false, 0, false), E_INVALIDARG);
    EXPECT_EQ(list_->Current()->marks.rating, -1);
}

}  // namespace
}  // namespace orvanta::marks

#include "settings/settings.h"

#include <fstream>

#include <gtest/gtest.h>
#include <stdlib.h>

#include "platform/result.h"
#include "settings/settings_io.h"
#include "settings/settings_loader.h"
#include "support/temp_folder.h"

namespace orvanta::settings {
namespace {

using platform::EncodeDword;
using platform::EncodeString;
using platform::RegKey;
using platform::RegType;

class SettingsLoad : public testing::Test {
protected:
    void SetUp() override {
        store_ = platform::RegistryStore::Open(folder_ / "r.db");
        ASSERT_EQ(RegKey::Create(store_, kSettingsKey, key_), ERROR_SUCCESS);
    }
    void Put(std::string_view name, std::uint32_t value) {
        ASSERT_EQ(WriteDword(key_, name, value), ERROR_SUCCESS);
    }

    test::TempFolder folder_;
    std::shared_ptr<platform::RegistryStore> store_;
    RegKey key_;
};

TEST_F(SettingsLoad, FirstRunWritesTheDefaultsButNoWindowState) {
    // The key exists but is empty: that is a first run too.
    DisableHWA.Set(0);
    const LoadOutcome outcome = LoadSettings(store_);
    EXPECT_TRUE(outcome.firstRun);
    EXPECT_EQ(outcome.writeError, ERROR_SUCCESS);
    EXPECT_EQ(DisableHWA.Get(), 1u);

    std::uint32_t value = 0;
    ASSERT_EQ(ReadDword(key_, "DisableHWA", value), ERROR_SUCCESS);
    EXPECT_EQ(value, 1u);
    ASSERT_EQ(ReadDword(key_, "DownscaleLargeImages", value), ERROR_SUCCESS);
    EXPECT_EQ(value, 112u);
    ASSERT_EQ(ReadDword(key_, "UpdateLastWriteTimeWhenRating", value), ERROR_SUCCESS);
    EXPECT_EQ(value, 0u);
    std::string profile = "x";
    ASSERT_EQ(ReadString(key_, "CustomTargetColorProfile", profile), ERROR_SUCCESS);
    EXPECT_EQ(profile, "");
    for (std::string_view absent : {"ShowExternalEditors", "ShowIptcEditor",
                                    "ExternalBookmarkFileName", "AppWindow", "Maximized"}) {
        EXPECT_EQ(ReadDword(key_, absent, value), ERROR_FILE_NOT_FOUND) << absent;
    }
    // The second start is not a first run and reads what the first wrote.
    EXPECT_FALSE(LoadSettings(store_).firstRun);
    EXPECT_EQ(DisableHWA.Get(), 1u);
}

struct Normalised {
    std::string_view name;
    std::uint32_t stored;
    std::uint32_t loaded;
};

class SettingsNormalisation : public SettingsLoad,
                              public testing::WithParamInterface<Normalised> {};

TEST_P(SettingsNormalisation, LoadsAsTheTableSays) {
    const Normalised& c = GetParam();
    Put("DisableSMP", 0);  // something else, so the key is not empty
    Put(c.name, c.stored);
    LoadSettings(store_);
    EXPECT_EQ(FindSetting(c.name)->Get(), c.loaded);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SettingsNormalisation,
    testing::Values(
        Normalised{"AutoModeInterval", 5, 10}, Normalised{"AutoModeInterval", 10, 10},
        Normalised{"SmartMouseAcceleration", 1000, 300}, Normalised{"SmartMouseAcceleration", 0, 0},
        Normalised{"MemoryUsageGuideNumber", 200, 96}, Normalised{"SortByDateTime", 5, 0},
        Normalised{"SortByDateTime", 4, 4}, Normalised{"LabellingConvention", 2, 2},
        Normalised{"LabellingConvention", 3, 0}, Normalised{"DownscaleLargeImages", 0xFFFFFFFF, 0},
        Normalised{"DownscaleLargeImages", 0x80000010, 0x80000010},
        Normalised{"RightClickMagnifier", 6400, 6400}, Normalised{"WrapImageList", 7, 1},
        Normalised{"DisableHWA", 0, 0}));

TEST_F(SettingsLoad, ValuesOfTheWrongShapeKeepTheDefault) {
    ASSERT_EQ(key_.SetValue("AutoModeInterval", RegType::Sz, EncodeString("500")), ERROR_SUCCESS);
    ASSERT_EQ(key_.SetValue("WrapImageList", RegType::Dword, std::vector<std::uint8_t>{0, 0}),
              ERROR_SUCCESS);
    ASSERT_EQ(key_.SetValue("SortByDateTime", RegType::Qword, platform::EncodeQword(2)),
              ERROR_SUCCESS);
    LoadSettings(store_);
    EXPECT_EQ(AutoModeInterval.Get(), 1000u);
    EXPECT_EQ(WrapImageList.Get(), 1u);
    EXPECT_EQ(SortByDateTime.Get(), 0u);
}

TEST_F(SettingsLoad, MarksNeedSomewhereToGo) {
    Put("EnableRating", 1);
    Put("EnableLabelling", 1);
    Put("EnableUrgency", 1);
    LoadSettings(store_);
    EXPECT_EQ(EnableRating.Get(), 0u);
    EXPECT_EQ(EnableLabelling.Get(), 0u);
    EXPECT_EQ(EnableUrgency.Get(), 0u);

    for (std::string_view store :
         {"CreateSidecarFiles", "EmbedMetadata", "PrefixFileNamesWithRating"}) {
        Put("CreateSidecarFiles", 0);
        Put("EmbedMetadata", 0);
        Put("PrefixFileNamesWithRating", 0);
        Put(store, 1);
        LoadSettings(store_);
        EXPECT_EQ(EnableRating.Get(), 1u) << store;
        EXPECT_EQ(EnableUrgency.Get(), 1u) << store;
    }
}

TEST_F(SettingsLoad, TargetProfileAndBookmarkFileNameRules) {
    const auto icc = folder_ / "icc";
    std::filesystem::create_directories(icc);
    std::ofstream(icc / "Wide.icc") << "profile";
    ::setenv("XDG_DATA_HOME", folder_.Path().c_str(), 1);

    ASSERT_EQ(WriteString(key_, "CustomTargetColorProfile", "Wide.icc"), ERROR_SUCCESS);
    Put("OverrideTargetProfile", 0);
    LoadSettings(store_);
    EXPECT_EQ(TargetProfile.Get(), "") << "read only when the override is on";

    Put("OverrideTargetProfile", 1);
    LoadSettings(store_);
    EXPECT_EQ(TargetProfile.Get(), (icc / "Wide.icc").string());

    ASSERT_EQ(WriteString(key_, "CustomTargetColorProfile", "<automatic>"), ERROR_SUCCESS);
    LoadSettings(store_);
    EXPECT_EQ(TargetProfile.Get(), "<Automatic>");

    for (std::string_view ignored : {"W", "Missing.icc", "../icc/Wide.icc"}) {
        ASSERT_EQ(WriteString(key_, "CustomTargetColorProfile", ignored), ERROR_SUCCESS);
        LoadSettings(store_);
        EXPECT_EQ(TargetProfile.Get(), "") << ignored;
    }
    ::unsetenv("XDG_DATA_HOME");

    ASSERT_EQ(WriteString(key_, "ExternalBookmarkFileName", ""), ERROR_SUCCESS);
    LoadSettings(store_);
    EXPECT_EQ(BookmarkFileName.Get(), "Bookmarks.orv");
    ASSERT_EQ(WriteString(key_, "ExternalBookmarkFileName", "marks.orv"), ERROR_SUCCESS);
    LoadSettings(store_);
    EXPECT_EQ(BookmarkFileName.Get(), "marks.orv");
}

TEST_F(SettingsLoad, StringReadsCheckTypeLengthAndTerminator) {
    std::string text = "unchanged";
    const auto put = [&](RegType type, std::vector<std::uint8_t> bytes) {
        ASSERT_EQ(key_.SetValue("S", type, bytes), ERROR_SUCCESS);
    };
    put(RegType::Sz, {'a', 0, 'b'});  // odd length
    EXPECT_EQ(ReadString(key_, "S", text), ERROR_INVALID_DATA);
    put(RegType::Sz, {'a', 0, 'b', 0});  // no terminator
    EXPECT_EQ(ReadString(key_, "S", text), ERROR_INVALID_DATA);
    put(RegType::Binary, EncodeString("x"));
    EXPECT_EQ(ReadString(key_, "S", text), ERROR_INVALID_DATA);
    EXPECT_EQ(text, "unchanged");
    put(RegType::ExpandSz, EncodeString("%HOME%"));
    EXPECT_EQ(ReadString(key_, "S", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "%HOME%") << "not expanded";
    EXPECT_EQ(ReadString(key_, "S", text, 6), ERROR_MORE_DATA);
    put(RegType::Sz, {});
    EXPECT_EQ(ReadString(key_, "S", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "");
    EXPECT_EQ(ReadString(key_, "Absent", text), ERROR_FILE_NOT_FOUND);

    std::uint32_t number = 5;
    put(RegType::Dword, {1, 0, 0});
    EXPECT_EQ(ReadDword(key_, "S", number), ERROR_INVALID_DATA);
    EXPECT_EQ(number, 5u);
}

TEST(SettingsStore, UnavailableStoreRunsOnDefaults) {
    test::TempFolder folder;
    std::ofstream(folder / "file") << "x";
    auto store = platform::RegistryStore::Open(folder / "file" / "r.db");
    AutoModeInterval.Set(5000);
    const LoadOutcome outcome = LoadSettings(store);
    EXPECT_TRUE(outcome.firstRun);
    EXPECT_NE(outcome.writeError, ERROR_SUCCESS);
    EXPECT_EQ(AutoModeInterval.Get(), 1000u);
}

}  // namespace
}  // namespace orvanta::settings

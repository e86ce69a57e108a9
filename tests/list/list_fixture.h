// A temporary folder, a recorder of the list's notices and the settings the list reads,
// reset for every test of the picture list.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "list/capture_modes.h"
#include "list/picture_list.h"
#include "settings/settings.h"
#include "support/picture_fixtures.h"
#include "support/recording_notices.h"
#include "support/temp_folder.h"

namespace orvanta::list {

inline constexpr const char* kTestPatterns = "*.jpg;*.jpeg;*.png;*.tif;*.tiff;*.gif;*.nef";

class ListTest : public testing::Test {
protected:
    void SetUp() override {
        settings::SortByDateTime.Set(0);
        settings::WrapImageList.Set(0);
        settings::EnableMessageBeep.Set(1);
        settings::SubFoldersBrowsing.Set(0);
        settings::EnableMultiFrameSupport.Set(0);
        SetTrackMode(false);
        SetTetheredMode(false);
    }
    void TearDown() override {
        list_.reset();
        SetTrackMode(false);
        for (auto* setting : settings::AllSettings()) {
            setting->ResetToDefault();
        }
    }

    // An empty file is enough for the name order; the list reads no pixels.
    std::filesystem::path Touch(const std::string& name, std::int64_t mtime = 0) {
        const auto path = folder_ / name;
        std::filesystem::create_directories(path.parent_path());
        test::WriteFile(path, {});
        if (mtime != 0) {
            const timespec times[2] = {{mtime, 0}, {mtime, 0}};
            utimensat(AT_FDCWD, path.c_str(), times, 0);
        }
        return path;
    }

    PictureList& Open(const std::filesystem::path& show = {}) {
        list_ = std::make_unique<PictureList>(ListServices{&notices_, nullptr, nullptr, nullptr});
        EXPECT_TRUE(list_->OpenFolder(folder_.Path(), show, kTestPatterns));
        EXPECT_TRUE(list_->WaitUntilScanned(std::chrono::seconds(20)));
        return *list_;
    }

    // Key names relative to the folder, in display order.
    std::vector<std::string> Keys() const {
        std::vector<std::string> keys;
        const std::string prefix = folder_.Path().string() + "/";
        list_->ForEach([&](const PictureEntry& entry) {
            keys.push_back(KeyName(entry).substr(prefix.size()));
        });
        return keys;
    }

    std::string CurrentKey() const {
        const PictureEntry* entry = list_->Current();
        return entry ? KeyName(*entry).substr(folder_.Path().string().size() + 1) : "";
    }

    test::TempFolder folder_;
    test::RecordingNotices notices_;
    std::unique_ptr<PictureList> list_;
};

}  // namespace orvanta::list

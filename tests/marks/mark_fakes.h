// Stores that record what the mark writer asks of them and fail on demand, a recorder of
// the writer's notices, and a picture list over a temporary folder of empty pictures, for
// the tests of the mark command and the mark writer.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "list/picture_list.h"
#include "marks/mark_stores.h"
#include "marks/mark_writer.h"
#include "marks/mark_writer_notices.h"
#include "settings/settings.h"
#include "support/picture_fixtures.h"
#include "support/recording_notices.h"
#include "support/temp_folder.h"

namespace orvanta::marks::test {

struct StoreCall {
    std::string kind;  // "create", "update", "embed"
    std::string path;
    MarkRequest request;
};

class FakeStores final : public MarkStores {
public:
    using Answer = std::function<Result(const std::filesystem::path&)>;
    Answer create = [](const std::filesystem::path&) { return S_OK; };
    Answer update = [](const std::filesystem::path&) { return S_OK; };
    Answer embed = [](const std::filesystem::path&) { return S_OK; };

    Result CreateSidecar(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime&) override {
        Record("create", sidecar, request);
        return create(sidecar);
    }
    Result UpdateSidecar(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime&) override {
        Record("update", sidecar, request);
        return update(sidecar);
    }
    Result WriteEmbeddedMark(const std::filesystem::path& file, const MarkRequest& request,
                             const MarkTime&) override {
        Record("embed", file, request);
        return embed(file);
    }
    std::vector<StoreCall> Calls() const {
        std::scoped_lock lock(mutex_);
        return calls_;
    }

private:
    void Record(const char* kind, const std::filesystem::path& path, const MarkRequest& request) {
        std::scoped_lock lock(mutex_);
        calls_.push_back({kind, path.string(), request});
    }
    mutable std::mutex mutex_;
    std::vector<StoreCall> calls_;
};

struct ShownMessage {
    int textId = 0;
    int titleId = 0;
    MessageIcon icon = MessageIcon::Information;
    std::vector<std::string> arguments;  // numbers as decimal
    bool leftFullScreen = false;         // the 46F notice came just before
};

class RecordingMessages final : public MarkWriterNotices {
public:
    void LeaveFullScreen46F() override {
        std::scoped_lock lock(mutex_);
        pendingLeave_ = true;
    }
    void Message(int textId, int titleId, MessageIcon icon,
                 std::vector<i18n::FormatArg> arguments) override {
        std::scoped_lock lock(mutex_);
        ShownMessage shown{textId, titleId, icon, {}, pendingLeave_};
        pendingLeave_ = false;
        for (const auto& argument : arguments) {
            const auto& value = argument.Value();
            shown.arguments.push_back(std::holds_alternative<std::string>(value)
                                          ? std::get<std::string>(value)
                                          : std::to_string(std::get<std::int64_t>(value)));
        }
        messages_.push_back(std::move(shown));
    }
    std::vector<ShownMessage> All() const {
        std::scoped_lock lock(mutex_);
        return messages_;
    }

private:
    mutable std::mutex mutex_;
    bool pendingLeave_ = false;
    std::vector<ShownMessage> messages_;
};

class MarksTest : public testing::Test {
protected:
    void SetUp() override {
        for (auto* setting : settings::AllSettings()) {
            setting->ResetToDefault();
        }
        settings::EnableRating.Set(1);
    }
    void TearDown() override {
        writer_.reset();
        list_.reset();
        for (auto* setting : settings::AllSettings()) {
            setting->ResetToDefault();
        }
    }

    void Touch(const std::string& name, const orvanta::test::Bytes& bytes = {}) {
        orvanta::test::WriteFile(folder_ / name, bytes);
    }
    list::PictureList& Open() {
        list_ = std::make_unique<list::PictureList>(
            list::ListServices{&listNotices_, nullptr, nullptr, nullptr});
        EXPECT_TRUE(list_->OpenFolder(folder_.Path(), {}, "*.jpg;*.nef;*.png;*.tif"));
        EXPECT_TRUE(list_->WaitUntilScanned(std::chrono::seconds(20)));
        writer_ = std::make_unique<MarkWriter>(stores_, messages_, list_.get());
        writer_->SetSharingRetryDelay(std::chrono::milliseconds(0));
        writer_->Start();
        return *list_;
    }
    // Waits (at most 20 s, a guard against a hang) until the writer has nothing left.
    void Drain() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (writer_->HasWork() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        ASSERT_FALSE(writer_->HasWork());
    }
    std::string Base(const std::string& name) const { return (folder_ / name).string(); }
    std::vector<int> TextIds() const {
        std::vector<int> ids;
        for (const auto& message : messages_.All()) {
            ids.push_back(message.textId);
        }
        return ids;
    }

    orvanta::test::TempFolder folder_;
    orvanta::test::RecordingNotices listNotices_;
    FakeStores stores_;
    RecordingMessages messages_;
    std::unique_ptr<list::PictureList> list_;
    std::unique_ptr<MarkWriter> writer_;
};

}  // namespace orvanta::marks::test

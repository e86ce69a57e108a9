// A picture list over empty files with a decode cache whose decoder is a stand-in: each
// entry's outcome (a picture, a failure, running out of memory, a decode that blocks until
// aborted or let go) is set by the test, and every decode is recorded. Memory figures and
// the cache's long waits are the test's own, so the cases are exact and quick.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "decode/decode_cache.h"
#include "decode/decoded_picture.h"
#include "list/picture_entry.h"
#include "list/picture_list.h"
#include "settings/settings.h"
#include "support/picture_fixtures.h"
#include "support/recording_notices.h"
#include "support/temp_folder.h"

namespace orvanta::decode::test {

enum class Outcome {
    Picture,
    Failure,      // E_FAIL
    OutOfMemory,  // E_OUTOFMEMORY once, then a picture
    Blocking,     // blocks until aborted (E_ABORT) or let go (a picture)
    Stubborn,     // blocks until let go, ignoring the abort flag
};

class FakeDecoder final : public EntryDecoder {
public:
    Result Decode(list::PictureEntry& entry, std::string_view, bool) override {
        const std::string name = entry.BasePath().substr(entry.BasePath().rfind('/') + 1);
        Outcome outcome = Outcome::Picture;
        {
            std::unique_lock lock(mutex_);
            decoded_.push_back(name);
            ++running_;
            changed_.notify_all();
            if (const auto it = outcomes_.find(name); it != outcomes_.end()) {
                outcome = it->second;
                if (outcome == Outcome::OutOfMemory) {
                    it->second = Outcome::Picture;
                }
            }
            if (outcome == Outcome::Blocking || outcome == Outcome::Stubborn) {
                const bool heedAbort = outcome == Outcome::Blocking;
                while (!letGo_ && !(heedAbort && entry.abortFlag.load() != 0)) {
                    changed_.wait_for(lock, std::chrono::milliseconds(5));
                }
                outcome = letGo_ ? Outcome::Picture : Outcome::Blocking;
            }
            --running_;
            changed_.notify_all();
        }
        Result result = S_OK;
        switch (outcome) {
            case Outcome::Picture: {
                auto picture = std::make_shared<DecodedPicture>();
                picture->width = 100;
                picture->height = 50;
                picture->sourceBitsPerPixel = 24;
                entry.width = picture->width;
                entry.height = picture->height;
                entry.decodedPicture = std::move(picture);
                break;
            }
            case Outcome::Failure:
                result = E_FAIL;
                break;
            case Outcome::OutOfMemory:
                result = E_OUTOFMEMORY;
                break;
            default:
                result = E_ABORT;
                break;
        }
        entry.decodeResult = static_cast<std::int32_t>(result.Code());
        entry.decoding.store(false);
        return result;
    }

    void Set(const std::string& name, Outcome outcome) {
        std::scoped_lock lock(mutex_);
        outcomes_[name] = outcome;
    }
    void LetGo() {
        std::scoped_lock lock(mutex_);
        letGo_ = true;
        changed_.notify_all();
    }
    std::vector<std::string> Decoded() const {
        std::scoped_lock lock(mutex_);
        return decoded_;
    }
    std::size_t TimesDecoded(const std::string& name) const {
        const auto all = Decoded();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), name));
    }
    // Waits until a decode of `name` is under way.
    bool WaitRunning(const std::string& name) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] {
            return running_ > 0 &&
                   std::find(decoded_.begin(), decoded_.end(), name) != decoded_.end();
        });
    }

private:
    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::map<std::string, Outcome> outcomes_;
    std::vector<std::string> decoded_;
    int running_ = 0;
    bool letGo_ = false;
};

class FakeMemory final : public platform::MemoryStatusProvider {
public:
    platform::MemoryFigures Read() const override { return {available.load(), total.load()}; }
    // A load of 60 percent: between growing and shrinking for a memory setting of 32.
    std::atomic<std::uint64_t> available{std::uint64_t{40} << 30};
    std::atomic<std::uint64_t> total{std::uint64_t{100} << 30};
};

struct DecodeNotice {
    int message = 0;  // 0x467, 0x468, 0x46F; the message box's text id otherwise
    bool aborted = false;
};

class RecordingDecodeNotices final : public DecodeNotices {
public:
    void Waiting467(const list::PictureEntry&) override { Record({0x467, false}); }
    void WaitOver468(bool aborted, const list::PictureEntry&) override { Record({0x468, aborted}); }
    void MemoryRanOut46F() override { Record({0x46F, false}); }
    void OutOfMemoryMessage(int textId) override { Record({textId, false}); }
    std::vector<DecodeNotice> All() const {
        std::scoped_lock lock(mutex_);
        return notices_;
    }

private:
    void Record(DecodeNotice notice) {
        std::scoped_lock lock(mutex_);
        notices_.push_back(notice);
    }
    mutable std::mutex mutex_;  // guards notices_; a leaf lock
    std::vector<DecodeNotice> notices_;
};

class CacheTest : public testing::Test {
protected:
    void SetUp() override {
        settings::SortByDateTime.Set(0);
        settings::WrapImageList.Set(0);
        settings::EnableMessageBeep.Set(0);
        settings::MemoryUsageGuideNumber.Set(32);
    }
    void TearDown() override {
        if (list_) {
            list_->StopScan();
        }
        cache_.reset();
        list_.reset();
        for (auto* setting : settings::AllSettings()) {
            setting->ResetToDefault();
        }
    }

    // `count` empty files p001.jpg ... opened in a list whose cache has the given window,
    // with nothing queued yet (the scan adds files in directory order and queues the first
    // arrival; that is undone). The workers start only when `workers` is not 0.
    list::PictureList& Open(int count, WindowSize window, std::uint32_t workers = 0) {
        for (int i = 1; i <= count; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "p%03d.jpg", i);
            orvanta::test::WriteFile(folder_ / name, {});
        }
        CacheServices services;
        services.decoder = &decoder_;
        services.notices = &notices_;
        services.memory = &memory_;
        services.workers = workers == 0 ? 1 : workers;
        services.timing = timing_;
        cache_ = std::make_unique<DecodeCache>(services);
        list_ = std::make_unique<list::PictureList>(
            list::ListServices{&listNotices_, cache_.get(), nullptr, nullptr});
        cache_->Attach(list_.get());
        EXPECT_TRUE(list_->OpenFolder(folder_.Path(), {}, "*.jpg"));
        EXPECT_TRUE(list_->WaitUntilScanned(std::chrono::seconds(20)));
        EXPECT_TRUE(cache_->ShutDown());
        cache_->SetWindow(window);
        if (workers != 0) {
            cache_->Start();
        }
        return *list_;
    }

    std::string Base(int number) const {
        char name[16];
        std::snprintf(name, sizeof name, "/p%03d", number);
        return folder_.Path().string() + name;
    }

    // Makes entry `number` current (the cache re-plans around it).
    void Show(int number) { ASSERT_NE(list_->GoTo(Base(number)), nullptr); }

    list::PictureEntry& Entry(int number) {
        list::PictureEntry* found = nullptr;
        const std::string wanted = Base(number);
        list_->ForEach([&](const list::PictureEntry& entry) {
            if (entry.BasePath() == wanted) {
                found = const_cast<list::PictureEntry*>(&entry);
            }
        });
        EXPECT_NE(found, nullptr) << wanted;
        return *found;
    }

    // Entry numbers of the queued requests, oldest first.
    std::vector<int> QueuedNumbers() const {
        std::vector<int> numbers;
        for (const list::PictureEntry* entry : cache_->Queued()) {
            const std::string& base = entry->BasePath();
            numbers.push_back(std::stoi(base.substr(base.size() - 3)));
        }
        return numbers;
    }

    // Waits until `done` holds; false when it did not within 20 s.
    static bool Eventually(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    // The entry holds a picture and no worker is busy with it.
    static bool HasPicture(list::PictureEntry& entry) {
        if (entry.decoding.load()) {
            return false;
        }
        std::unique_lock lock(entry.decodeLock, std::try_to_lock);
        return lock.owns_lock() && entry.decodedPicture != nullptr;
    }

    orvanta::test::TempFolder folder_;
    orvanta::test::RecordingNotices listNotices_;
    RecordingDecodeNotices notices_;
    FakeDecoder decoder_;
    FakeMemory memory_;
    CacheTiming timing_{std::chrono::milliseconds(0), std::chrono::milliseconds(250),
                        std::chrono::milliseconds(1), std::chrono::milliseconds(20),
                        std::chrono::milliseconds(30'000)};
    std::unique_ptr<DecodeCache> cache_;
    std::unique_ptr<list::PictureList> list_;
};

}  // namespace orvanta::decode::test

// orvanta-cli list: runs the picture list on a folder and prints its entries in display
// order once the scan is complete; with --watch it then keeps watching in track mode and
// prints each new shot as it arrives.
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "cli/command.h"
#include "list/capture_modes.h"
#include "list/picture_list.h"
#include "settings/settings.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage =
    "list [--json] [--sort 0-4] [--subfolders 0|1] [--multiframe] [--watch SECONDS] FOLDER";

// The language module's text for status 10127.
constexpr std::string_view kFolderUnreadable = "the folder cannot be read";

struct Options {
    bool json = false;
    double watchSeconds = 0;
    std::string folder;
};

// Collects what the main window would act on; everything else is dropped.
class CliNotices final : public list::ListNotices {
public:
    void ListGrew464(std::uint32_t, std::uint32_t) override {}
    void StatusText46A(int textId) override {
        std::scoped_lock lock(mutex_);
        unreadable_ = unreadable_ || textId == list::StatusTextId::kFolderUnreadable;
    }
    void NewShot46B(std::uint32_t, std::string basePath) override {
        std::scoped_lock lock(mutex_);
        shots_.push_back(std::move(basePath));
    }
    void EntryRemoved479(const list::PictureEntry&) override {}
    void EntryChanged483(const list::PictureEntry&) override {}
    void Beep(list::BeepKind) override {}

    std::deque<std::string> TakeShots() {
        std::scoped_lock lock(mutex_);
        return std::exchange(shots_, {});
    }

private:
    std::mutex mutex_;  // guards shots_ and unreadable_; a leaf lock
    std::deque<std::string> shots_;
    bool unreadable_ = false;
};

bool ParseNumber(const std::string& text, std::uint32_t limit, std::uint32_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value <= limit;
}

std::string EntryJson(const list::PictureEntry& e, bool sortedByTime) {
    return "{\"key\":" + JsonString(list::KeyName(e)) +
           ",\"basePath\":" + JsonString(e.BasePath()) +
           ",\"extensionSet\":" + JsonString(e.extensionSet) +
           ",\"frameIndex\":" + std::to_string(e.frameIndex) +
           ",\"frameCount\":" + std::to_string(e.frameCount) + ",\"sortTime\":" +
           (sortedByTime && e.sortTime != 0
                ? JsonString(imaging::FormatIso8601(imaging::FileTime{e.sortTime}))
                : std::string("null")) +
           "}";
}

int Run(std::span<const std::string> args) {
    Options options;
    const std::string usage = "usage: orvanta-cli " + std::string(kUsage);
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        std::uint32_t number = 0;
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--multiframe") {
            settings::EnableMultiFrameSupport.Set(1);
        } else if (arg == "--sort" && hasValue && ParseNumber(args[i + 1], 4, number)) {
            settings::SortByDateTime.Set(number);
            ++i;
        } else if (arg == "--subfolders" && hasValue && ParseNumber(args[i + 1], 1, number)) {
            settings::SubFoldersBrowsing.Set(number);
            ++i;
        } else if (arg == "--watch" && hasValue) {
            char* end = nullptr;
            options.watchSeconds = std::strtod(args[i + 1].c_str(), &end);
            if (end == args[i + 1].c_str() || *end != 0 || !(options.watchSeconds >= 0)) {
                return UsageError(usage);
            }
            ++i;
        } else if (!arg.starts_with("--") && options.folder.empty()) {
            options.folder = arg;
        } else {
            return UsageError(usage);
        }
    }
    if (options.folder.empty()) {
        return UsageError(usage);
    }
    if (options.watchSeconds > 0) {
        list::SetTrackMode(true);
    }

    CliNotices notices;
    list::PictureList pictures(
        list::ListServices{&notices, nullptr, nullptr, platform::RegistryStore::User()});
    if (!pictures.OpenFolder(options.folder)) {
        return Failure(std::string(kFolderUnreadable) + ": " + options.folder);
    }
    pictures.WaitUntilScanned(std::chrono::hours(24));
    // Shots announced while scanning are part of the listing.
    notices.TakeShots();
    const bool byTime = pictures.SortMode() != 0;
    if (options.json) {
        std::string out = "[";
        bool first = true;
        pictures.ForEach([&](const list::PictureEntry& e) {
            out += (first ? "" : ",") + EntryJson(e, byTime);
            first = false;
        });
        out += "]\n";
        std::fputs(out.c_str(), stdout);
    } else {
        pictures.ForEach([&](const list::PictureEntry& e) {
            const std::string time = byTime && e.sortTime != 0
                                         ? imaging::FormatIso8601(imaging::FileTime{e.sortTime})
                                         : std::string("-");
            std::printf("%s\t%s\t%s\n", list::KeyName(e).c_str(), e.extensionSet.c_str(),
                        time.c_str());
        });
    }
    std::fflush(stdout);

    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(options.watchSeconds);
    while (std::chrono::steady_clock::now() < deadline) {
        for (const std::string& shot : notices.TakeShots()) {
            // As the main window does: the new shot becomes current.
            const list::PictureEntry* entry = pictures.GoTo(shot);
            if (entry == nullptr) {
                continue;
            }
            const std::string key = list::KeyName(*entry);
            if (options.json) {
                std::printf("{\"newShot\":%s,\"position\":%u,\"count\":%u}\n",
                            JsonString(key).c_str(), pictures.Position(), pictures.Count());
            } else {
                std::printf("new shot %s (%u of %u)\n", key.c_str(), pictures.Position(),
                            pictures.Count());
            }
            std::fflush(stdout);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    pictures.StopScan();
    return 0;
}

const CommandRegistrar registrar({"list", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli

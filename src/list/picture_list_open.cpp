// Opening a folder: the scan, the feeder thread and remembering the folder.
#include <thread>

#include "list/capture_modes.h"
#include "list/picture_list.h"
#include "list/supported_formats.h"
#include "platform/imaging/component_list.h"
#include "platform/imaging/metadata_query_reader.h"
#include "platform/shell/network_path.h"
#include "platform/sync/thread_priority.h"
#include "platform/text/unicode.h"
#include "settings/settings.h"
#include "settings/settings_io.h"

namespace orvanta::list {

namespace {

// The feeder waits this long for a record before looking at its stop request again.
constexpr std::chrono::milliseconds kFeedWait{300};
// The most files the feeder takes from the queue at once (it places them a few hundred
// under each hold of the list lock).
constexpr std::size_t kFeedBatch = 4096;
// The first opening waits this long for the codecs before telling that they are slow.
constexpr std::chrono::milliseconds kFirstDecoderWait{8000};

int ScanningText() {
    return CaptureModeActive() ? StatusTextId::kScanningInCaptureMode : StatusTextId::kScanning;
}

}  // namespace

bool PictureList::OpenFolder(const std::filesystem::path& folder,
                             const std::filesystem::path& fileToShow,
                             std::optional<std::string> patterns) {
    bookmarks_->SaveBeforeOpening(!ScanComplete());
    StopThreads();
    cache_->RestartWorkers();
    const std::uint32_t sortMode = settings::SortByDateTime.Get();
    {
        std::scoped_lock lock(mutex_);
        names_.clear();
        sortMode_ = sortMode > 4 ? 0 : sortMode;
        entries_ = OrderedSet(EntryOrder(sortMode_ != 0));
        current_ = entries_.end();
        position_ = 0;
        multiFrame_ = settings::EnableMultiFrameSupport.On();
        patterns_ = patterns
                        ? std::move(*patterns)
                        : BuildSupportedPatterns(imaging::ComponentList::Instance().Decoders());
        supported_ = SupportedExtensions(patterns_);
        folder_ = folder;
        onNetwork_ = shell::IsNetworkPath(folder);
        pendingTarget_.clear();
        if (!fileToShow.empty()) {
            const std::string full = fileToShow.string();
            pendingTarget_ = full.substr(0, full.size() - fileToShow.extension().string().size());
        }
        shownRequest_ = pendingTarget_;
    }
    services_.notices->StatusText46A(firstOpening_ ? StatusTextId::kFirstScan : ScanningText());
    if (sortMode_ >= 3) {
        imaging::InitialiseMetadata();
    }

    EnumeratorOptions options;
    options.subFolders = settings::SubFoldersBrowsing.On();
    options.noWatching = onNetwork_;
    options.readTimes = sortMode_ != 0;
    options.patterns = patterns_;
    options.nameOrder = sortMode_ == 0;
    options.isListed = [this](const std::filesystem::path& path) {
        const std::string_view full = path.native();
        const std::string_view base = BasePathOf(full);
        const std::string_view dotExtension = full.substr(base.size());
        if (dotExtension.empty()) {
            return false;
        }
        const std::string extension = text::LowerAscii(dotExtension.substr(1));
        std::scoped_lock lock(mutex_);
        const auto range = names_.equal_range(base);
        for (auto it = range.first; it != range.second; ++it) {
            std::string set = it->second->extensionSet;
            if (!AddExtension(set, extension)) {
                return true;
            }
        }
        return false;
    };
    Result started = enumerator_.SetFolder(folder, std::move(options));
    if (started.Succeeded()) {
        {
            std::scoped_lock lock(mutex_);
            folder_ = enumerator_.Folder();
        }
        // The feeder first, so that it waits for the first batch when the scan hands it
        // over rather than starting up then.
        feeder_ = std::jthread([this](std::stop_token stop) { FeedLoop(stop); });
        started = enumerator_.Start(EnumeratorStart::ScanThread);
    }
    if (started.Failed()) {
        StopThreads();
        services_.notices->StatusText46A(StatusTextId::kFolderUnreadable);
        return false;
    }
    if (firstOpening_) {
        firstOpening_ = false;
        firstOpeningWait_ = std::jthread([this] {
            if (!cache_->WaitForFirstDecoder(kFirstDecoderWait)) {
                services_.notices->StatusText46A(StatusTextId::kDecodersSlow);
            }
            services_.notices->StatusText46A(ScanningText());
        });
    }
    if (services_.settingsStore) {
        platform::RegKey key;
        if (platform::RegKey::Create(services_.settingsStore, settings::kSettingsKey, key) == 0) {
            (void)settings::WriteString(key, "LastPictureFolder", Folder().string());
        }
    }
    return true;
}

void PictureList::StopScan() {
    StopThreads();
}

void PictureList::StopThreads() {
    enumerator_.Stop(true);
    if (feeder_.joinable()) {
        feeder_.request_stop();
        queue_.Wake();
        feeder_.join();
    }
    if (firstOpeningWait_.joinable()) {
        firstOpeningWait_.join();
    }
    queue_.Clear();
}

bool PictureList::ScanComplete() const {
    return enumerator_.ScanFinished() && queue_.Drained();
}

bool PictureList::WaitUntilScanned(std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    return enumerator_.WaitScanFinished(timeout) && queue_.WaitDrained(deadline);
}

void PictureList::FeedLoop(std::stop_token stop) {
    platform::LowerCurrentThreadPriority();
    // In a time order each file is read before it is placed: one at a time, so that a stop
    // request is seen between files.
    const std::size_t most = sortMode_ == 0 ? kFeedBatch : 1;
    std::vector<FileFeedRecord>& records = feedRecords_;
    while (!stop.stop_requested()) {
        records.clear();
        const std::size_t taken = queue_.Pop(records, most, kFeedWait);
        if (taken == 0) {
            continue;
        }
        AddRecords(records, stop);
        queue_.MarkDone(taken);
    }
}

std::filesystem::path PictureList::Folder() const {
    std::scoped_lock lock(mutex_);
    return folder_;
}

bool PictureList::OnNetwork() const {
    std::scoped_lock lock(mutex_);
    return onNetwork_;
}

std::string PictureList::SupportedPatterns() const {
    std::scoped_lock lock(mutex_);
    return patterns_;
}

std::uint32_t PictureList::SortMode() const {
    std::scoped_lock lock(mutex_);
    return sortMode_;
}

}  // namespace orvanta::list

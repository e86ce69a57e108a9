#include "list/folder_enumerator.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "list/supported_formats.h"
#include "platform/shell/logical_compare.h"
#include "platform/shell/network_path.h"
#include "platform/sync/thread_priority.h"

namespace orvanta::list {

namespace {

constexpr std::uint32_t kFileMask = IN_CLOSE_WRITE | IN_MOVED_TO;
// What the scan watches its sub-folders for at first: names only, which needs no pass over
// the folder's entries in the kernel (watch_upgrades.h).
constexpr std::uint32_t kNameMask = IN_CREATE | IN_MOVED_TO;
// The watcher wakes this often to see the stop flag, and more often while sub-folders wait
// for their full watch, to see the list complete.
constexpr int kPollMilliseconds = 100;
constexpr int kWaitingPollMilliseconds = 10;
// Full watches put in place between two reads of the events.
constexpr std::size_t kFoldersPerStep = 16;
// Sub-folders get their full watch once the feeder has taken every file found, or this long
// after the scan at the latest (new files may keep the queue from draining).
constexpr std::chrono::seconds kLongestWatchDelay{2};
// The first batch of a walk is small, so that the first pictures show at once; later ones
// are larger, so that the feeder is woken rarely and, in name order, a folder's files
// arrive as one sorted run.
constexpr std::size_t kFirstBatch = 64;
constexpr std::size_t kBatch = 1024;
// Later batches gather the files of several small folders: each hand-over wakes the feeder,
// a system call that costs as much as reading a few dozen names.
constexpr std::size_t kHandOver = 256;
// A folder's entries are read this many bytes at a time, a hundred names or more.
constexpr std::size_t kDirectoryBuffer = 32 * 1024;

bool IsDots(const char* name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

}  // namespace

Result FolderEnumerator::SetFolder(const std::filesystem::path& folder, EnumeratorOptions options) {
    if (running_.load()) {
        return E_UNEXPECTED;
    }
    std::error_code error;
    const auto canonical = std::filesystem::weakly_canonical(folder, error);
    if (error || !std::filesystem::is_directory(canonical, error)) {
        return E_INVALIDARG;
    }
    if (access(canonical.c_str(), R_OK | X_OK) != 0) {
        return E_ACCESSDENIED;
    }
    if (!options.noWatching && shell::IsNetworkPath(canonical)) {
        return E_ACCESSDENIED;
    }
    folder_ = canonical;
    options_ = std::move(options);
    matcher_ = options_.patterns.empty()
                   ? nullptr
                   : std::make_unique<shell::PatternMatcher>(options_.patterns);
    return S_OK;
}

Result FolderEnumerator::Start(EnumeratorStart mode) {
    if (running_.load() || folder_.empty()) {
        return E_UNEXPECTED;
    }
    running_ = true;
    stop_ = false;
    scanFinished_.Reset();
    if (!options_.noWatching) {
        inotify_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (inotify_ >= 0) {
            watching_ = true;
            // The folder's own watch is in place before Start returns, so a file written
            // right after opening is never missed; the scan adds its sub-folders' watches.
            AddWatch(folder_);
            if (mode == EnumeratorStart::WatchOnly && options_.subFolders) {
                std::error_code error;
                for (std::filesystem::recursive_directory_iterator
                         it(folder_, std::filesystem::directory_options::skip_permission_denied,
                            error),
                     end;
                     it != end; it.increment(error)) {
                    if (it->is_directory(error) && !it->is_symlink(error)) {
                        AddWatch(it->path());
                    }
                }
            }
        }
    }
    // The scan thread starts first: the watcher only reads events, which the kernel keeps
    // for it meanwhile.
    if (mode == EnumeratorStart::ScanThread) {
        scanThread_ = std::jthread([this] { Scan(); });
    }
    if (inotify_ >= 0) {
        watchThread_ = std::jthread([this](std::stop_token stop) { WatchLoop(stop); });
    }
    if (mode == EnumeratorStart::WatchOnly) {
        scanFinished_.Set();
    } else if (mode == EnumeratorStart::ScanHere) {
        Scan();
    }
    return S_OK;
}

void FolderEnumerator::Stop(bool emptyQueue) {
    stop_ = true;
    if (scanThread_.joinable()) {
        scanThread_.join();
    }
    if (watchThread_.joinable()) {
        watchThread_.request_stop();
        watchThread_.join();
    }
    if (inotify_ >= 0) {
        close(inotify_);
        inotify_ = -1;
    }
    {
        std::scoped_lock lock(watchesMutex_);
        watches_.clear();
        upgrades_ = WatchUpgrades{};
    }
    watching_ = false;
    running_ = false;
    scanFinished_.Set();
    if (emptyQueue) {
        queue_.Clear();
    }
}

void FolderEnumerator::Scan() {
    // Below normal priority, so that decoding the visible pictures wins.
    platform::LowerCurrentThreadPriority();
    Batch& batch = scanBatch_;
    batch.records.clear();
    batch.ready.clear();
    batch.size = kFirstBatch;
    batch.limitedWatches = true;
    Walk(folder_.string(), false, batch);
    Push(batch);
    scanFinished_.Set();
}

std::uint32_t FolderEnumerator::FullMask() const {
    return options_.subFolders ? kFileMask | IN_CREATE : kFileMask;
}

void FolderEnumerator::AddWatch(const std::filesystem::path& folder, bool limited) {
    if (inotify_ < 0) {
        return;
    }
    const int wd = inotify_add_watch(inotify_, folder.c_str(), limited ? kNameMask : FullMask());
    if (wd >= 0) {
        std::scoped_lock lock(watchesMutex_);
        watches_[wd] = folder;
        if (limited) {
            upgrades_.AddLimited(wd);
        } else {
            upgrades_.SetFull(wd);
        }
    }
}

void FolderEnumerator::Feed(std::string path, Batch& batch) {
    FileFeedRecord record;
    record.path = std::move(path);
    if (options_.readTimes) {
        ReadFileTimes(record);
    }
    batch.records.push_back(std::move(record));
    if (batch.records.size() + batch.ready.size() >= batch.size) {
        Push(batch);
    }
}

// Sorts by base path in logical order, behind the ready records: each base path is cut from
// its record and turned into its sort key once, so that the sort itself compares bytes.
void FolderEnumerator::SortByBasePath(Batch& batch) {
    auto& records = batch.records;
    batch.keyText.clear();
    batch.keys.clear();
    // Paths of one folder compare as their names do (the folder ends in a slash, which
    // starts no number): a batch from one folder is sorted on the names alone.
    const std::string_view first = records.empty() ? std::string_view{} : records[0].path;
    const std::size_t folder = first.rfind('/') + 1;
    bool oneFolder = folder > 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::string_view base = BasePathOf(records[i].path);
        oneFolder = oneFolder && base.size() >= folder && base.rfind('/') + 1 == folder &&
                    base.substr(0, folder) == first.substr(0, folder);
        // The base path's length for now; its key's place once the key is made.
        batch.keys.push_back(
            {0, 0, static_cast<std::uint32_t>(base.size()), static_cast<std::uint32_t>(i)});
    }
    for (auto& key : batch.keys) {
        std::string_view base = std::string_view(records[key.record].path).substr(0, key.size);
        if (oneFolder) {
            base.remove_prefix(folder);
        }
        key.at = static_cast<std::uint32_t>(batch.keyText.size());
        shell::AppendLogicalKey(base, batch.keyText);
        key.size = static_cast<std::uint32_t>(batch.keyText.size() - key.at);
    }
    const std::string_view text = batch.keyText;
    for (auto& key : batch.keys) {
        for (std::size_t i = 0; i < sizeof key.head; ++i) {
            const auto byte = i < key.size ? static_cast<unsigned char>(text[key.at + i]) : 0u;
            key.head = key.head << 8 | byte;
        }
    }
    std::sort(batch.keys.begin(), batch.keys.end(), [text](const SortKey& a, const SortKey& b) {
        if (a.head != b.head) {
            return a.head < b.head;
        }
        return text.substr(a.at, a.size) < text.substr(b.at, b.size);
    });
    auto& ready = batch.ready;
    if (ready.capacity() < ready.size() + records.size()) {
        // Grown by half again at least: a batch gathers several folders one by one.
        ready.reserve(std::max(ready.size() + records.size(), ready.capacity() * 3 / 2));
    }
    std::string_view previous;
    bool opening = true;
    for (const auto& key : batch.keys) {
        ready.push_back(std::move(records[key.record]));
        const std::string_view own = text.substr(key.at, key.size);
        ready.back().order = opening           ? FeedOrder::Unknown
                             : own == previous ? FeedOrder::Same
                                               : FeedOrder::After;
        previous = own;
        opening = false;
    }
    records.clear();
}

void FolderEnumerator::EndFolder(Batch& batch) const {
    if (batch.records.empty()) {
        return;
    }
    if (options_.nameOrder) {
        SortByBasePath(batch);
    } else if (batch.ready.empty()) {
        batch.ready.swap(batch.records);
    } else {
        for (auto& record : batch.records) {
            batch.ready.push_back(std::move(record));
        }
        batch.records.clear();
    }
}

void FolderEnumerator::Push(Batch& batch, bool all) {
    EndFolder(batch);
    if (batch.ready.empty() ||
        (!all && batch.size != kFirstBatch && batch.ready.size() < kHandOver)) {
        return;
    }
    queue_.Push(batch.ready);
    batch.size = kBatch;
}

void FolderEnumerator::Walk(const std::string& folder, bool missingOnly) {
    Batch batch;
    batch.size = kFirstBatch;
    Walk(folder, missingOnly, batch);
    Push(batch);
}

void FolderEnumerator::Walk(const std::string& folder, bool missingOnly, Batch& batch) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return;  // access denied is skipped silently; other failures end this folder too
    }
    struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } closer{fd};
    // The entries are read straight from the kernel into a buffer of this depth's own (the
    // parent's is still being read): a directory stream would cost two more system calls
    // per folder, a good part of what a folder of a hundred files costs.
    if (batch.buffers.size() <= batch.depth) {
        batch.buffers.push_back(std::make_unique<std::byte[]>(kDirectoryBuffer));
    }
    std::byte* const buffer = batch.buffers[batch.depth].get();
    std::size_t filled = 0;
    std::size_t at = 0;
    if (watching_ && folder != folder_.native()) {
        AddWatch(folder, batch.limitedWatches);
    }
    // Each file's path is this prefix and its name.
    std::string path = folder;
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    const std::size_t prefix = path.size();
    while (!stop_.load(std::memory_order_relaxed)) {
        if (at == filled) {
            const ssize_t length = getdents64(fd, buffer, kDirectoryBuffer);
            if (length <= 0) {
                break;  // the end, or a folder that went while it was read
            }
            filled = static_cast<std::size_t>(length);
            at = 0;
        }
        const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
        if (entry->d_reclen == 0 || entry->d_reclen > filled - at) {
            break;  // never from the kernel; no endless loop over a bad record either
        }
        at += entry->d_reclen;
        if (IsDots(entry->d_name)) {
            continue;
        }
        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN || type == DT_LNK) {
            // Some filesystems give no type; a link counts as what it points to, except
            // that linked folders are not entered (they may loop).
            struct stat info {};
            if (fstatat(fd, entry->d_name, &info, 0) != 0) {
                continue;
            }
            if (S_ISDIR(info.st_mode)) {
                type = entry->d_type == DT_LNK ? DT_LNK : DT_DIR;
            } else if (S_ISREG(info.st_mode)) {
                type = DT_REG;
            }
        }
        path.resize(prefix);
        path += entry->d_name;
        if (type == DT_DIR) {
            if (options_.subFolders) {
                // What was found before the sub-folder goes first.
                Push(batch, false);
                ++batch.depth;
                Walk(path, missingOnly, batch);
                --batch.depth;
            }
            continue;
        }
        if (type != DT_REG) {
            continue;
        }
        if (matcher_ && !matcher_->Matches(entry->d_name)) {
            continue;
        }
        if (missingOnly && options_.isListed && options_.isListed(std::filesystem::path(path))) {
            continue;
        }
        Feed(path, batch);
    }
}

void FolderEnumerator::WatchLoop(std::stop_token stop) {
    // Events are 16 bytes plus the name; this holds a few hundred at once.
    alignas(inotify_event) char buffer[64 * 1024];
    pollfd waitFor{inotify_, POLLIN, 0};
    std::optional<std::chrono::steady_clock::time_point> scanned;
    while (!stop.stop_requested() && !stop_.load(std::memory_order_relaxed)) {
        bool waiting = false;
        {
            std::scoped_lock lock(watchesMutex_);
            waiting = upgrades_.Pending();
        }
        bool due = false;
        if (waiting && scanFinished_.IsSet()) {
            const auto now = std::chrono::steady_clock::now();
            scanned = scanned.value_or(now);
            due = queue_.Drained() || now - *scanned >= kLongestWatchDelay;
        }
        waitFor.revents = 0;
        const int ready =
            poll(&waitFor, 1, due ? 0 : (waiting ? kWaitingPollMilliseconds : kPollMilliseconds));
        if (ready < 0) {
            if (errno != EINTR) {
                break;
            }
            continue;  // a step needs every queued event read first
        }
        if (ready > 0 && !ReadEvents(buffer)) {
            break;
        }
        if (due) {
            CompleteWatches();
        }
    }
    watching_ = false;
}

bool FolderEnumerator::ReadEvents(std::span<char> buffer) {
    while (true) {
        const ssize_t length = read(inotify_, buffer.data(), buffer.size());
        if (length <= 0) {
            if (length < 0 && errno == EINTR) {
                continue;
            }
            return length < 0 && errno == EAGAIN;
        }
        bool overflow = false;
        for (ssize_t at = 0; at < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                overflow = true;
                continue;
            }
            if (event->len == 0) {
                continue;
            }
            const char* name = event->name;
            const bool isFolder = (event->mask & IN_ISDIR) != 0;
            if (!isFolder && matcher_ && !matcher_->Matches(name)) {
                continue;
            }
            std::filesystem::path folder;
            {
                std::scoped_lock lock(watchesMutex_);
                const auto it = watches_.find(event->wd);
                if (it == watches_.end()) {
                    continue;
                }
                folder = it->second;
                if (!isFolder && (event->mask & IN_CREATE)) {
                    upgrades_.Made(event->wd, name);
                } else if (!isFolder && (event->mask & kFileMask)) {
                    upgrades_.Arrived(event->wd, name);
                }
            }
            if (isFolder) {
                if (options_.subFolders && (event->mask & (IN_CREATE | IN_MOVED_TO))) {
                    // Files may land in the new folder before its watch does: walk it once.
                    Walk((folder / name).string(), true);
                }
                continue;
            }
            if (!(event->mask & kFileMask)) {
                continue;
            }
            FileFeedRecord record;
            record.path = (folder / name).string();
            if (!ReadFileTimes(record) && errno == ENOENT) {
                // Renamed or deleted again before its event was read (as the rating prefix
                // does to a picture rated twice in a row): feeding it would list a file that
                // is not there.
                continue;
            }
            queue_.Push(std::move(record));
        }
        if (overflow) {
            // The kernel dropped events: whatever is on disk and not in the list yet is fed.
            FeedMissing();
        }
    }
}

void FolderEnumerator::CompleteWatches() {
    std::vector<std::string> unseen;
    std::vector<std::pair<int, std::filesystem::path>> due;
    {
        std::scoped_lock lock(watchesMutex_);
        for (auto& [watch, name] : upgrades_.EndOfRead()) {
            const auto it = watches_.find(watch);
            if (it != watches_.end()) {
                unseen.push_back((it->second / name).string());
            }
        }
        for (const int watch : upgrades_.TakeLimited(kFoldersPerStep)) {
            const auto it = watches_.find(watch);
            if (it != watches_.end()) {
                due.emplace_back(watch, it->second);
            }
        }
    }
    // Made before the full watch and maybe closed before it too: fed as the scan would have
    // fed them. One still being written is fed again when it is closed, as a changed file.
    for (auto& path : unseen) {
        struct stat info {};
        if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            continue;  // gone again, or no file
        }
        FileFeedRecord record;
        record.path = std::move(path);
        ReadFileTimes(record);
        queue_.Push(std::move(record));
    }
    for (const auto& [watch, folder] : due) {
        const int wd = inotify_add_watch(inotify_, folder.c_str(), FullMask());
        if (wd >= 0 && wd != watch) {
            // The name leads to another folder now: it is watched under its own number.
            std::scoped_lock lock(watchesMutex_);
            watches_[wd] = folder;
        }
    }
}

}  // namespace orvanta::list

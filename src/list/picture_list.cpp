#include "list/picture_list.h"

#include <iterator>
#include <vector>

#include "list/capture_modes.h"
#include "list/name_lookup.h"
#include "list/supported_formats.h"
#include "metadata/date_taken.h"
#include "platform/text/unicode.h"
#include "settings/settings.h"

namespace orvanta::list {

namespace {

// A running decode asked to stop gets this long to do so.
constexpr std::chrono::milliseconds kDecodeStopWait{60'000};
// How many files ahead the feeder asks for the bytes of a path.
constexpr std::size_t kPathsAhead = 4;
// The most files the feeder places under one hold of the list lock.
constexpr std::size_t kPlacedPerHold = 256;

// Two frame entries of one multi-frame file.
bool SameFile(const PictureEntry& a, const PictureEntry& b) {
    return a.IsFrame() && b.IsFrame() && a.extensionSet == b.extensionSet &&
           shell::CompareNoCase(a.BasePath(), b.BasePath()) == 0;
}

}  // namespace

// A file on its way into the list: what is known of it before the list lock is taken.
struct PictureList::Arrival {
    std::string_view path;
    std::string_view base;
    // The string `path` views, when the caller gives it up: its buffer becomes the key of
    // the file's first name node, which saves copying the path and freeing it on this
    // thread after the scan thread allocated it.
    std::string* spare = nullptr;
    // Against the file placed before it under the same hold of the lock, and the base path
    // of the last file of its sorted run (Unknown and empty outside a run).
    FeedOrder order = FeedOrder::Unknown;
    std::string_view runLast;
    std::string extension;  // lower case, without the dot
    std::uint32_t frames = 1;
    std::uint64_t sortTime = 0;
    bool userAction = false;
};

// A notice for the window, sent once the list lock is released.
struct PictureList::Notice {
    enum class Kind { Grew, Shot, Changed };
    Kind kind = Kind::Grew;
    std::uint32_t count = 0;
    std::uint32_t delay = 0;
    std::string base;               // of a new shot
    PictureEntry* entry = nullptr;  // that changed
};

PictureList::PictureList(ListServices services)
    : services_(std::move(services)),
      cache_(services_.cache ? services_.cache : &defaultCache_),
      bookmarks_(services_.bookmarks ? services_.bookmarks : &defaultBookmarks_),
      current_(entries_.end()),
      window_(*this) {
}

PictureList::~PictureList() {
    StopThreads();
}

bool PictureList::AddFile(const std::filesystem::path& path,
                          std::optional<imaging::FileTime> fileTime, bool userAction) {
    return AddPath(path.native(), fileTime, userAction);
}

bool PictureList::Prepare(std::string_view path, bool userAction, Arrival& file) const {
    // patterns_, sortMode_ and multiFrame_ change only while the feeder is stopped, on the
    // thread that opens folders.
    const std::string_view base = BasePathOf(path);
    const std::string_view dotExtension = path.substr(base.size());
    bool mayHoldFrames = false;
    if (!supported_.Contains(dotExtension, multiFrame_, &mayHoldFrames)) {
        return false;
    }
    file.path = path;
    file.base = base;
    file.extension = text::LowerAscii(dotExtension.substr(1));
    // Frames are counted first: a multi-frame file always lists its frames, a single-frame
    // file joins the single-frame entry of its base path, whatever order they arrive in.
    file.frames = mayHoldFrames ? CountFrames(std::filesystem::path(path)) : 1;
    file.userAction = userAction;
    return true;
}

bool PictureList::AddPath(std::string_view path, std::optional<imaging::FileTime> fileTime,
                          bool userAction) {
    Arrival file;
    if (!Prepare(path, userAction, file)) {
        return false;
    }
    std::vector<Notice> notices;
    // In name order nothing is read from the file, so one pass under the lock does it all.
    if (sortMode_ != 0) {
        Joined joined = Joined::No;
        {
            std::scoped_lock lock(mutex_);
            const auto [first, last] = FindNames(names_, file.base);
            joined = Join(file, first, last, notices);
        }
        if (joined != Joined::No) {
            Tell(notices);
            return joined == Joined::Taken;
        }
        if (!fileTime) {
            FileFeedRecord record;
            record.path = std::string(path);
            ReadFileTimes(record);
            fileTime = sortMode_ == 2 ? record.creationTime : record.lastWriteTime;
        }
        imaging::FileTime time = *fileTime;
        if (sortMode_ >= 3) {
            time = metadata::ReadDateTaken(std::filesystem::path(path), time, sortMode_ == 4);
        }
        file.sortTime = time.ticks;
    }
    bool taken = false;
    {
        // Another thread may have listed the base path while the file was read.
        std::scoped_lock lock(mutex_);
        Hints hints{std::nullopt, entries_.end()};
        taken = Place(file, hints, notices);
    }
    Tell(notices);
    return taken;
}

void PictureList::AddRecords(std::vector<FileFeedRecord>& records, const std::stop_token& stop) {
    if (sortMode_ != 0) {
        for (const auto& record : records) {
            if (stop.stop_requested()) {
                return;
            }
            std::optional<imaging::FileTime> time;
            if (record.timesKnown) {
                time = sortMode_ == 2 ? record.creationTime : record.lastWriteTime;
            }
            (void)AddPath(record.path, time, false);
        }
        return;
    }
    std::vector<Arrival>& files = arrivals_;
    files.clear();
    // Room for the whole batch at once: growing step by step costs a trip to the heap for
    // each step, and the first steps clean up the heap's small free blocks each time.
    files.reserve(records.size());
    // The order the scan found is kept only between files placed one after the other.
    bool skipped = true;
    for (std::size_t i = 0; i < records.size(); ++i) {
        FileFeedRecord& record = records[i];
        // Counting frames reads the file: a stop request is seen between files.
        if (stop.stop_requested()) {
            return;
        }
        // The scan wrote the paths on another core: asking for them a few files ahead hides
        // most of the wait for their bytes.
        if (i + kPathsAhead < records.size()) {
            __builtin_prefetch(records[i + kPathsAhead].path.data());
        }
        files.emplace_back();
        if (!Prepare(record.path, false, files.back())) {
            files.pop_back();
            skipped = true;
            continue;
        }
        files.back().spare = &record.path;
        files.back().order = skipped ? FeedOrder::Unknown : record.order;
        skipped = false;
    }
    for (std::size_t i = files.size(); i-- > 0;) {
        const bool runGoesOn = i + 1 < files.size() && files[i + 1].order != FeedOrder::Unknown;
        files[i].runLast = runGoesOn ? files[i + 1].runLast : files[i].base;
    }
    std::vector<Notice>& notices = feedNotices_;
    for (std::size_t start = 0; start < files.size(); start += kPlacedPerHold) {
        if (stop.stop_requested()) {
            return;
        }
        notices.clear();
        notices.reserve(kPlacedPerHold);
        {
            std::scoped_lock lock(mutex_);
            Hints hints{std::nullopt, entries_.end()};
            const std::size_t end = std::min(files.size(), start + kPlacedPerHold);
            for (std::size_t i = start; i < end; ++i) {
                (void)Place(files[i], hints, notices);
            }
        }
        Tell(notices);
    }
}

PictureList::Joined PictureList::Join(const Arrival& file, NameIndex::iterator first,
                                      NameIndex::iterator last, std::vector<Notice>& notices) {
    for (auto it = first; it != last; ++it) {
        PictureEntry& entry = *it->second;
        if (file.frames > 1) {
            if (entry.IsFrame() && entry.extensionSet == file.extension) {
                return Joined::Ignored;  // the same multi-frame file again
            }
            continue;
        }
        if (entry.IsFrame()) {
            continue;
        }
        if (AddExtension(entry.extensionSet, file.extension)) {
            return Joined::Taken;
        }
        // The file was written again.
        if (!shownRequest_.empty() && shell::CompareNoCase(shownRequest_, file.base) == 0) {
            shownRequest_.clear();
            return Joined::Ignored;
        }
        if (entry.flags & EntryFlag::kAddedByUser) {
            entry.flags &= ~EntryFlag::kAddedByUser;
            return Joined::Ignored;
        }
        if (entry.selfReplaced.exchange(false)) {
            return Joined::Ignored;
        }
        DropPicture(entry);
        notices.push_back({Notice::Kind::Changed, 0, 0, {}, &entry});
        return Joined::Changed;
    }
    return Joined::No;
}

bool PictureList::Place(const Arrival& file, Hints& hints, std::vector<Notice>& notices) {
    NameRange range;
    if (file.order == FeedOrder::After && hints.name && hints.runBelowName) {
        // Above the file before it and below the node after that one: no node of its own.
        range = {*hints.name, *hints.name};
    } else {
        range = FindNames(names_, file.base, hints.name);
        hints.runBelowName =
            !file.runLast.empty() && (range.last == names_.end() ||
                                      shell::CompareLogical(file.runLast, range.last->first) < 0);
    }
    const auto [first, last] = range;
    hints.name = last;
    const Joined joined = Join(file, first, last, notices);
    if (joined != Joined::No) {
        return joined == Joined::Taken;
    }
    const bool wasEmpty = entries_.empty();
    const EntryOrder order = entries_.key_comp();
    // The base path from here on: once the path's string has become a node's key, the view
    // into it is read from the node (a short path's characters do not move with it).
    std::string_view base = file.base;
    // The key of a node dropped again, kept while `base` may view it.
    std::string dropped;
    for (std::uint32_t frame = 0; frame < file.frames; ++frame) {
        auto entry = std::make_unique<PictureEntry>();
        PictureEntry* raw = entry.get();
        std::string key;
        if (file.spare != nullptr && frame == 0) {
            key = std::move(*file.spare);
            key.resize(base.size());
        } else {
            key = base;
        }
        // New nodes of one base path go after the ones already there.
        raw->nameLink = names_.emplace_hint(last, std::move(key), raw);
        base = raw->nameLink->first;
        raw->sortTime = file.sortTime;
        raw->frameIndex = static_cast<std::uint16_t>(file.frames > 1 ? frame : 0);
        raw->frameCount = static_cast<std::uint16_t>(file.frames);
        raw->extensionSet = file.extension;
        raw->owner = this;
        raw->flags = file.userAction ? EntryFlag::kAddedByUser : 0;
        const std::size_t before = entries_.size();
        const auto it = entries_.insert(hints.entry, std::move(entry));
        if (entries_.size() == before) {
            dropped = std::move(names_.extract(raw->nameLink).key());
            base = dropped;
            continue;
        }
        hints.entry = std::next(it);
        if (current_ == entries_.end()) {
            current_ = it;
            position_ = 1;
            hints.placedBeforeCurrent = false;
        } else {
            if (!hints.placed || std::next(*hints.placed) != it) {
                hints.placedBeforeCurrent = order(raw, current_->get());
            }
            if (hints.placedBeforeCurrent) {
                ++position_;
            }
        }
        hints.placed = it;
        bookmarks_->Attach(*raw);
    }
    bool moved = wasEmpty;
    if (!pendingTarget_.empty() && shell::CompareNoCase(pendingTarget_, base) == 0) {
        moved = TakePendingTarget() || moved;
        hints.placed.reset();  // the current entry may have changed
    }
    if (moved) {
        cache_->Reschedule(window_);
    }
    const auto count = static_cast<std::uint32_t>(entries_.size());
    if (CaptureModeActive()) {
        notices.push_back({Notice::Kind::Shot, count, 0, std::string(base), nullptr});
    } else {
        const bool slowFirst = count == 1 && !IsQuickFormat(file.extension);
        notices.push_back({Notice::Kind::Grew,
                           wasEmpty ? 0 : count,
                           slowFirst ? kSlowFirstDelay : kQuickFirstDelay,
                           {},
                           nullptr});
    }
    return true;
}

void PictureList::Tell(const std::vector<Notice>& notices) const {
    for (const Notice& notice : notices) {
        switch (notice.kind) {
            case Notice::Kind::Grew:
                services_.notices->ListGrew464(notice.count, notice.delay);
                break;
            case Notice::Kind::Shot:
                services_.notices->NewShot46B(notice.count, notice.base);
                break;
            case Notice::Kind::Changed:
                services_.notices->EntryChanged483(*notice.entry);
                break;
        }
    }
}

PictureEntry* PictureList::Current() const {
    std::scoped_lock lock(mutex_);
    return current_ == entries_.end() ? nullptr : current_->get();
}

std::string PictureList::ExtensionSetOf(const PictureEntry& entry) const {
    std::scoped_lock lock(mutex_);
    return entry.extensionSet;
}

std::uint32_t PictureList::Position() const {
    std::scoped_lock lock(mutex_);
    return position_;
}

std::uint32_t PictureList::Count() const {
    std::scoped_lock lock(mutex_);
    return static_cast<std::uint32_t>(entries_.size());
}

void PictureList::ForEach(const std::function<void(const PictureEntry&)>& visit) const {
    std::scoped_lock lock(mutex_);
    for (const auto& entry : entries_) {
        visit(*entry);
    }
}

PictureEntry* PictureList::Next(std::uint32_t steps, bool quiet) {
    std::optional<BeepKind> beep;
    PictureEntry* result = nullptr;
    {
        std::scoped_lock lock(mutex_);
        if (TakePendingTarget()) {
            cache_->Reschedule(window_);
            return current_->get();
        }
        const auto count = static_cast<std::uint32_t>(entries_.size());
        if (count == 0 || position_ == count) {
            if (count == 0 || !settings::WrapImageList.On() || transferPending_) {
                beep = BeepKind::Exclamation;
            } else {
                result = MoveTo(entries_.begin(), 1);
                beep = BeepKind::Asterisk;
            }
        } else {
            const std::uint32_t by = std::min(std::max(steps, 1u), count - position_);
            result = MoveTo(std::next(current_, by), position_ + by);
        }
    }
    if (beep) {
        Beep(*beep, quiet);
    }
    return result;
}

PictureEntry* PictureList::Previous(std::uint32_t steps) {
    std::optional<BeepKind> beep;
    PictureEntry* result = nullptr;
    {
        std::scoped_lock lock(mutex_);
        if (TakePendingTarget()) {
            cache_->Reschedule(window_);
            return current_->get();
        }
        const auto count = static_cast<std::uint32_t>(entries_.size());
        if (count == 0 || position_ == 1) {
            if (count == 0 || !settings::WrapImageList.On()) {
                beep = BeepKind::Exclamation;
            } else {
                result = MoveTo(std::prev(entries_.end()), count);
                beep = BeepKind::Asterisk;
            }
        } else {
            const std::uint32_t by = std::min(std::max(steps, 1u), position_ - 1);
            result = MoveTo(std::prev(current_, by), position_ - by);
        }
    }
    if (beep) {
        Beep(*beep, false);
    }
    return result;
}

PictureEntry* PictureList::First() {
    std::scoped_lock lock(mutex_);
    pendingTarget_.clear();
    return entries_.empty() ? nullptr : MoveTo(entries_.begin(), 1);
}

PictureEntry* PictureList::Last() {
    std::scoped_lock lock(mutex_);
    pendingTarget_.clear();
    return entries_.empty()
               ? nullptr
               : MoveTo(std::prev(entries_.end()), static_cast<std::uint32_t>(entries_.size()));
}

PictureEntry* PictureList::MakeCurrent(const PictureEntry& entry) {
    std::scoped_lock lock(mutex_);
    const auto it = entries_.find(&entry);
    return it == entries_.end() ? nullptr : MoveTo(it, RankOf(it));
}

void PictureList::VisitWindow(const std::function<void(const ListWindow&)>& visit) const {
    std::scoped_lock lock(mutex_);
    visit(window_);
}

PictureEntry* PictureList::Window::Current() const {
    return list_.current_ == list_.entries_.end() ? nullptr : list_.current_->get();
}

PictureEntry* PictureList::Window::Neighbour(const PictureEntry& entry, bool forward) const {
    auto it = list_.entries_.find(&entry);
    if (it == list_.entries_.end()) {
        return nullptr;
    }
    if (forward) {
        ++it;
        return (it == list_.entries_.end() ? list_.entries_.begin() : it)->get();
    }
    return (it == list_.entries_.begin() ? std::prev(list_.entries_.end()) : std::prev(it))->get();
}

PictureEntry* PictureList::GoTo(std::string_view basePath) {
    std::scoped_lock lock(mutex_);
    PictureEntry* entry = FindBasePath(basePath);
    if (entry == nullptr) {
        return nullptr;
    }
    const auto it = entries_.find(entry);
    return MoveTo(it, RankOf(it));
}

bool PictureList::RemoveCurrent() {
    std::scoped_lock lock(mutex_);
    if (current_ == entries_.end()) {
        return false;
    }
    // Every frame of a multi-frame file goes, from its first frame on.
    auto first = current_;
    while (first != entries_.begin() && SameFile(**std::prev(first), **current_)) {
        --first;
    }
    const auto rank = static_cast<std::uint32_t>(position_ - std::distance(first, current_));
    const PictureEntry& removed = **current_;
    auto last = std::next(current_);
    while (last != entries_.end() && SameFile(**last, removed)) {
        ++last;
    }
    std::vector<OrderedSet::iterator> doomed;
    for (auto it = first; it != last; ++it) {
        doomed.push_back(it);
    }
    for (const auto& it : doomed) {
        Erase(it);
    }
    const auto count = static_cast<std::uint32_t>(entries_.size());
    if (count == 0) {
        current_ = entries_.end();
        position_ = 0;
    } else if (last == entries_.end()) {
        current_ = std::prev(entries_.end());
        position_ = count;
    } else {
        current_ = last;
        position_ = rank;
    }
    cache_->Reschedule(window_);
    return true;
}

bool PictureList::VisitListed(const PictureEntry* entry, std::string_view basePath,
                              const std::function<void(PictureEntry&)>& visit) {
    std::scoped_lock lock(mutex_);
    const auto [first, last] = FindNames(names_, basePath);
    for (auto it = first; it != last; ++it) {
        if (it->second == entry) {
            visit(*it->second);
            return true;
        }
    }
    return false;
}

void PictureList::ForEachFrameOfFile(const PictureEntry& entry,
                                     const std::function<void(PictureEntry&)>& visit) {
    std::scoped_lock lock(mutex_);
    if (!entry.IsFrame()) {
        visit(*entry.nameLink->second);
        return;
    }
    const auto [first, last] = FindNames(names_, entry.BasePath());
    for (auto it = first; it != last; ++it) {
        if (SameFile(*it->second, entry)) {
            visit(*it->second);
        }
    }
}

std::size_t PictureList::Rebase(std::string_view oldBase, std::string_view newBase) {
    std::scoped_lock lock(mutex_);
    const auto [first, last] = FindNames(names_, oldBase);
    std::vector<PictureEntry*> moving;
    for (auto it = first; it != last; ++it) {
        moving.push_back(it->second);
    }
    if (moving.empty()) {
        return 0;
    }
    const PictureEntry* current = current_ == entries_.end() ? nullptr : current_->get();
    // Out of both containers first: their order depends on the key about to change.
    std::vector<OrderedSet::node_type> nodes;
    for (PictureEntry* entry : moving) {
        nodes.push_back(entries_.extract(entries_.find(entry)));
    }
    // Readers without the list lock copy base paths under the rename lock.
    std::unique_lock renaming(RenameLock());
    auto rename = [&](PictureEntry* entry, std::string_view base) {
        auto name = names_.extract(entry->nameLink);
        name.key() = std::string(base);
        entry->nameLink = names_.insert(FindNames(names_, base).last, std::move(name));
    };
    for (PictureEntry* entry : moving) {
        rename(entry, newBase);
    }
    for (auto& node : nodes) {
        const PictureEntry* entry = node.value().get();
        auto inserted = entries_.insert(std::move(node));
        if (!inserted.inserted) {
            // An entry of that name arrived meanwhile: this one keeps its old name.
            rename(inserted.node.value().get(), oldBase);
            inserted = entries_.insert(std::move(inserted.node));
        }
        if (entry == current) {
            current_ = inserted.position;
        }
    }
    if (current_ != entries_.end()) {
        position_ = RankOf(current_);
    }
    cache_->Reschedule(window_);
    return moving.size();
}

void PictureList::Erase(OrderedSet::iterator it) {
    PictureEntry& entry = **it;
    entry.abortFlag.store(1, std::memory_order_relaxed);
    const bool stopped = entry.decodeLock.try_lock_for(kDecodeStopWait);
    if (stopped) {
        entry.decodeLock.unlock();
    }
    cache_->Release(entry);
    services_.notices->EntryRemoved479(entry);
    bookmarks_->Detach(entry);
    names_.erase(entry.nameLink);
    entries_.erase(it);
}

void PictureList::DropPicture(PictureEntry& entry) {
    entry.abortFlag.store(1, std::memory_order_relaxed);
    if (entry.decodeLock.try_lock_for(kDecodeStopWait)) {
        entry.decodedPicture.reset();
        entry.systemMemoryCopy.reset();
        entry.decodeResult = 0;
        entry.width = 0;
        entry.height = 0;
        entry.decodeLock.unlock();
    }
    entry.abortFlag.store(0, std::memory_order_relaxed);
    cache_->Changed(entry);
}

PictureEntry* PictureList::MoveTo(OrderedSet::iterator to, std::uint32_t position) {
    current_ = to;
    position_ = position;
    cache_->Reschedule(window_);
    return to->get();
}

std::uint32_t PictureList::RankOf(OrderedSet::iterator it) const {
    // Linear, but only for a jump to a named entry; steps keep count themselves.
    return static_cast<std::uint32_t>(
        std::distance(entries_.begin(), OrderedSet::const_iterator(it)) + 1);
}

PictureEntry* PictureList::FindBasePath(std::string_view basePath) const {
    const auto range = names_.equal_range(std::string(basePath));
    PictureEntry* best = nullptr;
    const EntryOrder order = entries_.key_comp();
    for (auto it = range.first; it != range.second; ++it) {
        if (best == nullptr || order(it->second, best)) {
            best = it->second;
        }
    }
    return best;
}

bool PictureList::TakePendingTarget() {
    if (pendingTarget_.empty()) {
        return false;
    }
    PictureEntry* target = FindBasePath(pendingTarget_);
    if (target == nullptr) {
        return false;
    }
    pendingTarget_.clear();
    current_ = entries_.find(target);
    position_ = RankOf(current_);
    return true;
}

void PictureList::Beep(BeepKind kind, bool quiet) const {
    if (!quiet && settings::EnableMessageBeep.On()) {
        services_.notices->Beep(kind);
    }
}

}  // namespace orvanta::list

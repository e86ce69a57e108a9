// The pictures of the open folder in display order, with the current entry and its 1-based
// position. Opening a folder starts a scan whose files a feeder thread adds one by one
// while the user already looks at the first ones, so entries may appear before the current
// one; the folder is then watched for new files. One instance, owned by the main window.
//
// Thread rules: every public operation takes the list lock itself (the first lock in the
// program's lock order; the decode cache's lock comes after it). Moves and opening run on
// the user-interface thread, adds on the feeder thread, reads anywhere. Notices go out after
// the lock is released, except EntryRemoved479, which is sent with the lock held. Entry
// pointers handed out stay valid until the entry is removed or another folder is opened.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "list/entry_order.h"
#include "list/feed_queue.h"
#include "list/folder_enumerator.h"
#include "list/list_hooks.h"
#include "list/list_notices.h"
#include "list/picture_entry.h"
#include "list/supported_formats.h"
#include "platform/imaging/file_time.h"
#include "platform/registry/registry.h"

namespace orvanta::list {

// What the list reaches beyond itself. Only `notices` is required.
struct ListServices {
    ListNotices* notices = nullptr;
    DecodeCacheHooks* cache = nullptr;
    BookmarkHooks* bookmarks = nullptr;
    // Where LastPictureFolder is written after an opening (the user's store in the
    // program); none: not written.
    std::shared_ptr<platform::RegistryStore> settingsStore;
};

class PictureList {
public:
    explicit PictureList(ListServices services);
    ~PictureList();
    PictureList(const PictureList&) = delete;
    PictureList& operator=(const PictureList&) = delete;

    // Empties the list and starts scanning `folder` (with its sub-folders when
    // SubFoldersBrowsing is set); the entry of `fileToShow`, if named, becomes current when
    // it arrives. `patterns` overrides the supported-pattern list built from the decoders
    // present. False, after status text 10127, when the folder cannot be enumerated.
    bool OpenFolder(const std::filesystem::path& folder,
                    const std::filesystem::path& fileToShow = {},
                    std::optional<std::string> patterns = std::nullopt);
    // Stops the scan, the watch and the feeder; the entries stay.
    void StopScan();
    // True once the scan has finished and every file it found has been added (the watch
    // may still add more). Waits up to `timeout`.
    bool WaitUntilScanned(std::chrono::milliseconds timeout) const;
    bool ScanComplete() const;

    // Adds one file: a sibling of a listed base path joins its entry's ExtensionSet, a file
    // written again drops its picture (entry-changed), anything else makes an entry (one
    // per frame for a multi-frame file) in sorted place. `fileTime` is the time to sort by
    // in the time orders (read from the file when absent). False when the file is not a
    // supported picture or added nothing.
    bool AddFile(const std::filesystem::path& path, std::optional<imaging::FileTime> fileTime,
                 bool userAction = false);

    PictureEntry* Current() const;
    // `entry`'s extension set, copied under the list lock: a sibling file may join it at any
    // time. `entry` must be in the list.
    std::string ExtensionSetOf(const PictureEntry& entry) const;
    std::uint32_t Position() const;  // 1-based; 0 when the list is empty
    std::uint32_t Count() const;
    // Calls `visit` for each entry in display order, with the list lock held: it must not
    // call back into the list.
    void ForEach(const std::function<void(const PictureEntry&)>& visit) const;

    // Moves return the new current entry, or none when the move is refused. After every
    // move the decode cache is rescheduled.
    PictureEntry* Next(std::uint32_t steps = 1, bool quiet = false);
    PictureEntry* Previous(std::uint32_t steps = 1);
    PictureEntry* First();
    PictureEntry* Last();
    PictureEntry* GoTo(std::string_view basePath);
    // Makes `entry` current; none when it is not in the list.
    PictureEntry* MakeCurrent(const PictureEntry& entry);
    // Calls `visit` with the list lock held and the list lent as the decode cache sees it
    // (for the cache's own re-planning from a worker thread).
    void VisitWindow(const std::function<void(const ListWindow&)>& visit) const;
    // Removes the current entry (every frame of a multi-frame file); the one after it
    // becomes current, or the new last one when it was last. False when the list is empty.
    bool RemoveCurrent();

    // Culling: calls `visit` with the list lock held when `entry` is still listed under
    // `basePath`; the pointer is only compared, never followed, until that is known, so an
    // entry removed meanwhile is safe to ask about. False when it is not listed.
    bool VisitListed(const PictureEntry* entry, std::string_view basePath,
                     const std::function<void(PictureEntry&)>& visit);
    // Calls `visit` with the list lock held for `entry` and, when it is a frame of a
    // multi-frame file, for every other frame of that file.
    void ForEachFrameOfFile(const PictureEntry& entry,
                            const std::function<void(PictureEntry&)>& visit);
    // The files of the entries listed under `oldBase` were renamed to `newBase`: the entries
    // take the new base path and their place in the order. Returns how many moved.
    std::size_t Rebase(std::string_view oldBase, std::string_view newBase);

    // While a tethered transfer is pending, Next does not wrap.
    void SetTransferPending(bool pending) { transferPending_ = pending; }

    std::filesystem::path Folder() const;
    bool OnNetwork() const;
    std::string SupportedPatterns() const;
    std::uint32_t SortMode() const;
    bool Watching() const { return enumerator_.Watching(); }

private:
    using OrderedSet = std::set<std::unique_ptr<PictureEntry>, EntryOrder,
                                entry_pool::PoolAllocator<std::unique_ptr<PictureEntry>>>;
    struct Arrival;
    struct Notice;
    // Where the previous file of a batch went: in name order the next one usually goes
    // right after it, which the containers take with a couple of comparisons.
    struct Hints {
        std::optional<NameIndex::iterator> name;
        OrderedSet::iterator entry;
        // The files still to come in this sorted run all go before `name`: each one is
        // placed right after the one before it without a look-up.
        bool runBelowName = false;
        // The entry placed last and whether it stands before the current one: an entry
        // placed right after it stands on the same side.
        std::optional<OrderedSet::iterator> placed;
        bool placedBeforeCurrent = false;
    };
    enum class Joined { No, Taken, Ignored, Changed };

    // The list lent to the decode cache; every call runs with the list lock held.
    class Window final : public ListWindow {
    public:
        explicit Window(const PictureList& list) : list_(list) {}
        PictureEntry* Current() const override;
        std::uint32_t Position() const override { return list_.position_; }
        std::uint32_t Count() const override {
            return static_cast<std::uint32_t>(list_.entries_.size());
        }
        bool TransferPending() const override { return list_.transferPending_; }
        PictureEntry* Neighbour(const PictureEntry& entry, bool forward) const override;

    private:
        const PictureList& list_;
    };

    void FeedLoop(std::stop_token stop);
    // Adds the files of a batch from the feed queue: in name order with one lock for all.
    void AddRecords(std::vector<FileFeedRecord>& records, const std::stop_token& stop);
    bool AddPath(std::string_view path, std::optional<imaging::FileTime> fileTime, bool userAction);
    // Parses and checks the file and counts its frames, without the lock; false when it is
    // not a supported picture.
    bool Prepare(std::string_view path, bool userAction, Arrival& file) const;
    void Tell(const std::vector<Notice>& notices) const;
    void StopThreads();
    // With the lock held.
    Joined Join(const Arrival& file, NameIndex::iterator first, NameIndex::iterator last,
                std::vector<Notice>& notices);
    // Joins the file to its base path's entry or inserts its entries; true when taken.
    bool Place(const Arrival& file, Hints& hints, std::vector<Notice>& notices);
    PictureEntry* MoveTo(OrderedSet::iterator to, std::uint32_t position);
    std::uint32_t RankOf(OrderedSet::iterator it) const;
    PictureEntry* FindBasePath(std::string_view basePath) const;
    bool TakePendingTarget();
    void Beep(BeepKind kind, bool quiet) const;
    void DropPicture(PictureEntry& entry);
    void Erase(OrderedSet::iterator it);

    ListServices services_;
    DecodeCacheHooks defaultCache_;
    BookmarkHooks defaultBookmarks_;
    DecodeCacheHooks* cache_;
    BookmarkHooks* bookmarks_;

    // The list lock: guards everything from here to the end of this group. First in the
    // program's lock order.
    mutable std::mutex mutex_;
    NameIndex names_;
    OrderedSet entries_;
    OrderedSet::iterator current_;
    std::uint32_t position_ = 0;
    std::filesystem::path folder_;
    bool onNetwork_ = false;
    std::string patterns_;
    SupportedExtensions supported_;  // patterns_, prepared
    std::uint32_t sortMode_ = 0;
    bool multiFrame_ = false;
    std::string pendingTarget_;  // base path to make current when it arrives
    std::string shownRequest_;   // base path of the file the user asked to show

    Window window_;
    std::atomic<bool> transferPending_{false};
    bool firstOpening_ = true;
    FeedQueue queue_;
    FolderEnumerator enumerator_{queue_};
    std::jthread feeder_;
    // The feeder thread's room for a batch, kept from one batch and one opening to the next.
    std::vector<FileFeedRecord> feedRecords_;
    std::vector<Arrival> arrivals_;
    std::vector<Notice> feedNotices_;
    std::jthread firstOpeningWait_;
};

}  // namespace orvanta::list

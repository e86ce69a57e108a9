// The two steps in which the folder scan watches sub-folders. The scan first watches a
// sub-folder only for names made in it or renamed into it, which the kernel sets up at
// once; watching for files written and closed as well makes the kernel mark every entry of
// the folder it holds in memory, a cost the scan would pay per file, so that step waits
// until the list is complete. A file made in between may be closed before its folder's full
// watch is in place, and then no notice of its closing ever comes: its name is kept here and
// handed out to be fed once every event queued before the full watch has been read.
//
// Thread rules: not thread-safe; the folder enumerator guards it with its watch lock (the
// scan adds folders, the watch thread does the rest).
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvanta::list {

class WatchUpgrades {
public:
    // `watch` is watched for names only.
    void AddLimited(int watch);
    // The full watch of `watch` was put in place another way (a rescan): its kept names are
    // handed out at the end of the next read.
    void SetFull(int watch);
    // Folders still to be fully watched, or whose kept names wait for the end of a read.
    bool Pending() const { return !limited_.empty() || !taken_.empty(); }
    bool HasLimited() const { return !limited_.empty(); }
    // Up to `most` limited folders, oldest first, whose full watch the caller puts in place
    // right away. Files made in them still count as unseen until the next EndOfRead.
    std::vector<int> TakeLimited(std::size_t most);

    // A file named `name` was made in `watch`; kept while the folder is not fully watched.
    void Made(int watch, std::string_view name);
    // The closing or the arrival of `name` in `watch` was seen: it need not be fed again.
    void Arrived(int watch, std::string_view name);
    // Every event queued before the last TakeLimited or SetFull has been read: the names kept
    // for the folders taken then, to be fed, with their watches. Those folders are done.
    std::vector<std::pair<int, std::string>> EndOfRead();

private:
    struct Folder {
        bool taken = false;
        std::vector<std::string> made;
    };
    void Take(int watch, Folder& folder);

    std::unordered_map<int, Folder> folders_;  // limited or taken, by watch
    std::deque<int> limited_;                  // in the order the scan met them
    std::vector<int> taken_;
};

}  // namespace orvanta::list

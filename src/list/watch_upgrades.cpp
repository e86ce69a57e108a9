#include "list/watch_upgrades.h"

#include <algorithm>

namespace orvanta::list {

void WatchUpgrades::AddLimited(int watch) {
    const auto [it, added] = folders_.try_emplace(watch);
    if (!added) {
        if (!it->second.taken) {
            return;  // limited already
        }
        // Watched for names only again before the read that would have finished it: the
        // folder waits for its full watch once more, its kept names with it.
        it->second.taken = false;
        taken_.erase(std::find(taken_.begin(), taken_.end(), watch));
    }
    limited_.push_back(watch);
}

void WatchUpgrades::SetFull(int watch) {
    const auto it = folders_.find(watch);
    if (it != folders_.end() && !it->second.taken) {
        limited_.erase(std::find(limited_.begin(), limited_.end(), watch));
        Take(watch, it->second);
    }
}

std::vector<int> WatchUpgrades::TakeLimited(std::size_t most) {
    std::vector<int> watches;
    while (!limited_.empty() && watches.size() < most) {
        const int watch = limited_.front();
        limited_.pop_front();
        Take(watch, folders_[watch]);
        watches.push_back(watch);
    }
    return watches;
}

void WatchUpgrades::Take(int watch, Folder& folder) {
    folder.taken = true;
    taken_.push_back(watch);
}

void WatchUpgrades::Made(int watch, std::string_view name) {
    const auto it = folders_.find(watch);
    if (it == folders_.end()) {
        return;
    }
    auto& made = it->second.made;
    if (std::find(made.begin(), made.end(), name) == made.end()) {
        made.emplace_back(name);
    }
}

void WatchUpgrades::Arrived(int watch, std::string_view name) {
    const auto it = folders_.find(watch);
    if (it == folders_.end()) {
        return;
    }
    auto& made = it->second.made;
    made.erase(std::remove(made.begin(), made.end(), name), made.end());
}

std::vector<std::pair<int, std::string>> WatchUpgrades::EndOfRead() {
    std::vector<std::pair<int, std::string>> unseen;
    for (const int watch : taken_) {
        const auto it = folders_.find(watch);
        for (auto& name : it->second.made) {
            unseen.emplace_back(watch, std::move(name));
        }
        folders_.erase(it);
    }
    taken_.clear();
    return unseen;
}

}  // namespace orvanta::list

// Picture list speed and size, each figure with its ratio to the limit measured in the same
// run:
//  - a folder of 10,000 supported files in 100 sub-folders, name order: the first list-grew
//    notice after opening (limit: 50 ms), and the complete ordered list against a plain
//    recursive readdir walk with extension filtering of the same tree (limit: 1.5 times);
//  - a folder of 100,000 files: the heap the list holds once it is complete (limit: 100 MB).
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include "list/entry_pool.h"
#include "list/list_notices.h"
#include "list/picture_list.h"
#include "list/supported_formats.h"
#include "platform/imaging/component_list.h"
#include "settings/settings.h"

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;

constexpr int kDefaultRounds = 12;

double Milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

class TimingNotices final : public list::ListNotices {
public:
    void ListGrew464(std::uint32_t, std::uint32_t) override {
        if (!first_.load()) {
            firstAt_ = Clock::now();
            first_ = true;
        }
    }
    void StatusText46A(int) override {}
    void NewShot46B(std::uint32_t, std::string) override {}
    void EntryRemoved479(const list::PictureEntry&) override {}
    void EntryChanged483(const list::PictureEntry&) override {}
    void Beep(list::BeepKind) override {}

    void Reset() { first_ = false; }
    Clock::time_point FirstAt() const { return firstAt_; }

private:
    std::atomic<bool> first_{false};
    Clock::time_point firstAt_;
};

void MakeTree(const std::filesystem::path& root, int folders, int filesPerFolder) {
    std::filesystem::create_directories(root);
    for (int f = 0; f < folders; ++f) {
        const auto folder = root / ("folder" + std::to_string(f));
        std::filesystem::create_directory(folder);
        for (int i = 0; i < filesPerFolder; ++i) {
            const auto name = folder / ("IMG_" + std::to_string(i) + (i % 10 ? ".jpg" : ".nef"));
            close(open(name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        }
        // Files the list ignores.
        close(open((folder / "notes.txt").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    }
}

// What any program must do to find the pictures: readdir with the entry's type, filtering
// names by extension against a sorted list.
void PlainWalk(const std::string& folder, const std::vector<std::string>& extensions,
               std::vector<std::string>& out) {
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (entry->d_type == DT_DIR) {
            PlainWalk(folder + "/" + entry->d_name, extensions, out);
            continue;
        }
        const auto dot = name.rfind('.');
        if (dot == std::string_view::npos) {
            continue;
        }
        std::string ext(name.substr(dot));
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](char c) { return static_cast<char>(std::tolower(c)); });
        if (std::binary_search(extensions.begin(), extensions.end(), ext)) {
            out.push_back(folder + "/" + entry->d_name);
        }
    }
    closedir(dir);
}

std::vector<std::string> Extensions(const std::string& patterns) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start < patterns.size()) {
        auto end = patterns.find(';', start);
        end = end == std::string::npos ? patterns.size() : end;
        out.push_back(patterns.substr(start + 1, end - start - 1));  // ".jpg"
        start = end + 1;
    }
    std::sort(out.begin(), out.end());
    return out;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

// Arguments, for profiling: the number of rounds over the 10,000 files (default 5), and
// "--no-memory" to leave out the 100,000-file figure.
int main(int argc, char** argv) {
    // Fixed heap thresholds: by default the C library raises them after the first large
    // block it frees, and until then hands the walk's memory back to the kernel after each
    // walk, to fault it in again in the next. Either side's figure then depended on what the
    // other happened to free; with these, neither does.
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024 * 1024);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultRounds;
    const bool memory = !(argc > 2 && std::string_view(argv[2]) == "--no-memory");
    char pattern[] = "/tmp/orvanta-list-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::filesystem::path root = pattern;
    settings::SortByDateTime.Set(0);
    settings::SubFoldersBrowsing.Set(1);
    const std::string patterns =
        list::BuildSupportedPatterns(imaging::ComponentList::Instance().Decoders());
    const auto extensions = Extensions(patterns);

    MakeTree(root / "tree", 100, 100);
    const std::string tree = (root / "tree").string();
    std::vector<double> walks;
    std::vector<double> firsts;
    std::vector<double> completes;
    std::size_t walked = 0;
    std::uint32_t listed = 0;
    TimingNotices notices;
    for (int round = 0; round < rounds; ++round) {
        // Interleaved, and each side first in every other round: a walk right after a list
        // let go of its folder watches runs slower than one after a walk, so both sides get
        // both states.
        const auto walk = [&] {
            std::vector<std::string> found;
            const auto walkStart = Clock::now();
            PlainWalk(tree, extensions, found);
            walks.push_back(Milliseconds(Clock::now() - walkStart));
            walked = found.size();
        };
        if (round % 2 == 0) {
            walk();
        }
        {
            list::PictureList pictures(list::ListServices{&notices, nullptr, nullptr, nullptr});
            notices.Reset();
            const auto openStart = Clock::now();
            if (!pictures.OpenFolder(tree, {}, patterns) ||
                !pictures.WaitUntilScanned(std::chrono::minutes(5))) {
                std::fprintf(stderr, "the list did not complete\n");
                return 1;
            }
            completes.push_back(Milliseconds(Clock::now() - openStart));
            firsts.push_back(Milliseconds(notices.FirstAt() - openStart));
            listed = pictures.Count();
            pictures.StopScan();
        }
        if (round % 2 == 1) {
            walk();
        }
    }
    const double walk = Median(walks);
    const double first = Median(firsts);
    const double complete = Median(completes);
    std::printf("10,000 files in 100 folders: plain walk %.1f ms (%zu files), list %u entries\n",
                walk, walked, listed);
    std::printf("  first list-grew notice %.2f ms (limit 50 ms, ratio %.2f)\n", first,
                first / 50.0);
    std::printf("  complete list %.1f ms = %.2f x the walk (limit 1.5, ratio %.2f)\n", complete,
                complete / walk, complete / walk / 1.5);

    if (memory) {
        MakeTree(root / "big", 100, 1000);
        malloc_trim(0);
        // The heap in use (blocks large enough to be mapped on their own included) and the
        // entries, which live in a pool of their own.
        const auto held = [] {
            const auto info = mallinfo2();
            return info.uordblks + info.hblkhd + list::entry_pool::BytesInUse();
        };
        const std::size_t before = held();
        list::PictureList pictures(list::ListServices{&notices, nullptr, nullptr, nullptr});
        if (!pictures.OpenFolder(root / "big", {}, patterns) ||
            !pictures.WaitUntilScanned(std::chrono::minutes(10))) {
            std::fprintf(stderr, "the list did not complete\n");
            return 1;
        }
        pictures.StopScan();
        const double megabytes = static_cast<double>(held() - before) / (1024.0 * 1024.0);
        std::printf("100,000 files: %u entries, list memory %.1f MB (limit 100 MB, ratio %.2f)\n",
                    pictures.Count(), megabytes, megabytes / 100.0);
    }
    std::filesystem::remove_all(root);
    return 0;
}

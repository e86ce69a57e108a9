// A folder large enough that the scan hands its files over in several batches, which the
// feeder places next to one another: the list must come out as if each file had been
// added on its own, in any order.
#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "list_fixture.h"
#include "platform/text/unicode.h"

namespace orvanta::list {
namespace {

struct Listing {
    std::vector<std::string> keys;
    std::map<std::string, std::vector<std::string>> extensions;  // sorted, per key
};

Listing ListingOf(const PictureList& list, const std::filesystem::path& root) {
    Listing listing;
    const std::size_t prefix = root.string().size() + 1;
    list.ForEach([&](const PictureEntry& entry) {
        // Files of one base path in other case share an entry named after whichever came
        // first: compare without regard to case.
        const std::string key = text::LowerAscii(KeyName(entry).substr(prefix));
        listing.keys.push_back(key);
        std::vector<std::string> set;
        std::string_view rest = entry.extensionSet;
        while (!rest.empty()) {
            const std::size_t end = std::min(rest.find(';'), rest.size());
            set.emplace_back(rest.substr(0, end));
            rest = rest.substr(std::min(end + 1, rest.size()));
        }
        std::sort(set.begin(), set.end());
        listing.extensions[key] = set;
    });
    return listing;
}

TEST_F(ListTest, BatchesListAsSingleAddsInAnyOrder) {
    settings::SubFoldersBrowsing.Set(1);
    settings::EnableMultiFrameSupport.Set(1);
    std::vector<std::filesystem::path> paths;
    for (const char* sub : {"", "s1/", "s1/deep/", "s2/"}) {
        for (int i = 0; i < 90; ++i) {
            const std::string n = std::to_string(i);
            paths.push_back(Touch(sub + ("IMG_" + n + ".jpg")));
            if (i % 3 == 0) {
                paths.push_back(Touch(sub + ("IMG_" + n + ".nef")));  // a sibling
            }
            if (i % 10 == 0) {
                paths.push_back(Touch(sub + ("img_" + n + ".png")));   // the same key
                paths.push_back(Touch(sub + ("IMG_0" + n + ".jpg")));  // another key
            }
        }
    }
    // Frames of a multi-frame file beside the single-frame entry of their base path.
    for (const char* name : {"IMG_5.tif", "s1/IMG_40.tif", "s2/frames.tif"}) {
        test::WriteFile(folder_ / name, test::MakeMultiPageTiff(2, 4, 4));
        paths.push_back(folder_ / name);
    }
    auto& list = Open();
    const Listing scanned = ListingOf(list, folder_.Path());
    ASSERT_EQ(list.Position() == 0, scanned.keys.empty());
    EXPECT_EQ(scanned.keys[list.Position() - 1], text::LowerAscii(CurrentKey()));
    // One notice per file that made entries: none for siblings, one for both frames.
    const auto files = std::count_if(scanned.keys.begin(), scanned.keys.end(),
                                     [](const std::string& key) { return !key.ends_with("<1>"); });
    EXPECT_EQ(notices_.Of(0x464).size(), static_cast<std::size_t>(files));
    EXPECT_EQ(scanned.extensions.at("img_30"), (std::vector<std::string>{"jpg", "nef", "png"}));
    EXPECT_EQ(scanned.extensions.at("img_5<1>"), (std::vector<std::string>{"tif"}));
    // In base-path order (a frame's key name adds its index to the base path).
    const auto base = [](const std::string& key) { return key.substr(0, key.find('<')); };
    for (std::size_t i = 1; i < scanned.keys.size(); ++i) {
        ASSERT_LE(shell::CompareLogical(base(scanned.keys[i - 1]), base(scanned.keys[i])), 0)
            << scanned.keys[i - 1] << " " << scanned.keys[i];
    }

    test::TempFolder empty;
    for (unsigned seed : {1u, 2u}) {
        std::shuffle(paths.begin(), paths.end(), std::mt19937(seed));
        test::RecordingNotices notices;
        PictureList one(ListServices{&notices, nullptr, nullptr, nullptr});
        ASSERT_TRUE(one.OpenFolder(empty.Path(), {}, kTestPatterns));
        ASSERT_TRUE(one.WaitUntilScanned(std::chrono::seconds(20)));
        for (const auto& path : paths) {
            one.AddFile(std::filesystem::canonical(path), std::nullopt);
        }
        const Listing added = ListingOf(one, std::filesystem::canonical(folder_.Path()));
        EXPECT_EQ(added.keys, scanned.keys);
        EXPECT_EQ(added.extensions, scanned.extensions);
    }
}

TEST_F(ListTest, ReadsOfAFolderSplitBySubFoldersInterleave) {
    // A folder read in pieces (its entries come in no order of name, and sub-folders named
    // among its files are walked in between): later pieces place files between ones already
    // listed, join siblings found in earlier pieces, and keep the position of the picture
    // asked for, which becomes current while the rest still arrives.
    settings::SubFoldersBrowsing.Set(1);
    std::vector<std::string> expected;
    for (int i = 0; i < 700; ++i) {
        const std::string name = "p_" + std::to_string(i);
        Touch(name + ".jpg");
        if (i % 7 == 0) {
            Touch(name + ".nef");
        }
        expected.push_back(name);
    }
    for (const char* sub : {"p_350", "p_100x", "p_0"}) {
        for (int j = 0; j < 30; ++j) {
            const std::string name = std::string(sub) + "/a_" + std::to_string(j);
            Touch(name + ".jpg");
            expected.push_back(name);
        }
    }
    std::sort(expected.begin(), expected.end(), shell::LogicalLess{});
    auto& list = Open(folder_ / "p_500.jpg");
    const Listing scanned = ListingOf(list, folder_.Path());
    EXPECT_EQ(scanned.keys, expected);
    EXPECT_EQ(CurrentKey(), "p_500");
    const auto current = std::find(scanned.keys.begin(), scanned.keys.end(), "p_500");
    ASSERT_NE(current, scanned.keys.end());
    EXPECT_EQ(list.Position(), static_cast<std::uint32_t>(current - scanned.keys.begin() + 1));
    for (int i = 0; i < 700; i += 7) {
        EXPECT_EQ(scanned.extensions.at("p_" + std::to_string(i)),
                  (std::vector<std::string>{"jpg", "nef"}));
    }
    // Moves count the same positions.
    EXPECT_NE(list.First(), nullptr);
    EXPECT_EQ(list.Position(), 1u);
    EXPECT_NE(list.Next(static_cast<std::uint32_t>(current - scanned.keys.begin())), nullptr);
    EXPECT_EQ(CurrentKey(), "p_500");
}

}  // namespace
}  // namespace orvanta::list

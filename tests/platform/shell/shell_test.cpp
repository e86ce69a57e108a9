// Logical name order, name pattern matching and network filesystem recognition.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/shell/logical_compare.h"
#include "platform/shell/network_path.h"
#include "platform/shell/path_match.h"
#include "support/temp_folder.h"

namespace orvanta::shell {
namespace {

struct OrderCase {
    const char* first;
    const char* second;
};

class LogicalOrder : public testing::TestWithParam<OrderCase> {};

TEST_P(LogicalOrder, FirstComesBeforeSecond) {
    const auto& c = GetParam();
    EXPECT_LT(CompareLogical(c.first, c.second), 0) << c.first << " vs " << c.second;
    EXPECT_GT(CompareLogical(c.second, c.first), 0) << c.second << " vs " << c.first;
}

INSTANTIATE_TEST_SUITE_P(
    Names, LogicalOrder,
    testing::Values(OrderCase{"img2", "img10"}, OrderCase{"img1", "img2"},
                    OrderCase{"IMG9", "img10"}, OrderCase{"a", "B"}, OrderCase{"img", "img1"},
                    OrderCase{"x99999999999999999999998", "x99999999999999999999999"},
                    OrderCase{"x9", "x00000000000000000000010"}, OrderCase{"a1", "a01"},
                    OrderCase{"a1b", "a01c"}, OrderCase{"a_", "a1"}, OrderCase{"a 2", "a1"},
                    OrderCase{"a9", "ab"}, OrderCase{"2010-05-01", "2010-5-02"},
                    OrderCase{"\xc3\xa4pfel1", "\xc3\x84pfel2"}, OrderCase{"", "a"},
                    // Long shared prefixes, cut inside a number, a character or a case
                    // difference, before, at and after eight bytes.
                    OrderCase{"/photos/2024/img_0009", "/photos/2024/img_0010"},
                    OrderCase{"abcdefgh9", "abcdefgh10"}, OrderCase{"abcdefg9", "abcdefg12"},
                    OrderCase{"1234567890123456789a", "1234567890123456789B"},
                    OrderCase{"/folder/\xc3\xa4x", "/folder/\xc3\x84y"},
                    OrderCase{"ABCDEFGHx", "abcdefghY"}, OrderCase{"abcdefghijk", "abcdefghijkl"},
                    OrderCase{"/p/IMG_1234 copy", "/p/IMG_1234.2"}));

TEST(LogicalCompare, EqualOnlyWithoutRegardToCase) {
    EXPECT_EQ(CompareLogical("IMG_0010", "img_0010"), 0);
    EXPECT_EQ(CompareLogical("\xc3\x84", "\xc3\xa4"), 0);
    EXPECT_NE(CompareLogical("a01", "a1"), 0);
    EXPECT_NE(CompareLogicalTotal("IMG", "img"), 0);
    EXPECT_EQ(CompareLogicalTotal("img", "img"), 0);
    EXPECT_EQ(CompareNoCase("Photo.JPG", "photo.jpg"), 0);
    EXPECT_LT(CompareNoCase("a10", "a9"), 0);  // no number rule
}

TEST(LogicalCompare, SortsALargeSetConsistently) {
    // A strict weak order: sorting agrees with every pairwise comparison, and a set keyed
    // with it holds each distinct name once.
    std::vector<std::string> names;
    const char* stems[] = {"img", "IMG", "img_", "a", "a-", "img 0", "Img0"};
    for (const char* stem : stems) {
        for (int n : {0, 1, 2, 9, 10, 11, 100, 7, 70, 700}) {
            names.push_back(stem + std::to_string(n));
            names.push_back(stem + std::string("0") + std::to_string(n) + "x");
        }
    }
    std::sort(names.begin(), names.end(), LogicalTotalLess{});
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (std::size_t j = i + 1; j < names.size(); ++j) {
            ASSERT_LE(CompareLogicalTotal(names[i], names[j]), 0) << names[i] << " " << names[j];
        }
    }
    const std::set<std::string, LogicalTotalLess> total(names.begin(), names.end());
    EXPECT_EQ(total.size(), names.size());
    const std::set<std::string, LogicalLess> folded(names.begin(), names.end());
    EXPECT_LT(folded.size(), names.size());  // "IMG1" and "img1" are one key here
    EXPECT_EQ(folded.count("iMg10"), 1u);
}

struct MatchCase {
    const char* name;
    const char* patterns;
    bool matches;
};

class PatternMatch : public testing::TestWithParam<MatchCase> {};

TEST_P(PatternMatch, MatchesLikeTheShellPatterns) {
    const auto& c = GetParam();
    EXPECT_EQ(MatchPatterns(c.name, c.patterns), c.matches) << c.name << " ~ " << c.patterns;
    // The prepared form a scan uses gives the same answers.
    EXPECT_EQ(PatternMatcher(c.patterns).Matches(c.name), c.matches) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, PatternMatch,
    testing::Values(MatchCase{"a.jpg", "*.jpg", true}, MatchCase{"A.JPG", "*.jpg", true},
                    MatchCase{"a.jpeg", "*.jpg", false}, MatchCase{"a.jpg.txt", "*.jpg", false},
                    MatchCase{"a.tar.jpg", "*.jpg", true}, MatchCase{"a.jpg", "*.JPG", true},
                    MatchCase{"a.tar.gz", "*.tar.gz", true}, MatchCase{"jpg", "*.jpg", false},
                    MatchCase{"a.nef", "*.jpg;*.nef", true},
                    MatchCase{"a.nef", "*.jpg; *.nef", true}, MatchCase{"a.png", "*.jpg;;", false},
                    MatchCase{"noext", "*.*", true}, MatchCase{"img1.jpg", "img?.jpg", true},
                    MatchCase{"img10.jpg", "img?.jpg", false}, MatchCase{"", "*", true},
                    MatchCase{"abc", "", false}, MatchCase{"abc", "a*b*c*", true},
                    MatchCase{"\xc3\x84.JPG", "\xc3\xa4.jpg", true},
                    MatchCase{"aaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*a*a*c", false}));

TEST(NetworkPath, RecognisesNetworkTypes) {
    for (const char* type : {"nfs", "nfs4", "cifs", "smb3", "fuse.sshfs", "fuse.rclone", "9p"}) {
        EXPECT_TRUE(IsNetworkFilesystemType(type)) << type;
    }
    for (const char* type : {"ext4", "btrfs", "tmpfs", "fuse.bindfs", "fuse", "overlay", ""}) {
        EXPECT_FALSE(IsNetworkFilesystemType(type)) << type;
    }
}

TEST(NetworkPath, MountInfoLongestPrefixWins) {
    const std::string info =
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "40 22 0:40 / /mnt/nas rw - nfs4 nas:/export rw\n"
        "41 40 0:41 / /mnt/nas/local rw - tmpfs tmpfs rw\n"
        "42 22 0:42 / /home/me/remote\\040box rw shared:9 - fuse.sshfs me@box: rw\n"
        "garbage line\n";
    EXPECT_EQ(MountTypeFor(info, "/mnt/nas/photos/2020"), "nfs4");
    EXPECT_EQ(MountTypeFor(info, "/mnt/nas"), "nfs4");
    EXPECT_EQ(MountTypeFor(info, "/mnt/nas/local/x"), "tmpfs");
    EXPECT_EQ(MountTypeFor(info, "/mnt/nasty"), "ext4");
    EXPECT_EQ(MountTypeFor(info, "/home/me/remote box/a"), "fuse.sshfs");
    EXPECT_EQ(MountTypeFor("", "/x"), "");
}

TEST(NetworkPath, LocalTemporaryFolderIsNotNetwork) {
    test::TempFolder folder;
    EXPECT_FALSE(IsNetworkPath(folder.Path()));
    EXPECT_FALSE(IsNetworkPath(folder / "missing"));
}

}  // namespace
}  // namespace orvanta::shell

// The scan sorts each folder's names by their logical sort keys: a key comparison must agree
// with the logical comparison the list orders its entries by, on every pair of names.
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/shell/logical_compare.h"

namespace orvanta::shell {
namespace {

int Sign(int v) {
    return (v > 0) - (v < 0);
}

std::string Key(std::string_view text) {
    std::string key;
    AppendLogicalKey(text, key);
    return key;
}

void ExpectSameOrder(const std::string& a, const std::string& b) {
    EXPECT_EQ(Sign(Key(a).compare(Key(b))), Sign(CompareLogical(a, b)))
        << '"' << a << "\" vs \"" << b << '"';
}

TEST(LogicalKey, AgreesWithTheLogicalComparisonOnRandomNames) {
    // Pieces that meet every rule: numbers with and without leading zeros, case, punctuation
    // against digits and letters, letters beyond ASCII (some fold to ASCII ones: the long s,
    // the Kelvin sign), and bytes that are no UTF-8.
    const std::vector<std::string> pieces = {"0",
                                             "00",
                                             "1",
                                             "01",
                                             "9",
                                             "10",
                                             "007",
                                             "a",
                                             "A",
                                             "b",
                                             "Z",
                                             "s",
                                             "k",
                                             "_",
                                             " ",
                                             "-",
                                             ".",
                                             "~",
                                             "[",
                                             "é",
                                             "É",
                                             "ä",
                                             "ſ",
                                             "\u212a",
                                             "\xce\xa9",
                                             "\xd0\xb6",
                                             "\xff",
                                             "\x80",
                                             "img",
                                             "IMG_",
                                             "12345678901234567890",
                                             "\xe2\x82\xac"};
    std::mt19937 random(20240611);
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(0, 6);
    const auto name = [&] {
        std::string text;
        for (int n = length(random); n > 0; --n) {
            text += pieces[piece(random)];
        }
        return text;
    };
    std::vector<std::string> names;
    for (int i = 0; i < 3000; ++i) {
        names.push_back(name());
    }
    // Neighbours share most of their text, as names in one folder do.
    for (int i = 0; i < 3000; ++i) {
        names.push_back(names[static_cast<std::size_t>(i)] + name());
    }
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        ExpectSameOrder(names[i], names[i + 1]);
        ExpectSameOrder(names[i], names[(i * 7919) % names.size()]);
    }
}

TEST(LogicalKey, LongNumbersAndLongRunsOfZeros) {
    // A key spends one byte on a length or a count of zeros below 255 and five above: the
    // texts on both sides of that step must still sort as the comparison has them.
    std::vector<std::string> names;
    for (std::size_t digits : {1u, 254u, 255u, 256u, 300u}) {
        names.push_back("a" + std::string(digits, '7'));
        names.push_back("a" + std::string(digits - 1, '7') + "8");
        names.push_back("a" + std::string(digits, '0') + "7");
        names.push_back("a" + std::string(digits, '0') + "7b");
        names.push_back("a7" + std::string(digits, '0'));
        names.push_back("a" + std::string(digits, '9') + "x" + std::string(digits, '0') + "1");
    }
    for (const auto& a : names) {
        for (const auto& b : names) {
            ExpectSameOrder(a, b);
        }
    }
}

TEST(LogicalKey, EqualOnlyWhereTheComparisonFindsNoDifference) {
    EXPECT_EQ(Key("IMG_0001"), Key("img_0001"));
    EXPECT_NE(Key("IMG_1"), Key("IMG_01"));
    EXPECT_NE(Key("a"), Key("a "));
    EXPECT_NE(Key("2"), Key("a"));
    EXPECT_EQ(Key(""), Key(""));
}

}  // namespace
}  // namespace orvanta::shell

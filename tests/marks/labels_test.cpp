#include "marks/labels.h"

#include <gtest/gtest.h>

#include "settings/settings.h"

namespace orvanta::marks {
namespace {

struct LabelCase {
    const char* text;
    std::uint32_t convention;
    std::int32_t expected;
};

void PrintTo(const LabelCase& c, std::ostream* os) {
    *os << '"' << c.text << "\" under " << c.convention;
}

class LabelIndexOf : public testing::TestWithParam<LabelCase> {};

TEST_P(LabelIndexOf, Text) {
    EXPECT_EQ(LabelIndexFromName(GetParam().text, GetParam().convention), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Names, LabelIndexOf,
    testing::Values(LabelCase{"", 0, -1}, LabelCase{"Red", 0, 1}, LabelCase{"red", 2, 1},
                    LabelCase{"Grey", 2, 9}, LabelCase{"Grey", 0, -1}, LabelCase{"GRAY", 2, 9},
                    LabelCase{"Yellow", 0, 2}, LabelCase{"Yellow", 1, 3}, LabelCase{"Yellow", 2, 7},
                    LabelCase{"Orange", 0, -1}, LabelCase{"Pink", 1, 9}, LabelCase{"Brown", 1, -1},
                    LabelCase{"to do", 0, 5}, LabelCase{"Approved", 2, 3}, LabelCase{"5", 0, 5},
                    LabelCase{"6", 0, -1}, LabelCase{"6", 1, 6}, LabelCase{"9 stars", 2, 9},
                    LabelCase{"10", 1, -1}, LabelCase{"0", 1, -1}, LabelCase{"Mauve", 1, -1},
                    LabelCase{"Red", 3, -1}));

TEST(LabelName, EveryNameReadsBackAsItsIndex) {
    for (std::uint32_t convention = 0; convention < 3; ++convention) {
        for (std::int32_t index = 1; index <= 9; ++index) {
            const auto name = LabelName(index, convention);
            if (convention == 0 && index > 5) {
                EXPECT_EQ(name, "");
            } else {
                EXPECT_EQ(LabelIndexFromName(name, convention), index) << name;
            }
        }
    }
    EXPECT_EQ(LabelName(2, 1), "Orange");
    EXPECT_EQ(LabelName(0, 1), "");
    EXPECT_EQ(LabelName(10, 1), "");
}

TEST(LabelIndexFromName, FollowsTheCurrentConvention) {
    settings::LabellingConvention.Set(2);
    EXPECT_EQ(LabelIndexFromName("Grey"), 9);
    settings::LabellingConvention.Set(0);
    EXPECT_EQ(LabelIndexFromName("Grey"), -1);
    settings::LabellingConvention.ResetToDefault();
}

}  // namespace
}  // namespace orvanta::marks

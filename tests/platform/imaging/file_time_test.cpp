#include "platform/imaging/file_time.h"

#include <gtest/gtest.h>

namespace orvanta::imaging {

// Test names for the refused field sets; gtest finds it beside CivilTime.
void PrintTo(const CivilTime& t, std::ostream* os) {
    *os << t.year << '-' << t.month << '-' << t.day << ' ' << t.hour << ':' << t.minute << ':'
        << t.second << '.' << t.millisecond;
}

namespace {

TEST(FileTime, CountsFrom1601) {
    EXPECT_EQ(FileTimeFromCivil({1601, 1, 1, 0, 0, 0, 0})->ticks, 0u);
    // The Unix epoch, as every FILETIME converter knows it.
    EXPECT_EQ(FileTimeFromCivil({1970, 1, 1, 0, 0, 0, 0})->ticks, 116444736000000000u);
    EXPECT_EQ(FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 250})->ticks,
              FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0})->ticks + 2'500'000u);
}

TEST(FileTime, RoundTripsThroughCivilFields) {
    for (const CivilTime t :
         {CivilTime{1601, 1, 1, 0, 0, 0, 0}, CivilTime{2000, 2, 29, 23, 59, 59, 999},
          CivilTime{2100, 12, 31, 12, 0, 1, 0}, CivilTime{30827, 12, 31, 23, 59, 59, 0}}) {
        const auto time = FileTimeFromCivil(t);
        ASSERT_TRUE(time);
        const CivilTime back = CivilFromFileTime(*time);
        EXPECT_EQ(back.year, t.year);
        EXPECT_EQ(back.month, t.month);
        EXPECT_EQ(back.day, t.day);
        EXPECT_EQ(back.hour, t.hour);
        EXPECT_EQ(back.minute, t.minute);
        EXPECT_EQ(back.second, t.second);
        EXPECT_EQ(back.millisecond, t.millisecond);
    }
}

class FileTimeRefuses : public testing::TestWithParam<CivilTime> {};

TEST_P(FileTimeRefuses, FieldsOutOfRange) {
    EXPECT_FALSE(FileTimeFromCivil(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, FileTimeRefuses,
    testing::Values(CivilTime{1600, 12, 31, 0, 0, 0, 0}, CivilTime{30828, 1, 1, 0, 0, 0, 0},
                    CivilTime{2009, 0, 1, 0, 0, 0, 0}, CivilTime{2009, 13, 1, 0, 0, 0, 0},
                    CivilTime{2009, 2, 29, 0, 0, 0, 0}, CivilTime{1900, 2, 29, 0, 0, 0, 0},
                    CivilTime{2009, 4, 31, 0, 0, 0, 0}, CivilTime{2009, 1, 0, 0, 0, 0, 0},
                    CivilTime{2009, 1, 1, 24, 0, 0, 0}, CivilTime{2009, 1, 1, 0, 60, 0, 0},
                    CivilTime{2009, 1, 1, 0, 0, 60, 0}, CivilTime{2009, 1, 1, 0, 0, 0, 1000},
                    CivilTime{2009, 1, 1, -1, 0, 0, 0}));

TEST(FileTime, FormatsAsIso8601) {
    EXPECT_EQ(FormatIso8601(*FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0})),
              "2009-03-14T15:09:26");
    EXPECT_EQ(FormatIso8601(*FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 5})),
              "2009-03-14T15:09:26.005");
}

}  // namespace
}  // namespace orvanta::imaging

#include "metadata/metadata_values.h"

#include <gtest/gtest.h>

namespace orvanta::metadata {
namespace {

using imaging::MetadataValue;
using imaging::PackedRational;

struct RationalCase {
    MetadataValue value;
    double expected;
};

void PrintTo(const RationalCase& c, std::ostream* os) {
    *os << c.expected;
}

class RationalAsDoubleOf : public testing::TestWithParam<RationalCase> {};

TEST_P(RationalAsDoubleOf, Value) {
    EXPECT_DOUBLE_EQ(RationalAsDouble(GetParam().value), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, RationalAsDoubleOf,
    testing::Values(RationalCase{std::string("10/1250"), 0.008},
                    RationalCase{std::string("-2/3"), -2.0 / 3},
                    RationalCase{std::string(" 7 / 2"), 3.5}, RationalCase{std::string("28"), 0},
                    RationalCase{std::string("5/0"), 0}, RationalCase{std::string(""), 0},
                    RationalCase{PackedRational::From(28, 10), 2.8},
                    // Both halves are signed: a signed rational's negative numerator.
                    RationalCase{PackedRational::From(static_cast<std::uint32_t>(-1), 3), -1.0 / 3},
                    RationalCase{PackedRational::From(1, 0), 0},
                    RationalCase{std::int64_t{5} | std::int64_t{2} << 32, 2.5},
                    RationalCase{MetadataValue{}, 0},
                    RationalCase{imaging::MetadataBlob{1, 2}, 0}));

struct FractionCase {
    MetadataValue value;
    Fraction expected;
};

void PrintTo(const FractionCase& c, std::ostream* os) {
    *os << c.expected.numerator << '/' << c.expected.denominator;
}

class ExposureFractionOf : public testing::TestWithParam<FractionCase> {};

TEST_P(ExposureFractionOf, ReducesOneWayOnly) {
    EXPECT_EQ(ExposureFraction(GetParam().value), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ExposureFractionOf,
    testing::Values(
        FractionCase{std::string("10/1250"), {1, 125}}, FractionCase{std::string("5/2"), {5, 2}},
        FractionCase{std::string("20/10"), {2, 1}}, FractionCase{std::string("4/6"), {4, 6}},
        FractionCase{std::string("0/5"), {0, 0}}, FractionCase{std::string("5/0"), {0, 0}},
        FractionCase{std::string("1/250"), {1, 250}}, FractionCase{std::string("30"), {0, 0}},
        FractionCase{PackedRational::From(10, 5000), {1, 500}},
        FractionCase{PackedRational::From(0x80000000u, 0xFFFFFFFFu), {-2147483647 - 1, -1}}));

TEST(Apex, ShutterSpeedSevenIsOneOver128) {
    const auto time = ExposureFromShutterSpeed(7);
    ASSERT_TRUE(time);
    EXPECT_DOUBLE_EQ(time->seconds, 1.0 / 128);
    EXPECT_EQ(time->fraction, (Fraction{1, 128}));
    // Between whole stops the fraction's denominator is 2^Tv cut to a whole number.
    EXPECT_EQ(ExposureFromShutterSpeed(6.95)->fraction, (Fraction{1, 123}));
    EXPECT_FALSE(ExposureFromShutterSpeed(5000));
    EXPECT_FALSE(ExposureFromShutterSpeed(-5000));
}

TEST(Apex, ApertureFiveIsF566) {
    EXPECT_NEAR(*FNumberFromAperture(5), 5.657, 0.001);
    EXPECT_DOUBLE_EQ(*FNumberFromAperture(2), 2);
    EXPECT_FALSE(FNumberFromAperture(1e6));
}

TEST(DateText, ExifAndXmpFormsGiveTheSameTime) {
    const auto exif = ParseDateText("2009:03:14 15:09:26");
    const auto xmp = ParseDateText("2009-03-14T15:09:26+01:00");
    ASSERT_TRUE(exif);
    EXPECT_EQ(exif, xmp);
    EXPECT_EQ(exif, imaging::FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0}));
    EXPECT_EQ(ParseDateText("2009-03-14T15:09:26.123Z"), exif);
}

class DateTextRefuses : public testing::TestWithParam<const char*> {};

TEST_P(DateTextRefuses, Text) {
    EXPECT_FALSE(ParseDateText(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Forms, DateTextRefuses,
                         testing::Values("", "2009:03:14 15:09", "2009-03-14T15:09:2",
                                         "0000:00:00 00:00:00", "    :  :     :  :  ",
                                         "2009:02:30 10:00:00", "2009:03:14 25:00:00"));

TEST(DecimalValue, ReadsLeadingDigitsOnly) {
    EXPECT_EQ(DecimalValue("  42abc"), 42);
    EXPECT_EQ(DecimalValue("-7"), -7);
    EXPECT_EQ(DecimalValue("+8"), 8);
    EXPECT_EQ(DecimalValue("x1"), 0);
    EXPECT_EQ(DecimalValue("99999999999"), 2147483647);
    EXPECT_EQ(DecimalValue("-99999999999"), -2147483647 - 1);
}

TEST(TrimWhiteSpace, TrimsUnicodeSpacesAtBothEnds) {
    EXPECT_EQ(TrimWhiteSpace("  NIKON D300\t\r\n"), "NIKON D300");
    EXPECT_EQ(TrimWhiteSpace("\xC2\xA0"
                             "a b"
                             "\xE3\x80\x80"),
              "a b");
    EXPECT_EQ(TrimWhiteSpace(" \t "), "");
    EXPECT_EQ(TrimWhiteSpace("\xC3\xA9t\xC3\xA9"), "\xC3\xA9t\xC3\xA9");
}

}  // namespace
}  // namespace orvanta::metadata

// The conversions the metadata reader applies to the values it queries: rationals (as
// "n/d" text or packed into two 32-bit halves), the reduced exposure-time fraction, the
// APEX shutter-speed and aperture values, decimal text and the date parser shared by the
// EXIF and XMP date forms. Pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/imaging/metadata_value.h"

namespace orvanta::metadata {

// Leading blanks, an optional sign and the digits that follow, as far as they go; 0 when
// there are none. Clamped to the 32-bit range.
std::int32_t DecimalValue(std::string_view text);

// "n/d" text gives n / d (text without "/" gives 0); any other value is two 32-bit halves,
// the low the signed numerator and the high the signed denominator. A zero denominator
// gives 0.
double RationalAsDouble(const imaging::MetadataValue& value);

struct Fraction {
    std::int32_t numerator = 0;
    std::int32_t denominator = 0;
    constexpr bool operator==(const Fraction&) const = default;
};

// The exposure time as a fraction reduced one way only: 10/1250 becomes 1/125, 20/10
// becomes 2/1, 5/2 stays 5/2. 0/0 when either part is 0.
Fraction ExposureFraction(const imaging::MetadataValue& value);

struct ExposureTime {
    double seconds = 0;
    Fraction fraction;
};
// From an APEX shutter-speed value Tv: 1 / 2^Tv seconds, as 1 / (2^Tv truncated). nullopt
// for a Tv so large that the time does not fit.
std::optional<ExposureTime> ExposureFromShutterSpeed(double tv);
// From an APEX aperture value Av: f / 2^(Av / 2). nullopt when it does not fit.
std::optional<double> FNumberFromAperture(double av);

// "2009:03:14 15:09:26" and "2009-03-14T15:09:26+01:00" alike: the fields at positions 0,
// 5, 8, 11, 14 and 17, each ended at the next separator position whatever stands there,
// read as decimal numbers. Text shorter than 19 characters, or fields out of range, give
// nullopt. A time-zone suffix is ignored.
std::optional<imaging::FileTime> ParseDateText(std::string_view text);

// `text` without the white space (ASCII and Unicode spaces, line and paragraph separators)
// at either end.
std::string TrimWhiteSpace(std::string_view text);

}  // namespace orvanta::metadata

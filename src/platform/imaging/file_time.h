// FILETIME-style times: 100-nanosecond intervals since 1601-01-01 00:00, the form in which
// the metadata reader hands out dates and the list sorts by them. Dates from pictures are
// kept as the camera wrote them (its local time, no time-zone conversion). Pure functions
// over immutable values; thread-safe.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace orvanta::imaging {

struct FileTime {
    std::uint64_t ticks = 0;
    constexpr auto operator<=>(const FileTime&) const = default;
};

// A calendar time broken into fields, as a date parser fills it.
struct CivilTime {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
};

inline constexpr std::uint64_t kTicksPerSecond = 10'000'000;

// nullopt for fields out of range: a year outside 1601..30827, a month outside 1..12, a day
// past the end of its month, an hour, minute, second or millisecond past its limit.
std::optional<FileTime> FileTimeFromCivil(const CivilTime& time);
CivilTime CivilFromFileTime(FileTime time);
// "2009-03-14T15:09:26" (milliseconds appended as ".250" when there are any).
std::string FormatIso8601(FileTime time);

}  // namespace orvanta::imaging

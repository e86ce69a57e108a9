#include "platform/imaging/file_time.h"

#include <cstdio>

namespace orvanta::imaging {

namespace {

// Days from 1970-01-01 to the given date of the proleptic Gregorian calendar (the
// era-based algorithm: exact for every date the FILETIME range holds).
constexpr std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

constexpr std::int64_t kDaysFrom1601To1970 = -DaysFromCivil(1601, 1, 1);

constexpr bool IsLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

constexpr int DaysInMonth(int year, int month) {
    constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

}  // namespace

std::optional<FileTime> FileTimeFromCivil(const CivilTime& t) {
    if (t.year < 1601 || t.year > 30827 || t.month < 1 || t.month > 12 || t.day < 1 ||
        t.day > DaysInMonth(t.year, t.month) || t.hour < 0 || t.hour > 23 || t.minute < 0 ||
        t.minute > 59 || t.second < 0 || t.second > 59 || t.millisecond < 0 ||
        t.millisecond > 999) {
        return std::nullopt;
    }
    const std::int64_t days =
        DaysFromCivil(t.year, static_cast<unsigned>(t.month), static_cast<unsigned>(t.day)) +
        kDaysFrom1601To1970;
    const std::int64_t seconds = days * 86400 + t.hour * 3600 + t.minute * 60 + t.second;
    return FileTime{static_cast<std::uint64_t>(seconds) * kTicksPerSecond +
                    static_cast<std::uint64_t>(t.millisecond) * 10'000};
}

CivilTime CivilFromFileTime(FileTime time) {
    const std::uint64_t totalSeconds = time.ticks / kTicksPerSecond;
    CivilTime out;
    out.millisecond = static_cast<int>(time.ticks % kTicksPerSecond / 10'000);
    const auto secondOfDay = static_cast<int>(totalSeconds % 86400);
    out.hour = secondOfDay / 3600;
    out.minute = secondOfDay / 60 % 60;
    out.second = secondOfDay % 60;
    // Inverse of DaysFromCivil, counted from 1970.
    const std::int64_t z =
        static_cast<std::int64_t>(totalSeconds / 86400) - kDaysFrom1601To1970 + 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const auto doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    out.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    out.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    out.year = static_cast<int>(static_cast<std::int64_t>(yoe) + era * 400 + (out.month <= 2));
    return out;
}

std::string FormatIso8601(FileTime time) {
    const CivilTime t = CivilFromFileTime(time);
    char text[40];
    if (t.millisecond != 0) {
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", t.year, t.month,
                      t.day, t.hour, t.minute, t.second, t.millisecond);
    } else {
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", t.year, t.month, t.day,
                      t.hour, t.minute, t.second);
    }
    return text;
}

}  // namespace orvanta::imaging

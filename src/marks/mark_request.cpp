#include "marks/mark_request.h"

#include <chrono>
#include <cstdio>

namespace orvanta::marks {

#ifndef ORVANTA_VERSION_TEXT
#define ORVANTA_VERSION_TEXT "0.0.0"
#endif

MarkTime MarkTimeNow() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const auto days = floor<std::chrono::days>(now);
    const year_month_day date{days};
    const hh_mm_ss clock{floor<milliseconds>(now - days)};
    MarkTime time;
    time.year = static_cast<int>(date.year());
    time.month = static_cast<int>(static_cast<unsigned>(date.month()));
    time.day = static_cast<int>(static_cast<unsigned>(date.day()));
    time.hour = static_cast<int>(clock.hours().count());
    time.minute = static_cast<int>(clock.minutes().count());
    time.second = static_cast<int>(clock.seconds().count());
    time.hundredths = static_cast<int>(clock.subseconds().count() / 10);
    return time;
}

std::string MetadataDateText(const MarkTime& time) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%02d+00:00", time.year,
                  time.month, time.day, time.hour, time.minute, time.second, time.hundredths);
    return text;
}

int PercentFromStars(std::int64_t stars) {
    switch (stars) {
    case 1: return 1;
    case 2: return 25;
    case 3: return 50;
    case 4: return 75;
    case 5: return 99;
    default: return 0;
    }
}

std::string_view ToolkitText() {
    // The version has four parts; the build gives three.
    static const std::string text =
        std::string("Orvanta ") + ORVANTA_VERSION_TEXT + ".0 (https://orvanta.org)";
    return text;
}

}  // namespace orvanta::marks

// A request to store one culling mark, as a digit key queues it for the mark writer, and the
// pieces every store writes the same way: the request's UTC time and its metadata-date text,
// stars as a percent rating, and the toolkit text that names this program in what it writes.
// Plain values and pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvanta::list {
struct PictureEntry;
}

namespace orvanta::marks {

struct MarkRequest {
    std::uint32_t value = 0;       // stars 0..5, label index 0..9 or urgency 0..9; 0 clears
    bool isLabel = false;
    std::uint32_t convention = 0;  // the labelling convention when the request was made
    bool isUrgency = false;
    list::PictureEntry* entry = nullptr;  // none when orvanta-cli writes a file directly

    bool IsRating() const { return !isLabel && !isUrgency; }
};

// A UTC time to the hundredth of a second, read once per request and stamped on every store.
struct MarkTime {
    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int hundredths = 0;
};

MarkTime MarkTimeNow();

// "2026-11-23T14:05:09.37+00:00"
std::string MetadataDateText(const MarkTime& time);

// The percent rating stored beside the stars: 1 -> 1, 2 -> 25, 3 -> 50, 4 -> 75, 5 -> 99,
// anything else -> 0.
int PercentFromStars(std::int64_t stars);

// "Orvanta 0.1.0.0 (https://orvanta.org)": x:xmptk of a sidecar, creator tool and software
// of the embedded writer.
std::string_view ToolkitText();

}  // namespace orvanta::marks

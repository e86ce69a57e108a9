#include "marks/set_mark.h"

#include <chrono>

#include "list/picture_list.h"
#include "marks/mark_writer.h"
#include "settings/settings.h"

namespace orvanta::marks {

namespace {

constexpr int kAllSwitchedOff = 10078;
constexpr int kLabelsOff = 10079;
constexpr int kFiveColours = 10080;
constexpr int kUrgencyWithNineColours = 10081;
constexpr int kUrgencyOff = 10082;
constexpr int kRatingOff = 10083;
constexpr int kTooManyStars = 10084;

// FILETIME of the Unix epoch.
constexpr std::uint64_t kUnixEpoch = 116'444'736'000'000'000ULL;

}  // namespace

std::uint64_t FileTimeNow() {
    using namespace std::chrono;
    const auto ticks = duration_cast<duration<std::int64_t, std::ratio<1, 10'000'000>>>(
                           system_clock::now().time_since_epoch())
                           .count();
    return kUnixEpoch + static_cast<std::uint64_t>(ticks);
}

MarkOutcome SetMark(list::PictureList& list, MarkWriter* writer, std::uint32_t digit, MarkKeys keys,
                    std::uint64_t now) {
    MarkOutcome outcome;
    if (list.Count() == 0) {
        return outcome;
    }
    const bool rating = settings::EnableRating.On();
    const bool labelling = settings::EnableLabelling.On();
    const bool urgency = settings::EnableUrgency.On();
    const std::uint32_t convention = settings::LabellingConvention.Get();
    if (!rating && !labelling && !urgency) {
        outcome.messageId = kAllSwitchedOff;
        return outcome;
    }
    if (keys.shift) {
        if (!labelling) {
            outcome.messageId = kLabelsOff;
            return outcome;
        }
        if (convention == 0 && digit >= 6) {
            outcome.messageId = kFiveColours;
            return outcome;
        }
    }
    if (keys.ctrl && !keys.shift && !urgency) {
        outcome.messageId = labelling && (convention == 1 || convention == 2)
                                ? kUrgencyWithNineColours
                                : kUrgencyOff;
        return outcome;
    }
    // Labels and urgency ride on the rating switch too.
    if (!rating) {
        outcome.messageId = kRatingOff;
        return outcome;
    }
    const bool plain = !keys.shift && !keys.ctrl;
    if (plain && digit >= 6) {
        outcome.messageId = kTooManyStars;
        return outcome;
    }
    list::PictureEntry* entry = list.Current();
    if (entry == nullptr) {
        outcome.beep = true;
        return outcome;
    }
    const std::int32_t current = keys.shift  ? entry->marks.label
                                 : keys.ctrl ? entry->marks.urgency
                                             : entry->marks.rating;
    const bool advances = plain && settings::EnableRatingAutoAdvance.On();
    if (current == static_cast<std::int32_t>(digit) && now >= entry->lastMarkedTime &&
        now - entry->lastMarkedTime <= kRepeatWindow) {
        outcome.advance = advances;
        return outcome;
    }
    entry->lastMarkedTime = now;
    if (QueueMarkWrite(list, writer, entry, digit, keys.shift, convention, keys.ctrl && !keys.shift)
            .Failed()) {
        return outcome;
    }
    outcome.queued = true;
    outcome.advance = advances;
    return outcome;
}

}  // namespace orvanta::marks

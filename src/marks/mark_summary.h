// The short text that sums up the marks of the current picture ("Rated 3, Label 2"), shown
// and spoken on request. Pure function; thread-safe.
#pragma once

#include <string>

#include "list/picture_entry.h"

namespace orvanta::marks {

// "No image!" without a current picture (nullptr); otherwise "Rated %d", "Label %d" and
// "Urgency %d" for the marks of 1 or more, joined by ", " in that order, or "Unrated".
std::string MarkSummaryText(const list::CullingMarks* marks);

}  // namespace orvanta::marks

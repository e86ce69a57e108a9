#include "marks/mark_summary.h"

namespace orvanta::marks {

std::string MarkSummaryText(const list::CullingMarks* marks) {
    if (!marks) {
        return "No image!";
    }
    std::string text;
    auto add = [&](const char* word, std::int32_t value) {
        if (value < 1) {
            return;
        }
        if (!text.empty()) {
            text += ", ";
        }
        text += word;
        text += std::to_string(value);
    };
    add("Rated ", marks->rating);
    add("Label ", marks->label);
    add("Urgency ", marks->urgency);
    return text.empty() ? "Unrated" : text;
}

}  // namespace orvanta::marks

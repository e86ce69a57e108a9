#include "marks/labels.h"

#include <array>

#include "platform/text/unicode.h"
#include "settings/settings.h"

namespace orvanta::marks {

namespace {

using Column = std::array<std::string_view, 10>;  // index 0 unused

constexpr std::array<Column, 3> kLabelNames = {{
    {"", "Red", "Yellow", "Green", "Blue", "Purple", "", "", "", ""},
    {"", "Red", "Orange", "Yellow", "Green", "Cyan", "Blue", "Purple", "Magenta", "Pink"},
    {"", "Red", "Green", "Blue", "Brown", "Magenta", "Orange", "Yellow", "Cyan", "Gray"},
}};

// Names other tools give the first five labels, the same under every convention.
constexpr std::array<std::string_view, 5> kWorkflowNames = {"Select", "Second", "Approved",
                                                            "Review", "To Do"};

}  // namespace

std::string_view LabelName(std::int32_t index, std::uint32_t convention) {
    if (convention >= kLabelNames.size() || index < 1 || index > 9) {
        return {};
    }
    return kLabelNames[convention][static_cast<std::size_t>(index)];
}

std::int32_t LabelIndexFromName(std::string_view text, std::uint32_t convention) {
    if (text.empty() || convention >= kLabelNames.size()) {
        return -1;
    }
    if (text.front() >= '1' && text.front() <= '9') {
        std::int64_t number = 0;
        for (char c : text) {
            if (c < '0' || c > '9' || number > 1000) {
                break;
            }
            number = number * 10 + (c - '0');
        }
        const std::int64_t highest = convention == 0 ? 5 : 9;
        return number >= 1 && number <= highest ? static_cast<std::int32_t>(number) : -1;
    }
    const std::string_view colour = text::EqualsNoCase(text, "Grey") ? "Gray" : text;
    const Column& column = kLabelNames[convention];
    for (std::size_t i = 1; i < column.size(); ++i) {
        if (!column[i].empty() && text::EqualsNoCase(column[i], colour)) {
            return static_cast<std::int32_t>(i);
        }
    }
    for (std::size_t i = 0; i < kWorkflowNames.size(); ++i) {
        if (text::EqualsNoCase(kWorkflowNames[i], text)) {
            return static_cast<std::int32_t>(i + 1);
        }
    }
    return -1;
}

std::int32_t LabelIndexFromName(std::string_view text) {
    return LabelIndexFromName(text, settings::LabellingConvention.Get());
}

}  // namespace orvanta::marks

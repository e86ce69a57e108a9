#include "marks/mark_summary.h"

#include <gtest/gtest.h>

namespace orvanta::marks {
namespace {

list::CullingMarks Marks(int rating, int label, int urgency) {
    list::CullingMarks marks;
    marks.rating = rating;
    marks.label = label;
    marks.urgency = urgency;
    return marks;
}

TEST(MarkSummary, NamesTheMarksThatAreSet) {
    EXPECT_EQ(MarkSummaryText(nullptr), "No image!");
    auto text = [](int r, int l, int u) {
        auto marks = Marks(r, l, u);
        return MarkSummaryText(&marks);
    };
    EXPECT_EQ(text(3, -1, -1), "Rated 3");
    EXPECT_EQ(text(0, 2, 1), "Label 2, Urgency 1");
    EXPECT_EQ(text(5, 9, 4), "Rated 5, Label 9, Urgency 4");
    // Cleared (0) and unread (-1) marks count as none.
    EXPECT_EQ(text(0, 0, 0), "Unrated");
    EXPECT_EQ(text(-1, -1, -1), "Unrated");
    EXPECT_EQ(text(-1, -1, 7), "Urgency 7");
}

}  // namespace
}  // namespace orvanta::marks

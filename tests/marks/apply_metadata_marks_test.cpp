// Taking the marks of a picture's metadata into its entry.
#include "marks/apply_metadata_marks.h"

#include <gtest/gtest.h>

#include "list/picture_entry.h"
#include "metadata/picture_metadata.h"
#include "settings/settings.h"

namespace orvanta::marks {
namespace {

struct MarksCase {
    std::int16_t rating, label, urgency;
    std::int32_t wantRating, wantLabel, wantUrgency;
};

class ApplyMarks : public testing::TestWithParam<MarksCase> {
protected:
    void TearDown() override { settings::LabellingConvention.ResetToDefault(); }
};

TEST_P(ApplyMarks, TakesValuesInRangeAndUnsetsTheRest) {
    const MarksCase& c = GetParam();
    settings::LabellingConvention.Set(2);
    metadata::PictureMetadata record;
    record.validFields = metadata::ValidField::kMarks;
    record.rating = c.rating;
    record.label = c.label;
    record.urgency = c.urgency;
    record.ratingPercent = 99;  // never used for the entry
    list::PictureEntry entry;
    entry.marks = {4, 4, 0, 4};
    ApplyMetadataMarks(entry, record);
    EXPECT_EQ(entry.marks.rating, c.wantRating);
    EXPECT_EQ(entry.marks.label, c.wantLabel);
    EXPECT_EQ(entry.marks.urgency, c.wantUrgency);
    // The convention follows a label that was read, and is left alone otherwise.
    EXPECT_EQ(entry.marks.labellingConvention, c.wantLabel == -1 ? 0 : 2);
}

INSTANTIATE_TEST_SUITE_P(Cases, ApplyMarks,
                         testing::Values(MarksCase{5, 9, 9, 5, 9, 9}, MarksCase{1, 1, 1, 1, 1, 1},
                                         MarksCase{0, 0, 0, -1, -1, -1},
                                         MarksCase{6, 10, 10, -1, -1, -1},
                                         MarksCase{-1, -1, -1, -1, -1, -1},
                                         MarksCase{3, -1, 2, 3, -1, 2}));

TEST(ApplyMarksWithoutTheBit, LeavesTheEntryAlone) {
    metadata::PictureMetadata record;
    record.validFields = metadata::ValidField::kHistogram;
    record.rating = 5;
    list::PictureEntry entry;
    ApplyMetadataMarks(entry, record);
    EXPECT_EQ(entry.marks.rating, -1);
}

}  // namespace
}  // namespace orvanta::marks

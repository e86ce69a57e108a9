#include "marks/set_mark.h"

#include <gmock/gmock.h>

#include "mark_fakes.h"

namespace orvanta::marks {
namespace {

using test::MarksTest;

struct Refusal {
    const char* name;
    bool rating, labelling, urgency;
    std::uint32_t convention;
    std::uint32_t digit;
    bool shift, ctrl;
    int expected;  // 0: accepted
};

void PrintTo(const Refusal& c, std::ostream* os) {
    *os << c.name;
}

class SetMarkRefusal : public MarksTest, public testing::WithParamInterface<Refusal> {};

TEST_P(SetMarkRefusal, ShowsTheTextOrQueues) {
    const Refusal& c = GetParam();
    Touch("a.jpg");
    settings::EmbedMetadata.Set(1);
    Open();
    settings::EnableRating.Set(c.rating);
    settings::EnableLabelling.Set(c.labelling);
    settings::EnableUrgency.Set(c.urgency);
    settings::LabellingConvention.Set(c.convention);
    const MarkOutcome outcome =
        SetMark(*list_, writer_.get(), c.digit, {c.shift, c.ctrl}, FileTimeNow());
    EXPECT_EQ(outcome.messageId, c.expected);
    EXPECT_EQ(outcome.queued, c.expected == 0);
    Drain();
    if (c.expected != 0) {
        EXPECT_TRUE(stores_.Calls().empty());
        EXPECT_EQ(list_->Current()->marks.rating, -1);
        EXPECT_EQ(list_->Current()->marks.label, -1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Keys, SetMarkRefusal,
    testing::Values(Refusal{"AllOff", false, false, false, 0, 3, false, false, 10078},
                    Refusal{"LabelsOff", true, false, true, 0, 3, true, false, 10079},
                    Refusal{"Shift6FiveColours", true, true, false, 0, 6, true, false, 10080},
                    Refusal{"Shift6NineColours", true, true, false, 1, 6, true, false, 0},
                    Refusal{"UrgencyOffNineColours", true, true, false, 2, 2, false, true, 10081},
                    Refusal{"UrgencyOffFiveColours", true, true, false, 0, 2, false, true, 10082},
                    Refusal{"UrgencyOffNoLabels", true, false, false, 1, 2, false, true, 10082},
                    Refusal{"LabelWithoutRating", false, true, true, 1, 2, true, false, 10083},
                    Refusal{"UrgencyWithoutRating", false, true, true, 1, 2, false, true, 10083},
                    Refusal{"SixStars", true, false, false, 0, 6, false, false, 10084},
                    Refusal{"UrgencyNine", true, false, true, 0, 9, false, true, 0},
                    Refusal{"ShiftCtrlIsALabel", true, true, false, 1, 7, true, true, 0}),
    [](const testing::TestParamInfo<Refusal>& info) { return info.param.name; });

TEST_F(MarksTest, ShiftSixUnderNineColoursQueuesBlue) {
    Touch("a.jpg");
    settings::EnableLabelling.Set(1);
    settings::LabellingConvention.Set(1);
    settings::CreateSidecarFiles.Set(1);
    Open();
    ASSERT_TRUE(SetMark(*list_, writer_.get(), 6, {true, false}, FileTimeNow()).queued);
    Drain();
    const auto calls = stores_.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(calls[0].request.isLabel);
    EXPECT_FALSE(calls[0].request.isUrgency);
    EXPECT_EQ(calls[0].request.value, 6u);
    EXPECT_EQ(calls[0].request.convention, 1u);
    EXPECT_EQ(list_->Current()->marks.label, 6);
    EXPECT_EQ(list_->Current()->marks.labellingConvention, 1);
    EXPECT_EQ(list_->Current()->marks.rating, -1);
}

TEST_F(MarksTest, RepeatWithinASecondWritesOnceButStillAdvances) {
    Touch("a.jpg");
    settings::CreateSidecarFiles.Set(1);
    settings::EnableRatingAutoAdvance.Set(1);
    settings::EnableLabelling.Set(1);
    Open();
    const std::uint64_t now = FileTimeNow();
    MarkOutcome first = SetMark(*list_, writer_.get(), 3, {}, now);
    MarkOutcome again = SetMark(*list_, writer_.get(), 3, {}, now + kRepeatWindow);
    EXPECT_TRUE(first.queued && first.advance);
    EXPECT_FALSE(again.queued);
    EXPECT_TRUE(again.advance);
    // Past the second, or another value, is written again.
    EXPECT_TRUE(SetMark(*list_, writer_.get(), 3, {}, now + 2 * kRepeatWindow + 1).queued);
    EXPECT_TRUE(SetMark(*list_, writer_.get(), 4, {}, now + 2 * kRepeatWindow + 2).queued);
    // A label never advances, and its repeat is judged on the label.
    const MarkOutcome label =
        SetMark(*list_, writer_.get(), 4, {true, false}, now + 2 * kRepeatWindow + 3);
    EXPECT_TRUE(label.queued);
    EXPECT_FALSE(label.advance);
    Drain();
    EXPECT_EQ(stores_.Calls().size(), 4u);
    settings::EnableRatingAutoAdvance.Set(0);
    EXPECT_FALSE(SetMark(*list_, writer_.get(), 5, {}, now + 4 * kRepeatWindow).advance);
}

TEST_F(MarksTest, EveryFrameOfAMultiFrameFileTakesTheMark) {
    settings::EnableMultiFrameSupport.Set(1);
    Touch("scan.tif", orvanta::test::MakeMultiPageTiff(3, 8, 8));
    Touch("z.jpg");
    settings::EmbedMetadata.Set(1);
    Open();
    ASSERT_EQ(list_->Count(), 4u);
    list_->Next();  // the second frame
    ASSERT_TRUE(list_->Current()->IsFrame());
    ASSERT_TRUE(SetMark(*list_, writer_.get(), 2, {}, FileTimeNow()).queued);
    Drain();
    std::vector<std::int32_t> ratings;
    list_->ForEach([&](const list::PictureEntry& entry) { ratings.push_back(entry.marks.rating); });
    EXPECT_EQ(ratings, (std::vector<std::int32_t>{2, 2, 2, -1}));
    // The file is written once, not once per frame.
    EXPECT_EQ(stores_.Calls().size(), 1u);
}

TEST_F(MarksTest, AnEmptyListIgnoresTheKey) {
    Open();
    const MarkOutcome outcome = SetMark(*list_, writer_.get(), 3, {}, FileTimeNow());
    EXPECT_EQ(outcome.messageId, 0);
    EXPECT_FALSE(outcome.beep || outcome.queued);
}

}  // namespace
}  // namespace orvanta::marks

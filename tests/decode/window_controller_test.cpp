// The window controller: shrinking under memory pressure, giving the steps back one side at
// a time, growing from the mean picture size, and the sizes it averages.
#include "decode/window_controller.h"

#include <gtest/gtest.h>

namespace orvanta::decode {
namespace {

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;
constexpr std::uint32_t kGuide = 32;  // threshold 62: grows at load <= 57, shrinks at >= 67

ControlInput Input(Result result, std::uint32_t loadPercent, std::uint64_t meanSize = 0,
                   std::size_t cached = 0) {
    ControlInput input;
    input.result = result;
    input.guide = kGuide;
    input.memory.total = 100 * kGiB;
    input.memory.available = (100 - loadPercent) * kGiB;
    input.meanSize = meanSize;
    input.cachedCount = cached;
    return input;
}

TEST(LoadThreshold, RunsFromFiftyToEightySevenPercent) {
    EXPECT_EQ(LoadThreshold(0), 50u);
    EXPECT_EQ(LoadThreshold(32), 62u);
    EXPECT_EQ(LoadThreshold(96), 87u);
    EXPECT_EQ(LoadThreshold(3), 51u);  // 1.17 truncated
}

TEST(SizeRing, AveragesTheLastFourPagesRoundedUp) {
    SizeRing ring;
    EXPECT_EQ(ring.Mean(), 0u);
    ring.Record(1);
    EXPECT_EQ(ring.Mean(), 4096u);
    ring.Record(4096 * 3);
    EXPECT_EQ(ring.Mean(), 4096u * 2);
    for (int i = 0; i < 4; ++i) {
        ring.Record(4096 * 10);
    }
    EXPECT_EQ(ring.Mean(), 4096u * 10);  // the first two fell out
    EXPECT_EQ(ring.Count(), 6u);
}

TEST(WindowController, PressureTakesAStepOffEachSideButKeepsTheLastOne) {
    WindowState state{3, 2};
    state.growCounter = 5;
    ControlOutcome out = ControlWindow(state, Input(S_OK, 67));
    EXPECT_TRUE(out.ok);
    EXPECT_TRUE(out.reschedule);
    EXPECT_EQ(state.ahead, 2);
    EXPECT_EQ(state.behind, 1);
    EXPECT_EQ(state.pendingAhead, 1u);
    EXPECT_EQ(state.pendingBehind, 1u);
    EXPECT_EQ(state.growCounter, 0u);

    // Load alone never takes the last step of a side.
    out = ControlWindow(state, Input(S_OK, 90));
    EXPECT_EQ(state.ahead, 1);
    EXPECT_EQ(state.behind, 1);
    out = ControlWindow(state, Input(S_OK, 90));
    EXPECT_TRUE(out.ok);
    EXPECT_FALSE(out.reschedule);
    EXPECT_EQ(state.ahead, 1);

    // A decode that ran out of memory does, and once nothing is left the controller gives
    // up; a failure of another kind under the same load does not.
    out = ControlWindow(state, Input(E_OUTOFMEMORY, 10));
    EXPECT_TRUE(out.ok);
    EXPECT_EQ(state.ahead, 0);
    EXPECT_EQ(state.behind, 0);
    EXPECT_EQ(state.pendingAhead, 3u);
    EXPECT_EQ(state.pendingBehind, 2u);
    EXPECT_FALSE(ControlWindow(state, Input(D3DERR_OUTOFVIDEOMEMORY, 10)).ok);
    EXPECT_TRUE(ControlWindow(state, Input(E_FAIL, 90)).ok);
}

TEST(WindowController, PendingStepsComeBackAlternatingAheadFirst) {
    WindowState state{0, 0, 2, 3};
    std::vector<std::pair<std::int64_t, std::int64_t>> steps;
    for (int i = 0; i < 5; ++i) {
        const ControlOutcome out = ControlWindow(state, Input(S_OK, 60, 4096, 1));
        EXPECT_TRUE(out.reschedule);
        steps.emplace_back(state.ahead, state.behind);
    }
    // Alternating while both sides have steps; then behind alone.
    const std::vector<std::pair<std::int64_t, std::int64_t>> expected = {
        {1, 0}, {1, 1}, {2, 1}, {2, 2}, {2, 3}};
    EXPECT_EQ(steps, expected);
    EXPECT_FALSE(state.alternate);  // cleared once only one side was pending
    // A failure gives nothing back.
    state = {0, 0, 1, 0};
    EXPECT_FALSE(ControlWindow(state, Input(E_FAIL, 60)).reschedule);
    EXPECT_EQ(state.ahead, 0);
}

TEST(WindowController, GrowsAheadEveryTimeAndBehindEverySecondTime) {
    const std::uint64_t mean = 100 << 20;
    WindowState state{2, 1};
    std::vector<std::pair<std::int64_t, std::int64_t>> steps;
    for (int i = 0; i < 4; ++i) {
        ControlWindow(state, Input(S_OK, 50, mean, 3));
        steps.emplace_back(state.ahead, state.behind);
    }
    const std::vector<std::pair<std::int64_t, std::int64_t>> expected = {
        {3, 1}, {4, 2}, {5, 2}, {6, 3}};
    EXPECT_EQ(steps, expected);
    EXPECT_EQ(state.growCounter, 4u);

    // A load above T - 5 is no growth chance and resets the count.
    EXPECT_FALSE(ControlWindow(state, Input(S_OK, 58, mean, 3)).reschedule);
    EXPECT_EQ(state.growCounter, 0u);
    // Nothing recorded yet: no size to grow by.
    EXPECT_FALSE(ControlWindow(state, Input(S_OK, 50, 0, 3)).reschedule);
}

TEST(WindowController, GrowthNeedsRoomForTheNewPictureAndStaysUnderTheSetting) {
    const std::uint64_t mean = kGiB;  // m = 1.05 GiB
    // 50 GiB free but 48 pictures cached: m + E = 49.05 GiB fits, nothing more after it.
    WindowState state{4, 4};
    state.growCounter = 1;
    ControlWindow(state, Input(S_OK, 50, mean, 48));
    EXPECT_EQ(state.ahead, 5);
    EXPECT_EQ(state.behind, 4);  // after ahead took its share nothing is left for behind
    // With plenty of room, behind still stops one short of the setting.
    state = {16, 15};
    state.growCounter = 1;
    ControlWindow(state, Input(S_OK, 10, 4096, 1));
    EXPECT_EQ(state.ahead, 17);
    EXPECT_EQ(state.behind, 15);  // 16 + 15 + 1 is not below 32
    state = {20, 12};
    EXPECT_FALSE(ControlWindow(state, Input(S_OK, 10, 4096, 1)).reschedule);  // at the setting
}

}  // namespace
}  // namespace orvanta::decode

// The first window from memory and the memory setting, and the size of the worker pool.
#include "decode/window_plan.h"

#include <gtest/gtest.h>

#include "cache_fixture.h"

namespace orvanta::decode {
namespace {

struct InitialCase {
    std::uint32_t guide;
    std::uint64_t availableMiB;
    std::uint32_t downscale;
    std::int64_t ahead;
    std::int64_t behind;
};

class Initial : public testing::TestWithParam<InitialCase> {};

TEST_P(Initial, SplitsTheSmallerBudgetTwoToOne) {
    const InitialCase& c = GetParam();
    const WindowSize size = InitialWindow(c.guide, c.availableMiB, c.downscale);
    EXPECT_EQ(size.ahead, c.ahead);
    EXPECT_EQ(size.behind, c.behind);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Initial,
    testing::Values(
        // n = 32 / 3 = 10.67: ahead round(21.3), behind round(10.7).
        InitialCase{32, 600, 0, 21, 11},
        // Nothing to spend on neighbours: only the current picture.
        InitialCase{0, 600, 0, 0, 0},
        // Memory is the smaller budget: 30 MiB per 1 -> n = 10.
        InitialCase{96, 30, 0, 20, 10},
        // The downscale setting's low 16 bits divide the memory: 600 / 50 = 12 -> n = 4.
        InitialCase{96, 600, 0x00A00032, 8, 4},
        // n = 0.67 rounds to ahead 1 and behind 1; n = 0.33 to ahead 1 and behind 0.
        InitialCase{96, 2, 0, 1, 1}, InitialCase{1, 600, 0, 1, 0}));

TEST(WorkerCount, OneWithoutParallelDecodingElseTheCoresUpToEight) {
    EXPECT_EQ(WorkerCount(true, 32, 4), 1u);
    EXPECT_EQ(WorkerCount(false, 0, 4), 1u);
    EXPECT_EQ(WorkerCount(false, 32, 2), 2u);
    EXPECT_EQ(WorkerCount(false, 32, 64), 8u);
    EXPECT_EQ(WorkerCount(false, 32, 0), 1u);
}

TEST(ClipWindow, BehindsUnusedStepsGoAheadUpToTheLastEntry) {
    // Position 1 of 100: behind 2 cannot be used and goes ahead.
    WindowSize size = ClipWindow({4, 2}, 1, 100, true);
    EXPECT_EQ(size.ahead, 6);
    EXPECT_EQ(size.behind, 0);
    // Position 99 of 100: one step ahead is all there is.
    size = ClipWindow({4, 2}, 99, 100, true);
    EXPECT_EQ(size.ahead, 1);
    EXPECT_EQ(size.behind, 2);
    // Wrapping round: nothing is clipped.
    size = ClipWindow({4, 2}, 1, 100, false);
    EXPECT_EQ(size.ahead, 4);
    EXPECT_EQ(size.behind, 2);
}

class WindowSetting : public decode::test::CacheTest {};

// The cache reads the memory figures and settings it is given.
TEST_F(WindowSetting, ResetWindowUsesTheMemoryFiguresAndSettings) {
    memory_.available = std::uint64_t{600} << 20;
    settings::DownscaleLargeImages.Set(0);
    Open(2, {0, 0});
    cache_->ResetWindow(false);
    EXPECT_EQ(cache_->Window().ahead, 21);
    EXPECT_EQ(cache_->Window().behind, 11);

    settings::MemoryUsageGuideNumber.Set(0);
    cache_->ResetWindow(false);
    EXPECT_EQ(cache_->Window().ahead, 0);
    EXPECT_EQ(cache_->Window().behind, 0);
    CacheServices services;
    services.decoder = &decoder_;
    services.notices = &notices_;
    EXPECT_EQ(DecodeCache(services).WorkerCount(), 1u);
}

}  // namespace
}  // namespace orvanta::decode

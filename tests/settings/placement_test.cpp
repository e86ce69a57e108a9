#include "settings/placement.h"

#include <gtest/gtest.h>

namespace orvanta::settings {
namespace {

const Rect kWork{0, 0, 1920, 1040};
Rect Work(const Rect&) {
    return kWork;
}

TEST(Placement, FormatsThirteenNumbersAndParsesThemBack) {
    WindowPlacement p;
    p.flags = 2;
    p.showCmd = kShowMaximized;
    p.normal = {100, 50, 900, 650};
    const std::string text = FormatPlacement(p, 144, 120);
    EXPECT_EQ(text, "44 2 3 -1 -1 -1 -1 100 50 900 650 144 120");
    const auto parsed = ParsePlacement(text);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->placement, p);
    EXPECT_EQ(parsed->dpiX, 144);
    EXPECT_EQ(parsed->dpiY, 120);

    EXPECT_TRUE(ParsePlacement(text + " 7 8"));
    EXPECT_FALSE(ParsePlacement("40 2 3 -1 -1 -1 -1 100 50 900 650 144 120"));
    EXPECT_FALSE(ParsePlacement("44 2 3 -1 -1 -1 -1 100 50 900 650 144"));
    EXPECT_FALSE(ParsePlacement("44 2 3 -1 -1 -1 -1 100 x 900 650 144 120"));
    EXPECT_FALSE(ParsePlacement(""));
}

TEST(Placement, RestoreUsesOrReplacesTheSavedShowState) {
    const std::string minimised = "44 0 2 -1 -1 -1 -1 10 10 410 310 96 96";
    EXPECT_EQ(PlanPlacementRestore(minimised, -1, Work, 96, 96, false).showCmd, kShowNormal);
    EXPECT_EQ(PlanPlacementRestore(minimised, kShowHide, Work, 96, 96, false).showCmd, kShowHide);
    const auto maximised =
        PlanPlacementRestore("44 0 3 -1 -1 -1 -1 10 10 410 310 96 96", -1, Work, 96, 96, false);
    EXPECT_TRUE(maximised.usePlacement);
    EXPECT_EQ(maximised.showCmd, kShowMaximized);
    EXPECT_EQ(maximised.placement.flags & kPlacementAsync, kPlacementAsync);

    // Unusable text: just show the window.
    const auto unusable =
        PlanPlacementRestore("45 0 3 -1 -1 -1 -1 10 10 410 310 96 96", -1, Work, 96, 96, false);
    EXPECT_FALSE(unusable.usePlacement);
    EXPECT_EQ(unusable.showCmd, kShowNormal);
    EXPECT_EQ(PlanPlacementRestore(std::nullopt, kShowMaximized, Work, 96, 96, false).showCmd,
              kShowMaximized);
}

TEST(Placement, KeepsTheWindowOnScreenThenRescales) {
    // Off the right and bottom edges: moved back, size kept.
    EXPECT_EQ(KeepOnScreen({1800, 1000, 2600, 1600}, kWork), (Rect{1120, 440, 1920, 1040}));
    // Off the left: the left edge wins over the right one.
    EXPECT_EQ(KeepOnScreen({-300, -20, 500, 580}, kWork), (Rect{0, 0, 800, 600}));
    // Larger than the work area: pinned to its top-left.
    EXPECT_EQ(KeepOnScreen({500, 500, 2500, 1700}, kWork), (Rect{0, 0, 2000, 1200}));

    EXPECT_EQ(RescaleForDpi({10, 20, 810, 620}, 96, 96, 144, 120), (Rect{10, 20, 1210, 770}));
    // A stored 0 counts as 96; halves round away from zero.
    EXPECT_EQ(RescaleForDpi({0, 0, 101, 101}, 0, 0, 144, 144), (Rect{0, 0, 152, 152}));

    const auto plan =
        PlanPlacementRestore("44 0 1 -1 -1 -1 -1 1800 10 2600 610 96 96", -1, Work, 192, 192, true);
    EXPECT_EQ(plan.placement.normal, (Rect{1120, 10, 2720, 1210}));
}

}  // namespace
}  // namespace orvanta::settings

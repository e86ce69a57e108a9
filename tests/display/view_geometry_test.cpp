#include "display/view_geometry.h"

#include <cmath>
#include <ostream>

#include <gtest/gtest.h>

namespace orvanta::display {
namespace {

const ViewRect kClient{0, 0, 800, 600};

TEST(ViewGeometry, MulDivRoundsHalvesAwayFromZero) {
    EXPECT_EQ(MulDiv(3, 5, 2), 8);    // 7.5
    EXPECT_EQ(MulDiv(-3, 5, 2), -8);  // -7.5
    EXPECT_EQ(MulDiv(7, 1, 3), 2);    // 2.33
    EXPECT_EQ(MulDiv(1, 1, 0), -1);
    EXPECT_EQ(MulDiv(2000000000, 3, 4), 1500000000);  // no 32-bit overflow
}

struct FitCase {
    int sw, sh;
    ViewRect bounds;
    ViewRect expected;
    int zoom;
};

void PrintTo(const FitCase& c, std::ostream* os) {
    *os << c.sw << "x" << c.sh << " into " << c.bounds.Width() << "x" << c.bounds.Height();
}

class AspectFitCases : public testing::TestWithParam<FitCase> {};

TEST_P(AspectFitCases, FitsCentresAndSnaps) {
    const FitCase& c = GetParam();
    AspectFitResult fit = AspectFit(c.sw, c.sh, c.bounds);
    EXPECT_EQ(fit.rect, c.expected);
    EXPECT_EQ(fit.zoomPercent, c.zoom);
}

INSTANTIATE_TEST_SUITE_P(Cases, AspectFitCases,
                         testing::Values(
                             // Wide picture: the width limits, centred vertically.
                             FitCase{4000, 2000, {0, 0, 800, 600}, {0, 100, 800, 500}, 20},
                             // Tall picture: the height limits, centred horizontally, offsets kept.
                             FitCase{1000, 2000, {10, 20, 810, 620}, {260, 20, 560, 620}, 30},
                             // Same aspect: fills the bounds.
                             FitCase{1600, 1200, {0, 0, 800, 600}, {0, 0, 800, 600}, 50},
                             // One pixel short of the bound after rounding: snapped to fill it.
                             FitCase{134, 100, {0, 0, 200, 150}, {0, 0, 200, 150}, 150},
                             FitCase{135, 102, {0, 0, 200, 150}, {0, 0, 200, 150}, 148},
                             // Zoom rounds half up: 1 of 3 pixels high is 33.3%, 2 of 3 is 66.7%.
                             FitCase{300, 3, {0, 0, 100, 50}, {0, 24, 100, 25}, 33},
                             FitCase{3, 300, {0, 0, 50, 200}, {24, 0, 26, 200}, 67},
                             // A zero-height source keeps 100%.
                             FitCase{100, 0, {0, 0, 50, 50}, {0, 25, 50, 25}, 100}));

TEST(ViewGeometry, AspectFitNeverLeavesTheBounds) {
    for (int sw = 1; sw < 90; sw += 7) {
        for (int sh = 1; sh < 90; sh += 5) {
            for (int bw : {31, 64, 100}) {
                ViewRect bounds{5, 7, 5 + bw, 7 + 47};
                AspectFitResult fit = AspectFit(sw, sh, bounds);
                EXPECT_GE(fit.rect.left, bounds.left);
                EXPECT_GE(fit.rect.top, bounds.top);
                EXPECT_LE(fit.rect.right, bounds.right);
                EXPECT_LE(fit.rect.bottom, bounds.bottom);
                // One side touches the bound; the aspect ratio is kept to a pixel, or the
                // other side was one pixel short and snapped to its bound too.
                EXPECT_TRUE(fit.rect.Width() == bw || fit.rect.Height() == 47);
                bool snapped = fit.rect.Width() == bw && fit.rect.Height() == 47;
                double expectedHeight = static_cast<double>(fit.rect.Width()) * sh / sw;
                double expectedWidth = static_cast<double>(fit.rect.Height()) * sw / sh;
                EXPECT_TRUE(snapped || std::abs(fit.rect.Height() - expectedHeight) <= 1.0 ||
                            std::abs(fit.rect.Width() - expectedWidth) <= 1.0)
                    << sw << "x" << sh << " in " << bw << "x47";
            }
        }
    }
}

Layout LayOut(int w, int h, bool stretch = false) {
    ViewGeometry view;
    view.SetOptions(300, stretch);
    view.SetPicture(w, h, false);
    return view.ComputeLayout(kClient);
}

TEST(ViewGeometry, FitShowsTheViewSizeAtHundredAndFitsOnePixelMore) {
    Layout exact = LayOut(800, 600);
    EXPECT_EQ(exact.zoomPercent, 100);
    EXPECT_EQ(exact.source, (ViewRect{0, 0, 800, 600}));
    EXPECT_EQ(exact.destination, kClient);

    for (auto [w, h] : {std::pair{801, 600}, {800, 601}}) {
        Layout bigger = LayOut(w, h);
        EXPECT_EQ(bigger.source, (ViewRect{0, 0, w, h}));
        EXPECT_LT(bigger.destination.Width() * bigger.destination.Height(), w * h);
        EXPECT_EQ(bigger.zoomPercent, 100);  // 99.9% rounds to 100
        EXPECT_FALSE(bigger.enlarged);
    }
    // 801 wide: the height comes out as 599, a pixel short, and is snapped to fill the view.
    EXPECT_EQ(LayOut(801, 600).destination, kClient);
    // 802 wide: 598.5 rounds to 599 as well; 804 wide gives 597, which stays.
    EXPECT_EQ(LayOut(804, 600).destination, (ViewRect{0, 1, 800, 598}));

    Layout big = LayOut(8000, 6000);
    EXPECT_EQ(big.destination, kClient);
    EXPECT_EQ(big.zoomPercent, 10);
}

TEST(ViewGeometry, SmallPicturesCentredOrEnlarged) {
    Layout small = LayOut(201, 100);
    EXPECT_EQ(small.destination, (ViewRect{299, 250, 500, 350}));
    EXPECT_EQ(small.source, (ViewRect{0, 0, 201, 100}));
    EXPECT_EQ(small.zoomPercent, 100);
    EXPECT_FALSE(small.enlarged);

    Layout stretched = LayOut(200, 100, true);
    EXPECT_EQ(stretched.destination, (ViewRect{0, 100, 800, 500}));
    EXPECT_EQ(stretched.zoomPercent, 400);
    EXPECT_TRUE(stretched.enlarged);
    // A picture exactly the view's size is drawn as it is, even with stretching on.
    EXPECT_FALSE(LayOut(800, 600, true).enlarged);

    // Start and error pictures, and pictures with a caption, are never enlarged.
    ViewGeometry view;
    view.SetOptions(300, true);
    view.SetPicture(200, 100, false);
    view.SetViewOwned(true, false);
    EXPECT_EQ(view.ComputeLayout(kClient).zoomPercent, 100);
    view.SetViewOwned(false, true);
    EXPECT_FALSE(view.ComputeLayout(kClient).enlarged);
}

TEST(ViewGeometry, ActualSizeToggleShowsTheCentreAndClampsThePan) {
    ViewGeometry view;
    view.SetPicture(4000, 3000, false);
    view.ComputeLayout(kClient);
    EXPECT_FALSE(view.CanPan(kClient));
    view.ToggleActualSize();
    EXPECT_TRUE(view.CanPan(kClient));
    Layout actual = view.ComputeLayout(kClient);
    EXPECT_EQ(actual.zoomPercent, 100);
    EXPECT_EQ(actual.destination, kClient);
    EXPECT_EQ(actual.source, (ViewRect{1600, 1200, 2400, 1800}));

    // Arrow keys pan by a thirtieth, a third with Shift, the whole view with Ctrl.
    EXPECT_TRUE(view.ArrowKey(ViewGeometry::Arrow::Right, false, false, kClient));
    EXPECT_EQ(view.PanX(), 26);
    EXPECT_TRUE(view.ArrowKey(ViewGeometry::Arrow::Up, true, true, kClient));
    EXPECT_EQ(view.PanY(), -200);
    EXPECT_TRUE(view.ArrowKey(ViewGeometry::Arrow::Left, false, true, kClient));
    EXPECT_EQ(view.PanX(), 26 - 800);

    // A pan beyond the picture is absorbed: the source stays inside, the pan is clamped.
    for (int i = 0; i < 5; ++i) {
        view.ArrowKey(ViewGeometry::Arrow::Left, false, true, kClient);
    }
    actual = view.ComputeLayout(kClient);
    EXPECT_EQ(actual.source.left, 0);
    EXPECT_EQ(view.PanX(), -1600);
    for (int i = 0; i < 20; ++i) {
        view.ArrowKey(ViewGeometry::Arrow::Down, false, true, kClient);
    }
    actual = view.ComputeLayout(kClient);
    EXPECT_EQ(actual.source.bottom, 3000);
    EXPECT_EQ(view.PanY(), 1200);

    // Back to fit: no pan, and arrows are left to the main window.
    view.ToggleActualSize();
    EXPECT_EQ(view.PanX(), 0);
    EXPECT_EQ(view.PanY(), 0);
    EXPECT_FALSE(view.ArrowKey(ViewGeometry::Arrow::Right, false, false, kClient));
    EXPECT_EQ(view.ComputeLayout(kClient).zoomPercent, 20);
}

TEST(ViewGeometry, ActualSizeOfAPictureNarrowerThanTheView) {
    ViewGeometry view;
    view.SetPicture(500, 3000, false);
    view.ToggleActualSize();
    Layout layout = view.ComputeLayout(kClient);
    EXPECT_EQ(layout.destination, (ViewRect{150, 0, 650, 600}));
    EXPECT_EQ(layout.source, (ViewRect{0, 1200, 500, 1800}));
    // Only the taller axis pans.
    EXPECT_FALSE(view.ArrowKey(ViewGeometry::Arrow::Left, false, false, kClient));
    EXPECT_TRUE(view.ArrowKey(ViewGeometry::Arrow::Down, false, false, kClient));
    EXPECT_EQ(view.ComputeLayout(kClient).source.top, 1220);
}

TEST(ViewGeometry, HoldingTheButtonKeepsThePointUnderTheCursor) {
    ViewGeometry view;
    view.SetPicture(4000, 3000, false);
    Layout fit = view.ComputeLayout(kClient);  // 800x600 at 20%
    ViewPoint cursor{600, 150};
    // The picture point under the cursor in the fitted view.
    double px = (cursor.x - fit.destination.left) * 5.0;
    double py = (cursor.y - fit.destination.top) * 5.0;
    view.BeginHoldZoom(cursor);
    Layout held = view.ComputeLayout(kClient);
    EXPECT_EQ(held.zoomPercent, 100);
    EXPECT_NEAR(held.source.left + (cursor.x - held.destination.left), px, 1.0);
    EXPECT_NEAR(held.source.top + (cursor.y - held.destination.top), py, 1.0);
    view.EndHoldZoom();
    EXPECT_EQ(view.PanX(), 0);
    EXPECT_EQ(view.ComputeLayout(kClient).zoomPercent, 20);
}

TEST(ViewGeometry, MagnifierScalesAroundTheCursor) {
    ViewGeometry view;
    view.SetOptions(200, false);
    view.SetPicture(1600, 1200, false);
    Layout fit = view.ComputeLayout(kClient);
    ViewPoint cursor{200, 150};  // a quarter in from the top left
    view.BeginMagnifier(cursor);
    EXPECT_TRUE(view.CanPan(kClient));
    Layout magnified = view.ComputeLayout(kClient);
    EXPECT_EQ(magnified.zoomPercent, 200);
    EXPECT_EQ(magnified.destination, kClient);
    EXPECT_EQ(magnified.source.Width(), 400);
    EXPECT_EQ(magnified.source.Height(), 300);
    // The picture point under the cursor stays under it.
    double px = (cursor.x - fit.destination.left) * 2.0;
    double py = (cursor.y - fit.destination.top) * 2.0;
    EXPECT_NEAR(magnified.source.left + (cursor.x - magnified.destination.left) / 2.0, px, 1.0);
    EXPECT_NEAR(magnified.source.top + (cursor.y - magnified.destination.top) / 2.0, py, 1.0);
    view.EndMagnifier(false, cursor);
    EXPECT_EQ(view.ComputeLayout(kClient), fit);
}

TEST(ViewGeometry, MagnifierOverHeldActualSizeReturnsToIt) {
    ViewGeometry view;
    view.SetOptions(400, false);
    view.SetPicture(4000, 3000, false);
    view.ComputeLayout(kClient);
    ViewPoint anchor{600, 150};
    view.BeginHoldZoom(anchor);
    Layout held = view.ComputeLayout(kClient);
    int heldPanX = view.PanX();
    int heldPanY = view.PanY();

    // The magnifier over the held actual size zooms about the same picture point...
    view.BeginMagnifier(anchor);
    Layout magnified = view.ComputeLayout(kClient);
    EXPECT_EQ(magnified.zoomPercent, 400);
    double px = held.source.left + (anchor.x - held.destination.left);
    EXPECT_NEAR(magnified.source.left + (anchor.x - magnified.destination.left) / 4.0, px, 1.0);

    // ...and releasing it with the left button still down goes back to the held view.
    view.EndMagnifier(true, anchor);
    EXPECT_TRUE(view.HoldZoom());
    EXPECT_EQ(view.PanX(), heldPanX);
    EXPECT_EQ(view.PanY(), heldPanY);
    EXPECT_EQ(view.ComputeLayout(kClient), held);
    view.EndHoldZoom();
    EXPECT_FALSE(view.Zoomed());
}

TEST(ViewGeometry, MagnifierOnASmallPictureCentresItWithoutPan) {
    ViewGeometry view;
    view.SetOptions(300, false);
    view.SetPicture(100, 50, false);
    view.ComputeLayout(kClient);
    view.BeginMagnifier({10, 10});
    EXPECT_FALSE(view.CanPan(kClient));
    Layout layout = view.ComputeLayout(kClient);
    EXPECT_EQ(layout.destination, (ViewRect{250, 225, 550, 375}));
    EXPECT_EQ(layout.source, (ViewRect{0, 0, 100, 50}));
    EXPECT_EQ(view.PanX(), 0);
    EXPECT_EQ(view.PanY(), 0);

    // With the magnifier off the right button changes nothing.
    ViewGeometry off;
    off.SetOptions(0, false);
    off.SetPicture(100, 50, false);
    Layout before = off.ComputeLayout(kClient);
    off.BeginMagnifier({10, 10});
    EXPECT_FALSE(off.MagnifierActive());
    EXPECT_EQ(off.ComputeLayout(kClient), before);
}

TEST(ViewGeometry, DragPansOneToOneWithShiftAndFasterWhenAccelerated) {
    EXPECT_EQ(DragStep(0, 5.0, 1.0), 0);
    EXPECT_EQ(DragStep(1, 5.0, 1.0), 1);     // slow moves are exact
    EXPECT_EQ(DragStep(-5, 1.0, 1.0), 5);    // a picture the size of its view
    EXPECT_EQ(DragStep(5, 5.0, 0.0), 5);     // acceleration off
    EXPECT_EQ(DragStep(5, 5.0, 1.0), 13);    // (1 + 0.1*4*4) * 5
    EXPECT_EQ(DragStep(20, 5.0, 1.0), 100);  // capped at 11 pixels' worth of speed-up

    ViewGeometry view;
    view.SetPicture(4000, 3000, false);
    view.ToggleActualSize();
    view.ComputeLayout(kClient);
    view.Drag(-7, 3, 1.0, true, false);
    EXPECT_EQ(view.PanX(), 7);
    EXPECT_EQ(view.PanY(), -3);
    view.Drag(-7, 3, 1.0, true, true);  // inverted: against the mouse
    EXPECT_EQ(view.PanX(), 0);
    EXPECT_EQ(view.PanY(), 0);
}

TEST(ViewGeometry, NewPictureKeepsThePanOnlyWhileTheMouseIsCaptured) {
    ViewGeometry view;
    view.SetPicture(4000, 3000, false);
    view.ToggleActualSize();
    view.ArrowKey(ViewGeometry::Arrow::Right, false, false, kClient);
    view.SetPicture(4000, 3000, true);
    EXPECT_EQ(view.PanX(), 26);
    view.SetPicture(4000, 3000, false);
    EXPECT_EQ(view.PanX(), 0);
}

}  // namespace
}  // namespace orvanta::display

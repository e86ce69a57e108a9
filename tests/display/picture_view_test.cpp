#include "display/picture_view.h"

#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <gtest/gtest.h>

#include "display/raster_view.h"
#include "settings/settings.h"
#include "view_pictures.h"

namespace orvanta::display {
namespace {

using test::PatternPicture;
using test::PumpUntil;

using test::Mouse;

bool Key(QWidget& widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QKeyEvent event(QEvent::KeyPress, key, modifiers);
    QCoreApplication::sendEvent(&widget, &event);
    return event.isAccepted();
}

class PictureViewInput : public ::testing::Test {
protected:
    void SetUp() override {
        frame::test::App();
        for (settings::Setting* s :
             {&settings::RightClickMagnifier, &settings::SmartMouseAcceleration,
              &settings::HideZoomMouseCursor, &settings::EnableInvertedZoomScrolling,
              &settings::StretchSmallImages, &settings::AutoHideMouseCursor,
              &settings::AutoHideTaskbar, &settings::EnableCopiedStampOverlay}) {
            s->ResetToDefault();
        }
        settings::HideZoomMouseCursor.Set(0);
        owned_ = std::make_unique<RasterView>();
        owned_->resize(800, 600);
        owned_->show();
        connect();
    }
    void TearDown() override {
        owned_.reset();
        settings::HideZoomMouseCursor.ResetToDefault();
    }

    RasterView& View() { return *owned_; }
    void connect() {
        QObject::connect(&View(), &PictureView::PanelHideRequested, [this] { ++hides_; });
        QObject::connect(&View(), &PictureView::PanelShowRequested, [this] { ++shows_; });
        QObject::connect(&View(), &PictureView::KeepRequested, [this] { ++keeps_; });
    }
    void Show(int width, int height) {
        View().SetPicture(PatternPicture(width, height));
        View().Screenshot();  // lays the picture out once, as the first paint would
    }

    std::unique_ptr<RasterView> owned_;
    int hides_ = 0;
    int shows_ = 0;
    int keeps_ = 0;
};

// Holding the left button shows actual size about the cursor; Shift drags one picture pixel
// per mouse pixel, without it a fast move on a large picture pans further; the inverted
// setting turns the direction round; releasing returns to fit.
TEST_F(PictureViewInput, HoldAndDrag) {
    Show(4000, 3000);
    for (const bool inverted : {false, true}) {
        settings::EnableInvertedZoomScrolling.Set(inverted ? 1 : 0);
        Mouse(View(), QEvent::MouseButtonPress, Qt::LeftButton, Qt::LeftButton, {400, 300});
        ASSERT_TRUE(View().Geometry().HoldZoom());
        EXPECT_EQ(View().cursor().shape(), Qt::PointingHandCursor);
        EXPECT_EQ(hides_, inverted ? 2 : 1);
        View().Screenshot();
        EXPECT_EQ(View().LastDestination(), QRect(0, 0, 800, 600));
        const int pan = View().Geometry().PanX();
        Mouse(View(), QEvent::MouseMove, Qt::NoButton, Qt::LeftButton, {363, 300},
              Qt::ShiftModifier);
        EXPECT_EQ(View().Geometry().PanX() - pan, inverted ? -37 : 37);
        Mouse(View(), QEvent::MouseMove, Qt::NoButton, Qt::LeftButton, {373, 300});
        EXPECT_GT(std::abs(View().Geometry().PanX() - pan - (inverted ? -37 : 37)), 10);
        Mouse(View(), QEvent::MouseButtonRelease, Qt::LeftButton, Qt::NoButton, {373, 300});
        EXPECT_FALSE(View().Geometry().HoldZoom());
        EXPECT_EQ(View().Geometry().PanX(), 0);
        EXPECT_EQ(View().cursor().shape(), Qt::ArrowCursor);
    }
}

TEST_F(PictureViewInput, HiddenCursorWhileDraggingComesBackOnRelease) {
    settings::HideZoomMouseCursor.Set(1);
    Show(4000, 3000);
    Mouse(View(), QEvent::MouseButtonPress, Qt::LeftButton, Qt::LeftButton, {300, 200});
    EXPECT_TRUE(View().CursorHidden());
    EXPECT_EQ(View().cursor().shape(), Qt::BlankCursor);
    Mouse(View(), QEvent::MouseButtonRelease, Qt::LeftButton, Qt::NoButton, {300, 200});
    EXPECT_FALSE(View().CursorHidden());
}

// The magnifier on a picture smaller than the view shows it whole, centred, without pan;
// with the magnifier switched off the right button does nothing at all.
TEST_F(PictureViewInput, RightButtonMagnifier) {
    Show(200, 100);
    Mouse(View(), QEvent::MouseButtonPress, Qt::RightButton, Qt::RightButton, {150, 120});
    ASSERT_TRUE(View().Geometry().MagnifierActive());
    View().Screenshot();
    EXPECT_EQ(View().LastDestination(), QRect(100, 150, 600, 300));
    EXPECT_EQ(View().Geometry().PanX(), 0);
    EXPECT_EQ(View().Geometry().PanY(), 0);
    Mouse(View(), QEvent::MouseButtonRelease, Qt::RightButton, Qt::NoButton, {150, 120});
    View().Screenshot();
    EXPECT_EQ(View().LastDestination(), QRect(300, 250, 200, 100));

    settings::RightClickMagnifier.Set(0);
    hides_ = 0;
    Mouse(View(), QEvent::MouseButtonPress, Qt::RightButton, Qt::RightButton, {150, 120});
    EXPECT_FALSE(View().Geometry().MagnifierActive());
    EXPECT_EQ(hides_, 0);
    View().Screenshot();
    EXPECT_EQ(View().LastDestination(), QRect(300, 250, 200, 100));
}

// Arrow keys pan only in a zoomed way and only along an axis where the picture is larger
// than the view; otherwise the key goes on to the frame.
TEST_F(PictureViewInput, ArrowKeys) {
    Show(4000, 500);
    EXPECT_FALSE(Key(View(), Qt::Key_Right));
    EXPECT_EQ(View().Geometry().PanX(), 0);
    View().ToggleActualSize();
    EXPECT_TRUE(Key(View(), Qt::Key_Right));
    EXPECT_EQ(View().Geometry().PanX(), 800 / 30);
    EXPECT_TRUE(Key(View(), Qt::Key_Right, Qt::ShiftModifier));
    EXPECT_EQ(View().Geometry().PanX(), 800 / 30 + 800 / 3);
    EXPECT_TRUE(Key(View(), Qt::Key_Left, Qt::ControlModifier));
    EXPECT_EQ(View().Geometry().PanX(), 800 / 30 + 800 / 3 - 800);
    EXPECT_FALSE(Key(View(), Qt::Key_Up));  // not taller than the view
    EXPECT_TRUE(Key(View(), Qt::Key_Left, Qt::ControlModifier));
    EXPECT_TRUE(Key(View(), Qt::Key_Left, Qt::ControlModifier));
    View().Screenshot();
    // The layout clamps what the keys pushed beyond the left edge.
    EXPECT_EQ(View().Geometry().PanX(), -(4000 - 800) / 2);
}

// The view's own pictures cannot be held or dragged; the middle button asks for the keep
// command whatever is shown.
TEST_F(PictureViewInput, OwnedPicturesAndMiddleButton) {
    View().ShowStartPicture(QStringLiteral("Open a folder"));
    View().Screenshot();
    const QRect shown = View().LastDestination();
    Mouse(View(), QEvent::MouseButtonPress, Qt::LeftButton, Qt::LeftButton, {400, 300});
    EXPECT_FALSE(View().Geometry().HoldZoom());
    Mouse(View(), QEvent::MouseMove, Qt::NoButton, Qt::LeftButton, {300, 300});
    View().Screenshot();
    EXPECT_EQ(View().LastDestination(), shown);
    Mouse(View(), QEvent::MouseButtonRelease, Qt::LeftButton, Qt::NoButton, {300, 300});
    Mouse(View(), QEvent::MouseButtonPress, Qt::MiddleButton, Qt::MiddleButton, {300, 300});
    EXPECT_EQ(keeps_, 1);
}

// A cursor resting on the bottom strip asks for the panel, one resting above it lets it go;
// a resting cursor hides after a while and comes back when it moves.
TEST_F(PictureViewInput, RestingCursor) {
    settings::AutoHideTaskbar.Set(1);
    settings::AutoHideMouseCursor.Set(1);
    Show(4000, 3000);
    const QPoint strip(400, 590);
    QCursor::setPos(View().mapToGlobal(strip));
    if (QCursor::pos() != View().mapToGlobal(strip)) {
        GTEST_SKIP() << "this platform does not move the cursor";
    }
    Mouse(View(), QEvent::MouseMove, Qt::NoButton, Qt::NoButton, strip);
    EXPECT_TRUE(PumpUntil([&] { return shows_ == 1; }));
    const QPoint above(400, 200);
    QCursor::setPos(View().mapToGlobal(above));
    Mouse(View(), QEvent::MouseMove, Qt::NoButton, Qt::NoButton, above);
    EXPECT_TRUE(PumpUntil([&] { return hides_ == 1; }));
    EXPECT_TRUE(PumpUntil([&] { return View().CursorHidden(); }));
    const QPoint moved(420, 200);
    QCursor::setPos(View().mapToGlobal(moved));
    Mouse(View(), QEvent::MouseMove, Qt::NoButton, Qt::NoButton, moved);
    EXPECT_FALSE(View().CursorHidden());
}

// The overlays sit where both presenters draw them: the copied stamp centred, the badge in
// the bottom-left corner, only over a decoded picture; a caption lifts the picture.
TEST_F(PictureViewInput, PlannedOverlaysAndCaption) {
    Show(1600, 1200);
    View().SetStamps(true, true);
    DrawPlan plan = View().Plan(800, 600);
    EXPECT_EQ(plan.copiedStamp, QRect(243, 213, 314, 174));
    EXPECT_EQ(plan.markBadge, QRect(0, 472, 128, 128));
    settings::EnableCopiedStampOverlay.Set(0);
    EXPECT_TRUE(View().Plan(800, 600).copiedStamp.isEmpty());

    View().ShowErrorPicture();
    const DrawPlan error = View().Plan(800, 600);
    EXPECT_TRUE(error.markBadge.isEmpty());
    EXPECT_TRUE(error.captionBox.isEmpty());
    View().ShowStartPicture(QStringLiteral("Open a folder"));
    plan = View().Plan(800, 600);
    EXPECT_EQ(plan.layout.destination.top,
              error.layout.destination.top - PictureView::kCaptionLift);
    EXPECT_GT(plan.captionBox.top(), plan.layout.destination.bottom);
    EXPECT_NEAR(plan.captionBox.center().x(), ToQRect(plan.layout.destination).center().x(), 1);
}

struct FilterCase {
    bool reducing, enlarged, caption, smooth, multisampling;
    Filter expected;
};

class FilterChoice : public ::testing::TestWithParam<FilterCase> {};

TEST_P(FilterChoice, FollowsScaleAndSettings) {
    const FilterCase& c = GetParam();
    EXPECT_EQ(ChooseFilter(c.reducing, c.enlarged, c.caption, c.smooth, c.multisampling),
              c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FilterChoice,
    ::testing::Values(FilterCase{true, false, false, false, false, Filter::Linear},
                      FilterCase{true, false, false, false, true, Filter::Mipmapped},
                      FilterCase{false, true, false, false, false, Filter::Linear},
                      FilterCase{false, false, false, false, true, Filter::Nearest},
                      FilterCase{false, false, false, true, false, Filter::Linear},
                      FilterCase{false, true, true, true, true, Filter::Nearest}));

}  // namespace
}  // namespace orvanta::display

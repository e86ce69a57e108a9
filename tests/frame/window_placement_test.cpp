#include "frame/window_placement.h"

#include <QApplication>
#include <QScreen>
#include <QWidget>
#include <gtest/gtest.h>

#include "frame_app.h"
#include "settings/placement.h"

namespace orvanta::frame {
namespace {

using test::App;

TEST(WindowPlacement, RestoresOnScreenAndSavesWhatItRestored) {
    App();
    const QRect work = QGuiApplication::primaryScreen()->availableGeometry();
    QWidget window;
    // Saved far to the right of every screen: it comes back inside the work area, size kept.
    const std::string stored = "44 0 1 -1 -1 -1 -1 " + std::to_string(work.right() + 500) + " 40 " +
                               std::to_string(work.right() + 800) + " 240 96 96";
    RestoreWindowPlacement(window, stored, -1, false);
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(window.geometry().size(), QSize(300, 200));
    EXPECT_TRUE(work.contains(window.geometry())) << window.geometry().x();

    const auto saved = settings::ParsePlacement(SaveWindowPlacement(window));
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->placement.normal.Width(), 300);
    EXPECT_EQ(saved->placement.normal.left, window.geometry().x());
    EXPECT_EQ(saved->placement.showCmd, settings::kShowNormal);

    // A placement whose first number is not 44 is ignored: the window is just shown.
    QWidget other;
    other.resize(123, 45);
    RestoreWindowPlacement(other, "43 0 1 -1 -1 -1 -1 0 0 900 900 96 96", -1, false);
    EXPECT_TRUE(other.isVisible());
    EXPECT_EQ(other.size(), QSize(123, 45));
}

}  // namespace
}  // namespace orvanta::frame

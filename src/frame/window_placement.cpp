#include "frame/window_placement.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include "settings/placement.h"

namespace orvanta::frame {

namespace {

using settings::Rect;

// Placement rectangles keep the platform's convention: right and bottom are one past the
// last pixel.
Rect ToRect(const QRect& r) {
    return {r.x(), r.y(), r.x() + r.width(), r.y() + r.height()};
}
QRect ToQRect(const Rect& r) {
    return {r.left, r.top, r.Width(), r.Height()};
}

Rect WorkAreaNearest(const Rect& rect) {
    const QRect wanted = ToQRect(rect);
    QScreen* best = QGuiApplication::primaryScreen();
    long long bestArea = -1;
    for (QScreen* screen : QGuiApplication::screens()) {
        const QRect overlap = screen->geometry().intersected(wanted);
        const long long area = overlap.isValid() ? 1LL * overlap.width() * overlap.height() : 0;
        if (area > bestArea) {
            best = screen;
            bestArea = area;
        }
    }
    return best != nullptr ? ToRect(best->availableGeometry()) : rect;
}

void Show(QWidget& window, int showCmd) {
    switch (showCmd) {
        case settings::kShowHide:
            window.hide();
            break;
        case settings::kShowMaximized:
            window.showMaximized();
            break;
        case settings::kShowMinimized:
            window.showMinimized();
            break;
        default:
            window.showNormal();
            break;
    }
}

}  // namespace

std::string SaveWindowPlacement(const QWidget& window) {
    settings::WindowPlacement placement;
    placement.showCmd = window.isMaximized()   ? settings::kShowMaximized
                        : window.isMinimized() ? settings::kShowMinimized
                                               : settings::kShowNormal;
    const QRect normal =
        window.isMaximized() || window.isMinimized() ? window.normalGeometry() : window.geometry();
    placement.normal = ToRect(normal.isValid() ? normal : window.geometry());
    const QScreen* screen = window.screen();
    const int dpiX = screen != nullptr ? qRound(screen->logicalDotsPerInchX()) : 96;
    const int dpiY = screen != nullptr ? qRound(screen->logicalDotsPerInchY()) : 96;
    return settings::FormatPlacement(placement, dpiX, dpiY);
}

void RestoreWindowPlacement(QWidget& window, std::optional<std::string_view> stored,
                            int requestedShow, bool rescale) {
    const QScreen* screen =
        window.screen() != nullptr ? window.screen() : QGuiApplication::primaryScreen();
    const int dpiX = screen != nullptr ? qRound(screen->logicalDotsPerInchX()) : 96;
    const int dpiY = screen != nullptr ? qRound(screen->logicalDotsPerInchY()) : 96;
    const settings::PlacementRestore plan =
        settings::PlanPlacementRestore(stored, requestedShow, WorkAreaNearest, dpiX, dpiY, rescale);
    if (plan.usePlacement) {
        window.setGeometry(ToQRect(plan.placement.normal));
    }
    Show(window, plan.showCmd);
}

}  // namespace orvanta::frame

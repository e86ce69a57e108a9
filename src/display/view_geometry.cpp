#include "display/view_geometry.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace orvanta::display {
namespace {

// Halves round up, as the zoom percentage shown to the user does.
int RoundHalfUp(double value) {
    return static_cast<int>(std::floor(value + 0.5));
}

ViewRect Intersect(const ViewRect& a, const ViewRect& b) {
    ViewRect r{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
               std::min(a.bottom, b.bottom)};
    if (r.right < r.left || r.bottom < r.top) {
        return {};
    }
    return r;
}

double Centre(int low, int high) {
    return (static_cast<double>(low) + high) / 2.0;
}

}  // namespace

int MulDiv(int a, int b, int c) {
    if (c == 0) {
        return -1;
    }
    std::int64_t product = static_cast<std::int64_t>(a) * b;
    bool negative = (product < 0) != (c < 0);
    std::int64_t magnitude = std::llabs(product);
    std::int64_t divisor = std::llabs(static_cast<std::int64_t>(c));
    std::int64_t result = (magnitude + divisor / 2) / divisor;
    return static_cast<int>(negative ? -result : result);
}

AspectFitResult AspectFit(int sw, int sh, const ViewRect& bounds) {
    int bw = bounds.Width();
    int bh = bounds.Height();
    AspectFitResult fit;
    if (static_cast<std::int64_t>(bw) * sh < static_cast<std::int64_t>(sw) * bh) {
        int height = MulDiv(sh, bw, sw);
        if (std::abs(height - bh) == 1) {
            height = bh;
        }
        int top = bounds.top + (bh - height) / 2;
        fit.rect = {bounds.left, top, bounds.left + bw, top + height};
        fit.zoomPercent = sh == 0 ? 100 : RoundHalfUp(height * 100.0 / sh);
    } else {
        int width = MulDiv(sw, bh, sh);
        if (std::abs(width - bw) == 1) {
            width = bw;
        }
        int left = bounds.left + (bw - width) / 2;
        fit.rect = {left, bounds.top, left + width, bounds.top + bh};
        fit.zoomPercent = sw == 0 ? 100 : RoundHalfUp(width * 100.0 / sw);
    }
    return fit;
}

int DragStep(int distance, double ratio, double acceleration) {
    distance = std::abs(distance);
    if (distance == 0) {
        return 0;
    }
    double factor = 1.0 + 0.1 * acceleration * (ratio - 1.0) * (std::min(distance, 11) - 1);
    return static_cast<int>(factor * distance + 0.5);
}

void ViewGeometry::SetPicture(int width, int height, bool mouseCaptured) {
    width_ = width;
    height_ = height;
    if (!mouseCaptured) {
        panX_ = 0;
        panY_ = 0;
    }
}

Layout ViewGeometry::ComputeLayout(const ViewRect& client) {
    const int w = width_;
    const int h = height_;
    const int W = client.Width();
    const int H = client.Height();
    Layout layout;
    layout.destination = client;

    if (MagnifierOn()) {
        const int m = magnifierPercent_;
        layout.zoomPercent = m;
        int sw = static_cast<int>(static_cast<double>(w) * m / 100.0);
        int sh = static_cast<int>(static_cast<double>(h) * m / 100.0);
        ViewRect scaled;
        scaled.left = client.left + ((W - sw) >> 1);
        scaled.top = client.top + ((H - sh) >> 1);
        scaled.right = scaled.left + sw;
        scaled.bottom = scaled.top + sh;
        layout.destination = Intersect(client, scaled);
        int srcW = static_cast<int>(static_cast<double>(W) * 100.0 / m);
        int srcH = static_cast<int>(static_cast<double>(H) * 100.0 / m);
        ViewRect& s = layout.source;
        s.left = (w - srcW) >> 1;
        s.top = (h - srcH) >> 1;
        s.right = s.left + srcW;
        s.bottom = s.top + srcH;
        s.left = std::max(s.left, 0);
        s.top = std::max(s.top, 0);
        s.right = std::min(s.right, w);
        s.bottom = std::min(s.bottom, h);
        ApplyPan(s, sw > W, sh > H);
    } else if (!actualSizeMode_ && !holdZoom_ && (w > W || h > H)) {
        layout.source = {0, 0, w, h};
        AspectFitResult fit = AspectFit(w, h, client);
        layout.destination = fit.rect;
        layout.zoomPercent = fit.zoomPercent;
    } else if (!actualSizeMode_ && !holdZoom_ && stretchSmallImages_ && !viewOwned_ &&
               !hasCaptionText_) {
        layout.source = {0, 0, w, h};
        AspectFitResult fit = AspectFit(w, h, client);
        layout.destination = fit.rect;
        layout.zoomPercent = fit.zoomPercent;
        layout.enlarged = fit.rect.Width() > w || fit.rect.Height() > h;
    } else {
        layout.zoomPercent = 100;
        ViewRect& s = layout.source;
        ViewRect& d = layout.destination;
        // One axis at the picture's own size: a picture that fits is centred in the view,
        // a larger one shows its centre.
        auto axis = [](int& sLow, int& sHigh, int& dLow, int& dHigh, int size, int view) {
            if (size <= view) {
                dLow += (view - size) >> 1;
                dHigh = dLow + size;
                sHigh = size;
            } else {
                sLow = (size - view) >> 1;
                sHigh = sLow + view;
            }
        };
        axis(s.left, s.right, d.left, d.right, w, W);
        axis(s.top, s.bottom, d.top, d.bottom, h, H);
        if (actualSizeMode_ || holdZoom_) {
            ApplyPan(s, w > W, h > H);
        }
    }
    destination_ = layout.destination;
    zoomPercent_ = layout.zoomPercent;
    return layout;
}

void ViewGeometry::ApplyPan(ViewRect& s, bool wider, bool taller) {
    // One axis: move the source by the pan, then push it back inside the picture and take
    // the push into the pan, so that a drag beyond the edge is absorbed.
    auto axis = [](int& low, int& high, int& pan, bool larger, int limit) {
        if (!larger) {
            pan = 0;
        }
        low += pan;
        high += pan;
        if (pan == 0 || !larger) {
            return;
        }
        int shift = low < 0 ? -low : 0;
        if (high + shift > limit) {
            shift = limit - high;
        }
        pan += shift;
        low += shift;
        high += shift;
    };
    axis(s.left, s.right, panX_, wider, width_);
    axis(s.top, s.bottom, panY_, taller, height_);
}

void ViewGeometry::Ratios(const ViewRect& reference, double& rx, double& ry) const {
    rx = reference.Width() == 0 ? 1.0 : static_cast<double>(width_) / reference.Width();
    ry = reference.Height() == 0 ? 1.0 : static_cast<double>(height_) / reference.Height();
}

void ViewGeometry::ToggleActualSize() {
    actualSizeMode_ = !actualSizeMode_;
    if (!Zoomed()) {
        panX_ = 0;
        panY_ = 0;
    }
}

void ViewGeometry::BeginHoldZoom(ViewPoint c) {
    if (MagnifierOn()) {
        return;
    }
    holdZoom_ = true;
    if (actualSizeMode_) {
        return;  // the toggled actual size keeps its pan
    }
    savedDestination_ = destination_;
    PanAboutCursor(destination_, c);
}

// Actual size about the cursor: the picture point under `c` in `reference` (the fitted
// rectangle) stays under it.
void ViewGeometry::PanAboutCursor(const ViewRect& reference, ViewPoint c) {
    double rx = 1.0;
    double ry = 1.0;
    Ratios(reference, rx, ry);
    double dx = c.x - Centre(reference.left, reference.right);
    double dy = c.y - Centre(reference.top, reference.bottom);
    panX_ = static_cast<int>(std::trunc(dx * rx) - dx);
    panY_ = static_cast<int>(std::trunc(dy * ry) - dy);
}

void ViewGeometry::EndHoldZoom() {
    holdZoom_ = false;
    if (!MagnifierOn() && !actualSizeMode_) {
        panX_ = 0;
        panY_ = 0;
    }
}

void ViewGeometry::BeginMagnifier(ViewPoint c) {
    if (magnifierPercent_ == 0) {
        return;
    }
    magnifierActive_ = true;
    const double k = magnifierPercent_ / 100.0;
    if (actualSizeMode_ && !holdZoom_) {
        savedDestination_ = destination_;
        double dx = c.x - Centre(destination_.left, destination_.right);
        double dy = c.y - Centre(destination_.top, destination_.bottom);
        panX_ += static_cast<int>(std::trunc(dx - dx / k));
        panY_ += static_cast<int>(std::trunc(dy - dy / k));
        return;
    }
    if (!holdZoom_) {
        savedDestination_ = destination_;
    }
    // Over a held actual size the reference is the fitted rectangle saved when it began.
    const ViewRect& reference = savedDestination_;
    double rx = 1.0;
    double ry = 1.0;
    Ratios(reference, rx, ry);
    double dx = c.x - Centre(reference.left, reference.right);
    double dy = c.y - Centre(reference.top, reference.bottom);
    panX_ = static_cast<int>(std::trunc(dx * rx - dx / k));
    panY_ = static_cast<int>(std::trunc(dy * ry - dy / k));
}

void ViewGeometry::EndMagnifier(bool leftButtonDown, ViewPoint anchor) {
    if (magnifierPercent_ == 0) {
        return;
    }
    if (leftButtonDown) {
        holdZoom_ = true;
    }
    magnifierActive_ = false;
    if (holdZoom_) {
        destination_ = savedDestination_;
    }
    if (actualSizeMode_) {
        return;  // the toggled actual size keeps the pan the magnifier left
    }
    if (holdZoom_) {
        PanAboutCursor(savedDestination_, anchor);
    } else {
        panX_ = 0;
        panY_ = 0;
    }
}

void ViewGeometry::Drag(int dx, int dy, double acceleration, bool shift, bool inverted) {
    if (inverted) {
        panX_ = -panX_;
        panY_ = -panY_;
    }
    double rx = 1.0;
    double ry = 1.0;
    if (!shift) {
        Ratios(destination_, rx, ry);
        rx = std::max(rx, 1.0);
        ry = std::max(ry, 1.0);
    }
    // Moving the mouse left or up shows more of the picture's right or bottom.
    int stepX = DragStep(dx, rx, acceleration);
    int stepY = DragStep(dy, ry, acceleration);
    panX_ += dx < 0 ? stepX : -stepX;
    panY_ += dy < 0 ? stepY : -stepY;
    if (inverted) {
        panX_ = -panX_;
        panY_ = -panY_;
    }
}

bool ViewGeometry::ArrowKey(Arrow arrow, bool shift, bool ctrl, const ViewRect& client) {
    if (!Zoomed()) {
        return false;
    }
    const bool vertical = arrow == Arrow::Up || arrow == Arrow::Down;
    std::int64_t w = width_;
    std::int64_t h = height_;
    if (MagnifierOn()) {
        w = w * magnifierPercent_ / 100;
        h = h * magnifierPercent_ / 100;
    }
    if (vertical ? h <= client.Height() : w <= client.Width()) {
        return false;
    }
    int dimension = vertical ? client.Height() : client.Width();
    int step = shift ? dimension / 3 : ctrl ? dimension : dimension / 30;
    step = std::max(step, 1);
    int& pan = vertical ? panY_ : panX_;
    pan += (arrow == Arrow::Up || arrow == Arrow::Left) ? -step : step;
    return true;
}

bool ViewGeometry::CanPan(const ViewRect& client) const {
    if (MagnifierOn()) {
        std::int64_t m = magnifierPercent_;
        return width_ * m / 100 > client.Width() || height_ * m / 100 > client.Height();
    }
    if (actualSizeMode_ || holdZoom_) {
        return width_ > client.Width() || height_ > client.Height();
    }
    return false;
}

}  // namespace orvanta::display

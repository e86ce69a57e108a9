// The picture view's geometry: which rectangle of the picture is shown and where it lands
// in the view, for the three ways of looking at a picture (fit, actual size toggled or
// held with the left button, and the magnifier under the right button), with the pan
// offsets that keep the shown part inside the picture. No window here: the view feeds in
// sizes, button states and cursor points and draws what comes out. Single-thread (the
// user-interface thread); a value type.
#pragma once

#include <cstdint>

#include "settings/placement.h"

namespace orvanta::display {

// Client and picture rectangles: left and top inside, right and bottom outside.
using ViewRect = settings::Rect;

struct ViewPoint {
    int x = 0;
    int y = 0;
};

// a x b / c rounded to the nearest integer (halves away from zero) in 64 bits; -1 when c
// is 0.
int MulDiv(int a, int b, int c);

struct AspectFitResult {
    ViewRect rect;
    int zoomPercent = 100;
};

// The largest rectangle of the source's aspect ratio inside `bounds`, centred on the axis
// that has room to spare. A side that comes out one pixel short of the bound is snapped to
// it, so that rounding never leaves a one-pixel seam.
AspectFitResult AspectFit(int sourceWidth, int sourceHeight, const ViewRect& bounds);

struct Layout {
    ViewRect source;        // picture pixels
    ViewRect destination;   // client pixels
    bool enlarged = false;  // a small picture is drawn larger than its pixels
    int zoomPercent = 100;
    friend bool operator==(const Layout&, const Layout&) = default;
};

// Pan steps of a drag: `distance` pixels the mouse moved on one axis in one event, `ratio`
// picture pixels per destination pixel (at least 1), `acceleration` |SmartMouseAcceleration|
// / 100. Slow moves pan pixel for pixel; fast ones pan faster on pictures much larger than
// their destination.
int DragStep(int distance, double ratio, double acceleration);

class ViewGeometry {
public:
    // A new picture; the pan is kept while a button holds the mouse (`mouseCaptured`).
    void SetPicture(int width, int height, bool mouseCaptured);
    void SetOptions(int magnifierPercent, bool stretchSmallImages) {
        magnifierPercent_ = magnifierPercent;
        stretchSmallImages_ = stretchSmallImages;
    }
    // A picture the view owns (start and error pictures), and whether it carries a caption
    // text: such pictures are never enlarged.
    void SetViewOwned(bool viewOwned, bool hasCaptionText) {
        viewOwned_ = viewOwned;
        hasCaptionText_ = hasCaptionText;
    }

    // Lays the picture out in `client` (clamping the pan) and remembers the destination
    // and the zoom percentage.
    Layout ComputeLayout(const ViewRect& client);

    void ToggleActualSize();
    // The left button went down at `cursor` (client coordinates): actual size while held.
    void BeginHoldZoom(ViewPoint cursor);
    void EndHoldZoom();
    // The right button went down at `cursor`: the magnifier while held (only when the
    // magnifier percentage is not 0).
    void BeginMagnifier(ViewPoint cursor);
    // The right button rose; `leftButtonDown` tells whether the left button still holds
    // actual size, which then takes over again about `anchor`, where the drag began.
    void EndMagnifier(bool leftButtonDown, ViewPoint anchor);

    // A drag step: the cursor moved by (dx, dy) client pixels since the anchor.
    void Drag(int dx, int dy, double acceleration, bool shift, bool inverted);
    // An arrow key in a zoomed way; false when the key is left to the main window.
    enum class Arrow { Left, Right, Up, Down };
    bool ArrowKey(Arrow arrow, bool shift, bool ctrl, const ViewRect& client);

    // Whether the picture can be panned (the hand cursor).
    bool CanPan(const ViewRect& client) const;
    bool Zoomed() const { return actualSizeMode_ || holdZoom_ || MagnifierOn(); }

    bool ActualSizeMode() const { return actualSizeMode_; }
    bool HoldZoom() const { return holdZoom_; }
    bool MagnifierActive() const { return magnifierActive_; }
    int PanX() const { return panX_; }
    int PanY() const { return panY_; }
    int ZoomPercent() const { return zoomPercent_; }
    const ViewRect& Destination() const { return destination_; }

private:
    bool MagnifierOn() const { return magnifierActive_ && magnifierPercent_ != 0; }
    void ApplyPan(ViewRect& source, bool wider, bool taller);
    void Ratios(const ViewRect& reference, double& rx, double& ry) const;
    void PanAboutCursor(const ViewRect& reference, ViewPoint cursor);

    int width_ = 0;
    int height_ = 0;
    int magnifierPercent_ = 300;
    bool stretchSmallImages_ = false;
    bool viewOwned_ = false;
    bool hasCaptionText_ = false;
    bool actualSizeMode_ = false;
    bool holdZoom_ = false;
    bool magnifierActive_ = false;
    int panX_ = 0;
    int panY_ = 0;
    ViewRect destination_;
    ViewRect savedDestination_;
    int zoomPercent_ = 100;
};

}  // namespace orvanta::display

// The picture view the frame talks to: the current picture (a decoded picture, the start
// picture with its caption, or the error picture), the copied stamp and the mark badge, the
// geometry of fit, actual size and magnifier, and all mouse and key input on the view
// (holding and dragging, the magnifier, arrow-key panning, the hand cursor, hiding an idle
// cursor, the hover over the bottom strip). What to draw is decided here once per frame
// (`Plan`), so that the two presenters deriving from it, the raster one and the OpenGL
// one, put the same things in the same places.
//
// Thread rules: user-interface thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include <QImage>
#include <QPoint>
#include <QTimer>
#include <QWidget>

#include "decode/decoded_picture.h"
#include "display/view_geometry.h"
#include "list/picture_entry.h"

namespace orvanta::display {

// How the picture is sampled for one frame.
enum class Filter {
    Nearest,    // each screen pixel shows one picture pixel
    Linear,     // bilinear
    Mipmapped,  // a reduction sampled from pre-reduced levels, so fine detail does not shimmer
};

// The caption box forces plain copies; a reduction is filtered (from mipmaps when
// multi-sampling is on); an enlargement is smooth only for a stretched small picture or when
// the user asks for smooth pixels, so that a photographer sees the pixels at 100% and above.
Filter ChooseFilter(bool reducing, bool enlarged, bool caption, bool smoothPixels,
                    bool multisampling);

// Everything one frame shows, in widget pixels.
struct DrawPlan {
    bool decoded = false;  // a decoded picture is shown (else the view's own picture, if any)
    QImage owned;          // the start or error picture
    Layout layout;         // destination already moved up for the caption box
    Filter filter = Filter::Nearest;
    bool reducing = false;
    QString caption;
    QRect captionBox;   // empty without a caption
    QRect copiedStamp;  // empty when not shown
    QRect markBadge;    // empty when not shown
};

class PictureView : public QWidget {
    Q_OBJECT

public:
    // The picture moves up this far to leave room for its caption box.
    static constexpr int kCaptionLift = 32;

    explicit PictureView(QWidget* parent = nullptr);

    void SetPicture(std::shared_ptr<const decode::DecodedPicture> picture);
    // The start picture with its caption text (empty: no caption).
    void ShowStartPicture(const QString& caption);
    void ShowErrorPicture();
    // The copied stamp and the mark badge of the shown entry.
    void SetStamps(bool copied, bool marked);
    // The culling marks of the shown entry: the badge at the bottom-left corner shows while
    // any is set and the stamp overlays are on.
    void SetMarks(const list::CullingMarks& marks);
    bool ShowsMarkBadge() const;
    // The actual-size command.
    void ToggleActualSize();
    // The picture a step in the direction of travel will most likely show: while the view is
    // idle its smooth reduction to the size it will be shown at is made on a pool thread, so
    // that its first frame is already smooth and needs no reduction then (the accelerated
    // view loads it into a texture of its own as well). Replaces what was prepared before;
    // nothing is made for a picture that will be drawn from its own pixels.
    void Prepare(std::shared_ptr<const decode::DecodedPicture> next);
    // The picture prepared (`made`: only once its reduction came), or none (tests).
    const decode::DecodedPicture* PreparedPicture(bool made) const;

    const std::shared_ptr<const decode::DecodedPicture>& Picture() const { return picture_; }
    const ViewGeometry& Geometry() const { return geometry_; }
    // The destination of the last paint, in widget pixels.
    QRect LastDestination() const { return lastDestination_; }
    // Paints counted since construction (benchmarks and tests wait for the next one).
    std::uint64_t PaintCount() const { return paints_; }
    // Frames that reached the window: for the raster view, painted and copied to the window
    // system; for the accelerated view, swapped to the screen.
    virtual std::uint64_t PresentCount() const { return presents_; }
    bool CursorHidden() const { return cursorHidden_; }

    // What the view shows now, as the screen would (tests and --screenshot).
    virtual QImage Screenshot() = 0;
    virtual bool Accelerated() const = 0;
    // Draws the next frame (a plain update() on the raster path).
    virtual void Redraw() { update(); }

    // The frame layout for the current state in a `width` x `height` view. Non-const: the
    // geometry clamps the pan as it lays out.
    DrawPlan Plan(int width, int height);

    // The pictures of the overlays and of the view's own pictures, drawn at first use.
    static const QImage& CopiedStampImage();
    static const QImage& MarkBadgeImage();
    static QImage StartImage();
    static QImage ErrorImage();
    static QImage CaptionImage(const QSize& size, const QString& text);

signals:
    void Painted();
    // A button went down on the view, or the cursor rests away from the bottom strip: the
    // frame may hide its auto-hidden panel.
    void PanelHideRequested();
    // The cursor rests on the bottom strip, or Alt went down: the frame shows its panel.
    void PanelShowRequested();
    // The middle button: the keep command.
    void KeepRequested();
    // The accelerated drawing failed twice in a row; the frame restarts without it.
    void DisplayFailed();
    // The current picture's frame is out and the reduction it needs, if any, has come: the
    // view is idle until the next input (once per picture and view size).
    void Settled();

protected:
    void NotePainted(const QRect& destination);
    // Calls `call` when the event loop comes round, unless a call under the same flag is on
    // its way already. `posted` is a member of this view (it must live as long as the view).
    void PostOnce(bool& posted, std::function<void()> call);

    // A picture much larger than its destination is drawn from a copy reduced to exactly the
    // destination's size, made with smoothing on a pool thread after the first frame of a
    // new picture or size; until it arrives a presenter makes do with an unsmoothed one. The
    // size the decoded picture of `plan` is reduced to, or an empty size when it is drawn
    // from its own pixels (zoomed, or not much larger than its destination).
    static QSize ReductionTarget(const DrawPlan& plan, bool zoomed);
    // The smooth reduction of the current picture to `size`, or a null image until it came;
    // each painted frame starts the one its layout needs.
    const QImage& SmoothReduction(const QSize& size) const;
    // The smooth reduction of the prepared picture came; it becomes SmoothReduction's image
    // (the same QImage::cacheKey) if that picture is shown next at this size.
    virtual void ReductionPrepared(const QImage& /*reduction*/) {}

    bool event(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

    std::shared_ptr<const decode::DecodedPicture> picture_;
    QImage image_;  // wraps picture_'s pixels
    bool startPicture_ = false;
    bool errorPicture_ = false;
    QString caption_;

private:
    // The prepared picture's reduction, made on the pool.
    struct Reduction {
        std::weak_ptr<const decode::DecodedPicture> picture;
        QSize size;
        QImage image;                 // null while it is being made
        std::uint64_t ticket = 0;     // tells a late result from the one awaited
        std::uint64_t adoptedAt = 0;  // the generation that showed it while it was made
    };

    // After each frame: starts making the reduction the current layout needs unless it is
    // there or on its way, or says the view settled.
    void AfterFrame();
    void ForgetReduction();
    // The size `picture` would be reduced to if it were shown now (empty: not reduced).
    QSize TargetFor(const decode::DecodedPicture& picture);
    // Makes `source` reduced to `target` on a pool thread and hands it to `done` on this
    // thread, unless the view went meanwhile.
    void Reduce(std::shared_ptr<const decode::DecodedPicture> picture, const QImage& source,
                QSize target, std::function<void(PictureView&, QImage)> done);
    void PreparedCame(std::uint64_t ticket, QImage reduced);
    void UpdateOptions();
    void UpdateCursor();
    void ShowCursor();
    void HideCursor();
    bool ViewOwned() const { return image_.isNull(); }
    void Capture(const QPoint& global, bool magnifier);
    void Release();
    bool ArrowAllowed(int key, Qt::KeyboardModifiers modifiers, bool apply);
    void Hover(const QPoint& global);

    ViewGeometry geometry_;
    bool copied_ = false;
    bool marked_ = false;
    bool captured_ = false;
    QPoint anchor_;  // screen point where the drag began
    QPoint home_;    // where the hidden cursor goes back to
    bool cursorHidden_ = false;
    bool dragHidden_ = false;
    QPoint idlePoint_{-100000, -100000};
    QPoint hoverPoint_{-100000, -100000};
    QTimer stripShow_;  // the cursor rests on the bottom strip
    QTimer stripHide_;  // the cursor rests above it
    QTimer idle_;       // hides a resting cursor
    QRect lastDestination_;
    std::uint64_t paints_ = 0;
    std::uint64_t presents_ = 0;
    QImage reduced_;  // picture_ reduced to reducedSize_
    QSize reducedSize_;
    bool reducing_ = false;         // a reduction of the current picture is being made
    bool reductionPosted_ = false;  // a look at whether one is needed will come
    std::uint64_t generation_ = 0;  // counts the pictures shown, to drop a late reduction
    Reduction prepared_;
    std::uint64_t tickets_ = 0;
    std::uint64_t settledGeneration_ = 0;
    QSize settledSize_;
};

// Wraps a decoded picture's pixels in a QImage without copying; null for formats the view
// cannot draw.
QImage WrapPicture(const decode::DecodedPicture& picture);

ViewRect ToViewRect(const QRect& r);
QRect ToQRect(const ViewRect& r);

}  // namespace orvanta::display

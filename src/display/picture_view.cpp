#include "display/picture_view.h"

#include <cmath>
#include <cstdlib>
#include <utility>

#include <QCoreApplication>
#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMetaObject>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QScreen>
#include <QThreadPool>

#include "app/check_point.h"
#include "i18n/current_language.h"
#include "settings/settings.h"

namespace orvanta::display {

namespace {

// The hidden cursor of a drag is kept this far inside its screen's edges, so that it never
// stops at an edge while the picture is still moving.
constexpr int kEdgeMargin = 64;
// Pictures up to this many times their destination's area are drawn from their own pixels;
// larger ones from a reduction to the destination's size.
constexpr double kReduceAbove = 1.5;
constexpr int kStripShowMs = 100;
constexpr int kStripHideMs = 800;
constexpr int kIdleHideMs = 3500;
// The bottom strip's height at 96 dpi.
constexpr int kStripHeight = 30;
constexpr int kCaptionGap = 8;
constexpr int kCaptionHeight = 72;
const QPoint kNowhere(-100000, -100000);

QImage::Format FormatFor(imaging::PixelFormat format) {
    switch (format) {
        case imaging::PixelFormat::Pbgra32:
            return QImage::Format_ARGB32_Premultiplied;
        case imaging::PixelFormat::Bgra32:
            return QImage::Format_ARGB32;
        case imaging::PixelFormat::Bgr32:
            return QImage::Format_RGB32;
        case imaging::PixelFormat::Bgr24:
            return QImage::Format_BGR888;
        case imaging::PixelFormat::Rgb24:
            return QImage::Format_RGB888;
        case imaging::PixelFormat::Gray8:
            return QImage::Format_Grayscale8;
        default:
            return QImage::Format_Invalid;
    }
}

bool Near(const QPoint& a, const QPoint& b, int distance) {
    return std::abs(a.x() - b.x()) <= distance && std::abs(a.y() - b.y()) <= distance;
}

// The padding of the caption box, from the language module (0 when it gives none).
int CaptionPadding() {
    static const int padding = [] {
        const std::string_view text = i18n::Text(20000);
        const int value = std::abs(std::atoi(std::string(text).c_str()));
        return std::min(value, 72);
    }();
    return padding;
}

}  // namespace

ViewRect ToViewRect(const QRect& r) {
    return ViewRect{r.left(), r.top(), r.left() + r.width(), r.top() + r.height()};
}

QRect ToQRect(const ViewRect& r) {
    return QRect(r.left, r.top, r.right - r.left, r.bottom - r.top);
}

QImage WrapPicture(const decode::DecodedPicture& picture) {
    const QImage::Format format = FormatFor(picture.pixels.Format());
    if (format == QImage::Format_Invalid || picture.width == 0 || picture.height == 0) {
        return {};
    }
    const auto bytes = picture.pixels.Bytes();
    return QImage(reinterpret_cast<const uchar*>(bytes.data()), static_cast<int>(picture.width),
                  static_cast<int>(picture.height), static_cast<qsizetype>(picture.pixels.Stride()),
                  format);
}

Filter ChooseFilter(bool reducing, bool enlarged, bool caption, bool smoothPixels,
                    bool multisampling) {
    if (caption) {
        return Filter::Nearest;
    }
    if (reducing) {
        return multisampling ? Filter::Mipmapped : Filter::Linear;
    }
    return smoothPixels || enlarged ? Filter::Linear : Filter::Nearest;
}

// --- the view's own pictures -----------------------------------------------------------

namespace {

// The frame around the view's own pictures, with `content` drawn inside it.
template <typename Content>
QImage FramedImage(Content content) {
    QImage image(320, 213, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(150, 150, 150), 4));
    p.drawRoundedRect(QRectF(4, 4, 312, 205), 12, 12);
    content(p);
    return image;
}

}  // namespace

QImage PictureView::StartImage() {
    // A framed landscape: the view's own picture before any picture is open.
    return FramedImage([](QPainter& p) {
        p.setBrush(QColor(90, 90, 90));
        p.setPen(Qt::NoPen);
        p.drawEllipse(QPointF(100, 70), 22, 22);
        QPolygonF hills;
        hills << QPointF(20, 190) << QPointF(120, 100) << QPointF(180, 150) << QPointF(230, 110)
              << QPointF(300, 190);
        p.drawPolygon(hills);
    });
}

QImage PictureView::ErrorImage() {
    return FramedImage([](QPainter& p) {
        p.setPen(QPen(QColor(200, 70, 60), 6));
        p.drawLine(60, 40, 260, 173);
        p.drawLine(260, 40, 60, 173);
    });
}

const QImage& PictureView::CopiedStampImage() {
    static const QImage image = [] {
        QImage stamp(314, 174, QImage::Format_ARGB32_Premultiplied);
        stamp.fill(Qt::transparent);
        QPainter p(&stamp);
        p.setRenderHint(QPainter::Antialiasing);
        p.setBrush(QColor(20, 20, 20, 150));
        p.setPen(QPen(QColor(90, 200, 110, 220), 6));
        p.drawRoundedRect(QRectF(5, 5, 304, 164), 24, 24);
        QPainterPath tick;
        tick.moveTo(100, 90);
        tick.lineTo(140, 130);
        tick.lineTo(218, 48);
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(QColor(90, 200, 110, 240), 18, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPath(tick);
        return stamp;
    }();
    return image;
}

const QImage& PictureView::MarkBadgeImage() {
    static const QImage image = [] {
        QImage badge(128, 128, QImage::Format_ARGB32_Premultiplied);
        badge.fill(Qt::transparent);
        QPainter p(&badge);
        p.setRenderHint(QPainter::Antialiasing);
        QPolygonF corner;
        corner << QPointF(0, 128) << QPointF(0, 24) << QPointF(104, 128);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(240, 170, 30, 200));
        p.drawPolygon(corner);
        p.setBrush(QColor(255, 255, 255, 230));
        p.drawEllipse(QPointF(28, 100), 10, 10);
        return badge;
    }();
    return image;
}

QImage PictureView::CaptionImage(const QSize& size, const QString& text) {
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    QPainter p(&image);
    p.setRenderHint(QPainter::TextAntialiasing);
    QFont font = p.font();
    font.setPointSizeF(10);
    p.setFont(font);
    p.setPen(QColor(255, 255, 255, 160));
    p.drawText(QRect(QPoint(0, 0), size).adjusted(8, 0, -8, 0),
               Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, text);
    return image;
}

// --- state -----------------------------------------------------------------------------

PictureView::PictureView(QWidget* parent) : QWidget(parent) {
    setMinimumSize(64, 48);
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    for (QTimer* timer : {&stripShow_, &stripHide_, &idle_}) {
        timer->setSingleShot(true);
    }
    connect(&stripShow_, &QTimer::timeout, this, [this] {
        stripHide_.stop();
        if (Near(QCursor::pos(), hoverPoint_, 3)) {
            hoverPoint_ = kNowhere;
            emit PanelShowRequested();
        }
    });
    connect(&stripHide_, &QTimer::timeout, this, [this] {
        stripShow_.stop();
        if (Near(QCursor::pos(), hoverPoint_, 1)) {
            emit PanelHideRequested();
            hoverPoint_ = kNowhere;
        }
    });
    connect(&idle_, &QTimer::timeout, this, [this] {
        if (Near(QCursor::pos(), idlePoint_, 2)) {
            HideCursor();
        }
    });
}

void PictureView::SetPicture(std::shared_ptr<const decode::DecodedPicture> picture) {
    SetCheckPoint(240);
    ForgetReduction();
    picture_ = std::move(picture);
    if (picture_ != nullptr && prepared_.picture.lock() == picture_) {
        // The prepared picture: its reduction is taken as it is, or when it comes.
        if (!prepared_.image.isNull()) {
            reduced_ = std::exchange(prepared_, {}).image;
            reducedSize_ = reduced_.size();
        } else {
            prepared_.adoptedAt = generation_;
            reducing_ = true;
        }
    }
    startPicture_ = false;
    errorPicture_ = false;
    image_ = picture_ ? WrapPicture(*picture_) : QImage();
    if (image_.isNull()) {
        errorPicture_ = true;
    } else {
        geometry_.SetViewOwned(false, false);
        geometry_.SetPicture(image_.width(), image_.height(), captured_);
    }
    UpdateCursor();
    Redraw();
}

void PictureView::ShowStartPicture(const QString& caption) {
    ForgetReduction();
    prepared_ = {};  // the folder was closed
    picture_.reset();
    image_ = {};
    startPicture_ = true;
    errorPicture_ = false;
    caption_ = caption;
    geometry_.SetViewOwned(true, !caption.isEmpty());
    UpdateCursor();
    Redraw();
}

void PictureView::ShowErrorPicture() {
    ForgetReduction();
    picture_.reset();
    image_ = {};
    startPicture_ = false;
    errorPicture_ = true;
    geometry_.SetViewOwned(true, false);
    UpdateCursor();
    Redraw();
}

void PictureView::SetStamps(bool copied, bool marked) {
    if (copied != copied_ || marked != marked_) {
        copied_ = copied;
        marked_ = marked;
        Redraw();
    }
}

void PictureView::SetMarks(const list::CullingMarks& marks) {
    const bool any = marks.rating >= 1 || marks.label >= 1 || marks.urgency >= 1;
    SetStamps(copied_, any && settings::EnableCopiedStampOverlay.On());
}

bool PictureView::ShowsMarkBadge() const {
    return marked_ && picture_ != nullptr;
}

void PictureView::ToggleActualSize() {
    UpdateOptions();
    geometry_.ToggleActualSize();
    UpdateCursor();
    Redraw();
}

void PictureView::UpdateOptions() {
    geometry_.SetOptions(static_cast<int>(settings::RightClickMagnifier.Get()),
                         settings::StretchSmallImages.On());
}

DrawPlan PictureView::Plan(int width, int height) {
    UpdateOptions();
    DrawPlan plan;
    const ViewRect client{0, 0, width, height};
    const bool caption = !ViewOwned() ? false : startPicture_ && !caption_.isEmpty();
    if (!image_.isNull()) {
        plan.decoded = true;
        plan.layout = geometry_.ComputeLayout(client);
    } else {
        plan.owned = errorPicture_ ? ErrorImage() : startPicture_ ? StartImage() : QImage();
        if (!plan.owned.isNull()) {
            ViewGeometry owned;
            owned.SetOptions(0, false);
            owned.SetViewOwned(true, caption);
            owned.SetPicture(plan.owned.width(), plan.owned.height(), false);
            plan.layout = owned.ComputeLayout(client);
        }
    }
    Layout& layout = plan.layout;
    plan.reducing = layout.destination.Width() < layout.source.Width() ||
                    layout.destination.Height() < layout.source.Height();
    plan.filter =
        ChooseFilter(plan.reducing, layout.enlarged, caption,
                     settings::SmoothPixelsInZoomModes.On(), settings::MultiSampling.On());
    if (caption) {
        layout.destination.top -= kCaptionLift;
        layout.destination.bottom -= kCaptionLift;
        const QRect destination = ToQRect(layout.destination);
        const int boxWidth =
            static_cast<int>(std::lround(destination.width() * logicalDpiX() / 96.0)) +
            CaptionPadding() + 160;
        QRect box(0, destination.bottom() + 1 + kCaptionGap, boxWidth, kCaptionHeight);
        box.moveLeft(destination.center().x() - boxWidth / 2);
        if (box.bottom() >= height) {
            box.setBottom(height - 1);
        }
        plan.caption = caption_;
        plan.captionBox = box.height() > 0 ? box : QRect();
    }
    if (plan.decoded) {
        if (copied_ && settings::EnableCopiedStampOverlay.On()) {
            const QSize size = CopiedStampImage().size();
            plan.copiedStamp =
                QRect(QPoint((width - size.width()) / 2, (height - size.height()) / 2), size);
        }
        if (marked_) {
            const QSize size = MarkBadgeImage().size();
            plan.markBadge = QRect(QPoint(0, height - size.height()), size);
        }
    }
    return plan;
}

void PictureView::NotePainted(const QRect& destination) {
    lastDestination_ = destination;
    ++paints_;
    // The frame is out (the copy of the backing store to the window system, a buffer swap)
    // when the paint has returned and the posted call runs; a reduction started before
    // would compete with it for the processor.
    PostOnce(reductionPosted_, [this] {
        ++presents_;
        AfterFrame();
    });
    emit Painted();
}

void PictureView::PostOnce(bool& posted, std::function<void()> call) {
    if (posted) {
        return;
    }
    posted = true;
    QMetaObject::invokeMethod(
        this,
        [&posted, call = std::move(call)] {
            posted = false;
            call();
        },
        Qt::QueuedConnection);
}

// --- cursor ----------------------------------------------------------------------------

void PictureView::UpdateCursor() {
    if (cursorHidden_) {
        setCursor(Qt::BlankCursor);
        return;
    }
    UpdateOptions();
    const bool hand = !ViewOwned() && geometry_.CanPan(ToViewRect(rect()));
    setCursor(hand ? Qt::PointingHandCursor : Qt::ArrowCursor);
}

void PictureView::ShowCursor() {
    idle_.stop();
    if (cursorHidden_) {
        cursorHidden_ = false;
        UpdateCursor();
    }
}

void PictureView::HideCursor() {
    cursorHidden_ = true;
    setCursor(Qt::BlankCursor);
}

// --- mouse -----------------------------------------------------------------------------

void PictureView::Capture(const QPoint& global, bool magnifier) {
    if (!captured_) {
        captured_ = true;
        anchor_ = global;
        if (settings::HideZoomMouseCursor.On()) {
            home_ = global;
            if (const QScreen* screen = QGuiApplication::screenAt(global)) {
                const QRect edges = screen->geometry().adjusted(kEdgeMargin, kEdgeMargin,
                                                                -kEdgeMargin, -kEdgeMargin);
                if (edges.isValid()) {
                    anchor_ = QPoint(std::clamp(global.x(), edges.left(), edges.right()),
                                     std::clamp(global.y(), edges.top(), edges.bottom()));
                }
            }
            if (anchor_ != global) {
                QCursor::setPos(anchor_);
            }
            HideCursor();
            dragHidden_ = true;
        }
    }
    const QPoint c = mapFromGlobal(anchor_);
    if (magnifier) {
        geometry_.BeginMagnifier({c.x(), c.y()});
    } else {
        geometry_.BeginHoldZoom({c.x(), c.y()});
    }
    UpdateCursor();
    Redraw();
}

void PictureView::Release() {
    captured_ = false;
    if (dragHidden_) {
        dragHidden_ = false;
        QCursor::setPos(home_);
        cursorHidden_ = false;
    }
}

void PictureView::mousePressEvent(QMouseEvent* event) {
    UpdateOptions();
    const QPoint global = event->globalPosition().toPoint();
    switch (event->button()) {
        case Qt::LeftButton:
            ShowCursor();
            emit PanelHideRequested();
            if (geometry_.MagnifierActive() || ViewOwned()) {
                return;
            }
            Capture(global, false);
            return;
        case Qt::RightButton:
            if (settings::RightClickMagnifier.Get() == 0) {
                return;
            }
            ShowCursor();
            emit PanelHideRequested();
            if (ViewOwned()) {
                return;
            }
            Capture(global, true);
            return;
        case Qt::MiddleButton:
            emit PanelHideRequested();
            emit KeepRequested();
            return;
        default:
            // The back and forward buttons belong to the frame.
            event->ignore();
    }
}

void PictureView::mouseDoubleClickEvent(QMouseEvent* event) {
    mousePressEvent(event);
}

void PictureView::mouseReleaseEvent(QMouseEvent* event) {
    UpdateOptions();
    if (ViewOwned()) {
        return;
    }
    if (event->button() == Qt::LeftButton) {
        if (captured_ && !geometry_.MagnifierActive()) {
            Release();
        }
        geometry_.EndHoldZoom();
    } else if (event->button() == Qt::RightButton) {
        if (settings::RightClickMagnifier.Get() == 0) {
            return;
        }
        const bool leftDown = (event->buttons() & Qt::LeftButton) != 0;
        if (captured_ && !leftDown && !geometry_.HoldZoom()) {
            Release();
        }
        const QPoint anchor = mapFromGlobal(anchor_);
        geometry_.EndMagnifier(leftDown, {anchor.x(), anchor.y()});
    } else {
        event->ignore();
        return;
    }
    UpdateCursor();
    Redraw();
}

void PictureView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint global = event->globalPosition().toPoint();
    if (captured_ && (event->buttons() & (Qt::LeftButton | Qt::RightButton)) != 0) {
        const QPoint moved = global - anchor_;
        if (moved.isNull()) {
            return;
        }
        const double acceleration =
            std::abs(static_cast<std::int32_t>(settings::SmartMouseAcceleration.Get())) / 100.0;
        geometry_.Drag(moved.x(), moved.y(), acceleration,
                       (event->modifiers() & Qt::ShiftModifier) != 0,
                       settings::EnableInvertedZoomScrolling.On());
        if (dragHidden_) {
            QCursor::setPos(anchor_);
        } else {
            anchor_ = global;
        }
        Redraw();
        return;
    }
    Hover(global);
}

void PictureView::Hover(const QPoint& global) {
    if (settings::AutoHideTaskbar.On()) {
        const int strip = static_cast<int>(std::lround(kStripHeight * logicalDpiY() / 96.0));
        const QPoint local = mapFromGlobal(global);
        const bool inStrip = rect().contains(local) && local.y() >= height() - strip;
        if (inStrip) {
            stripHide_.stop();
            if (!Near(global, hoverPoint_, 2)) {
                hoverPoint_ = global;
                stripShow_.start(kStripShowMs);
            }
        } else {
            stripShow_.stop();
            if (!Near(global, hoverPoint_, 2)) {
                hoverPoint_ = global;
                stripHide_.start(kStripHideMs);
            }
        }
    }
    if (settings::AutoHideMouseCursor.On()) {
        const bool moved = !Near(global, idlePoint_, 2);
        if (cursorHidden_ && moved) {
            ShowCursor();
        }
        if (moved) {
            idlePoint_ = global;
            idle_.start(kIdleHideMs);
        }
    }
}

// --- keys ------------------------------------------------------------------------------

bool PictureView::ArrowAllowed(int key, Qt::KeyboardModifiers modifiers, bool apply) {
    ViewGeometry::Arrow arrow;
    switch (key) {
        case Qt::Key_Left:
            arrow = ViewGeometry::Arrow::Left;
            break;
        case Qt::Key_Right:
            arrow = ViewGeometry::Arrow::Right;
            break;
        case Qt::Key_Up:
            arrow = ViewGeometry::Arrow::Up;
            break;
        case Qt::Key_Down:
            arrow = ViewGeometry::Arrow::Down;
            break;
        default:
            return false;
    }
    if (ViewOwned()) {
        return false;
    }
    UpdateOptions();
    const bool shift = (modifiers & Qt::ShiftModifier) != 0;
    const bool ctrl = (modifiers & Qt::ControlModifier) != 0;
    if (apply) {
        return geometry_.ArrowKey(arrow, shift, ctrl, ToViewRect(rect()));
    }
    ViewGeometry trial = geometry_;
    return trial.ArrowKey(arrow, shift, ctrl, ToViewRect(rect()));
}

bool PictureView::event(QEvent* event) {
    // An arrow key that pans wins over the frame's shortcuts for the same key.
    if (event->type() == QEvent::ShortcutOverride) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (ArrowAllowed(key->key(), key->modifiers(), false)) {
            event->accept();
            return true;
        }
    }
    return QWidget::event(event);
}

void PictureView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Alt) {
        ShowCursor();
        hoverPoint_ = QCursor::pos();
        stripShow_.stop();
        stripHide_.stop();
        emit PanelShowRequested();
        event->accept();
        return;
    }
    if (ArrowAllowed(event->key(), event->modifiers(), true)) {
        Redraw();
        event->accept();
        return;
    }
    event->ignore();
}

void PictureView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    UpdateCursor();
}

void PictureView::ForgetReduction() {
    ++generation_;
    reduced_ = {};
    reducedSize_ = {};
    reducing_ = false;
}

QSize PictureView::ReductionTarget(const DrawPlan& plan, bool zoomed) {
    const QSize target = ToQRect(plan.layout.destination).size();
    const double area = double(plan.layout.source.Width()) * plan.layout.source.Height();
    if (!plan.decoded || zoomed || target.isEmpty() ||
        area <= kReduceAbove * target.width() * target.height()) {
        return {};
    }
    return target;
}

const QImage& PictureView::SmoothReduction(const QSize& size) const {
    static const QImage none;
    return reducedSize_ == size ? reduced_ : none;
}

void PictureView::AfterFrame() {
    if (reducing_ || image_.isNull() || width() <= 0 || height() <= 0) {
        return;  // one at a time: when it comes, its frame starts the next if the size changed
    }
    const QSize target = ReductionTarget(Plan(width(), height()), geometry_.Zoomed());
    if (target.isEmpty() || target == reducedSize_) {
        if (settledGeneration_ != generation_ || settledSize_ != size()) {
            settledGeneration_ = generation_;
            settledSize_ = size();
            emit Settled();
        }
        return;
    }
    reducing_ = true;
    const std::uint64_t generation = generation_;
    Reduce(picture_, image_, target, [generation, target](PictureView& view, QImage reduced) {
        if (view.generation_ != generation) {
            return;  // another picture came
        }
        view.reducing_ = false;
        view.reduced_ = std::move(reduced);
        view.reducedSize_ = target;
        view.Redraw();
    });
}

void PictureView::Reduce(std::shared_ptr<const decode::DecodedPicture> picture,
                         const QImage& source, QSize target,
                         std::function<void(PictureView&, QImage)> done) {
    // The job keeps the picture alive. The view may go while it runs: the pointer is looked
    // at only on the view's thread, where the result is handed over through the application
    // object.
    QPointer<PictureView> self(this);
    QThreadPool::globalInstance()->start(
        [picture = std::move(picture), source, target, self, done = std::move(done)] {
            QImage reduced = source.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            QCoreApplication* application = QCoreApplication::instance();
            if (application == nullptr) {
                return;
            }
            QMetaObject::invokeMethod(
                application,
                [self, reduced = std::move(reduced), done] {
                    if (self) {
                        done(*self, reduced);
                    }
                },
                Qt::QueuedConnection);
        });
}

QSize PictureView::TargetFor(const decode::DecodedPicture& picture) {
    DrawPlan plan;
    plan.decoded = true;
    ViewGeometry geometry = geometry_;
    geometry.SetViewOwned(false, false);
    geometry.SetPicture(static_cast<int>(picture.width), static_cast<int>(picture.height),
                        captured_);
    plan.layout = geometry.ComputeLayout(ViewRect{0, 0, width(), height()});
    return ReductionTarget(plan, geometry.Zoomed());
}

void PictureView::Prepare(std::shared_ptr<const decode::DecodedPicture> next) {
    if (next == nullptr || next == picture_ || width() <= 0 || height() <= 0 ||
        (prepared_.adoptedAt != 0 && prepared_.adoptedAt == generation_)) {
        return;  // nothing to do, or the one being made is the current picture's reduction
    }
    const QImage source = WrapPicture(*next);
    const QSize target = source.isNull() ? QSize() : TargetFor(*next);
    if (prepared_.picture.lock() == next && prepared_.size == target) {
        return;  // made, or on its way
    }
    prepared_ = {};
    if (target.isEmpty()) {
        return;
    }
    prepared_.picture = next;
    prepared_.size = target;
    prepared_.ticket = ++tickets_;
    const std::uint64_t ticket = prepared_.ticket;
    Reduce(std::move(next), source, target, [ticket](PictureView& view, QImage reduced) {
        view.PreparedCame(ticket, std::move(reduced));
    });
}

void PictureView::PreparedCame(std::uint64_t ticket, QImage reduced) {
    if (prepared_.ticket != ticket) {
        return;  // prepared again since
    }
    if (prepared_.adoptedAt != 0) {
        // It was shown while being made: it is the current picture's reduction, unless the
        // view moved on again.
        const bool current = prepared_.adoptedAt == generation_;
        prepared_ = {};
        if (current) {
            reducing_ = false;
            reduced_ = std::move(reduced);
            reducedSize_ = reduced_.size();
            Redraw();
        }
        return;
    }
    prepared_.image = std::move(reduced);
    ReductionPrepared(prepared_.image);
}

const decode::DecodedPicture* PictureView::PreparedPicture(bool made) const {
    if (made && prepared_.image.isNull()) {
        return nullptr;
    }
    return prepared_.picture.lock().get();
}

}  // namespace orvanta::display

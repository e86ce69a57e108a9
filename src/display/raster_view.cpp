#include "display/raster_view.h"

#include <QMetaObject>
#include <QPainter>
#include <QPointer>
#include <QThreadPool>

#include "app/check_point.h"
#include "settings/settings.h"

namespace orvanta::display {

namespace {

// Pictures up to this many times the view's area are drawn directly; larger ones are
// reduced off the user-interface thread first.
constexpr double kReduceAbove = 1.5;
// The caption box of the start picture sits this far below the moved-up destination.
constexpr int kCaptionOffset = 108;

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

ViewRect ToViewRect(const QRect& r) {
    return ViewRect{r.left(), r.top(), r.left() + r.width(), r.top() + r.height()};
}

QRect ToQRect(const ViewRect& r) {
    return QRect(r.left, r.top, r.right - r.left, r.bottom - r.top);
}

}  // namespace

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

RasterView::RasterView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(64, 48);
}

void RasterView::SetPicture(std::shared_ptr<const decode::DecodedPicture> picture) {
    SetCheckPoint(240);
    picture_ = std::move(picture);
    startPicture_ = false;
    errorPicture_ = false;
    ++generation_;
    reduced_ = {};
    image_ = picture_ ? WrapPicture(*picture_) : QImage();
    if (image_.isNull()) {
        errorPicture_ = true;
    } else {
        geometry_.SetViewOwned(false, false);
        geometry_.SetPicture(image_.width(), image_.height(), false);
        StartReduction();
    }
    update();
}

void RasterView::ShowStartPicture(const QString& caption) {
    picture_.reset();
    image_ = {};
    reduced_ = {};
    ++generation_;
    startPicture_ = true;
    errorPicture_ = false;
    caption_ = caption;
    update();
}

void RasterView::ShowErrorPicture() {
    picture_.reset();
    image_ = {};
    reduced_ = {};
    ++generation_;
    startPicture_ = false;
    errorPicture_ = true;
    update();
}

void RasterView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    StartReduction();
}

void RasterView::StartReduction() {
    if (image_.isNull() || width() <= 0 || height() <= 0) {
        return;
    }
    ViewGeometry geometry = geometry_;
    const Layout layout = geometry.ComputeLayout(ToViewRect(rect()));
    const QSize target = ToQRect(layout.destination).size();
    const double area = double(layout.source.right - layout.source.left) *
                        (layout.source.bottom - layout.source.top);
    if (geometry.Zoomed() || target.isEmpty() ||
        area <= kReduceAbove * target.width() * target.height()) {
        return;
    }
    if (target == reducedSize_ && !reduced_.isNull()) {
        return;
    }
    // The job keeps the picture alive; the result is dropped when another picture came.
    const auto picture = picture_;
    const QImage source = image_;
    const std::uint64_t generation = generation_;
    QPointer<RasterView> self(this);
    QThreadPool::globalInstance()->start([picture, source, target, generation, self] {
        QImage reduced = source.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        QMetaObject::invokeMethod(
            self.data(),
            [self, reduced = std::move(reduced), target, generation] {
                if (self && self->generation_ == generation) {
                    self->reduced_ = reduced;
                    self->reducedSize_ = target;
                    self->update();
                }
            },
            Qt::QueuedConnection);
    });
}

QImage RasterView::OwnedPicture() const {
    // The start and error pictures are drawn, not loaded: a frame of a photograph on the
    // start picture, a crossed frame on the error picture.
    QImage image(320, 213, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(150, 150, 150), 4));
    p.drawRoundedRect(QRectF(4, 4, 312, 205), 12, 12);
    if (errorPicture_) {
        p.setPen(QPen(QColor(200, 70, 60), 6));
        p.drawLine(60, 40, 260, 173);
        p.drawLine(260, 40, 60, 173);
    } else {
        p.setBrush(QColor(90, 90, 90));
        p.setPen(Qt::NoPen);
        p.drawEllipse(QPointF(100, 70), 22, 22);
        QPolygonF hills;
        hills << QPointF(20, 190) << QPointF(120, 100) << QPointF(180, 150) << QPointF(230, 110)
              << QPointF(300, 190);
        p.drawPolygon(hills);
    }
    return image;
}

void RasterView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QColor background(0, 0, 0);
    const ViewRect client = ToViewRect(rect());
    if (image_.isNull()) {
        painter.fillRect(rect(), background);
        const QImage owned = OwnedPicture();
        ViewGeometry geometry;
        geometry.SetViewOwned(true, startPicture_ && !caption_.isEmpty());
        geometry.SetPicture(owned.width(), owned.height(), false);
        QRect destination = ToQRect(geometry.ComputeLayout(client).destination);
        if (startPicture_ && !caption_.isEmpty()) {
            // The picture moves up to leave room for its caption below it.
            destination.translate(0, -kCaptionOffset / 2);
        }
        painter.drawImage(destination, owned);
        if (startPicture_ && !caption_.isEmpty()) {
            const QRect box(0, destination.bottom() + kCaptionOffset - 60, width(), 80);
            painter.setPen(QColor(200, 200, 200));
            QFont font = painter.font();
            font.setPointSize(12);
            painter.setFont(font);
            painter.drawText(box.adjusted(20, 0, -20, 0),
                             Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, caption_);
        }
        lastDestination_ = destination;
    } else {
        const Layout layout = geometry_.ComputeLayout(client);
        const QRect destination = ToQRect(layout.destination);
        // Margins around the destination.
        QRegion margins(rect());
        margins -= destination;
        for (const QRect& r : margins) {
            painter.fillRect(r, background);
        }
        const QRect source = ToQRect(layout.source);
        const bool reduction = source.width() > destination.width();
        if (!reduced_.isNull() && reducedSize_ == destination.size() && !geometry_.Zoomed()) {
            painter.drawImage(destination.topLeft(), reduced_);
        } else {
            // Reductions are filtered when multi-sampling asks for it; enlargements only
            // with SmoothPixelsInZoomModes, so that a photographer sees the pixels.
            const bool smooth = reduction ? settings::MultiSampling.Get() != 0
                                          : settings::SmoothPixelsInZoomModes.Get() != 0;
            painter.setRenderHint(QPainter::SmoothPixmapTransform, smooth);
            painter.drawImage(destination, image_, source);
        }
        lastDestination_ = destination;
        PaintMarkBadge(painter);
    }
    ++paints_;
    emit Painted();
}

void RasterView::SetMarks(const list::CullingMarks& marks) {
    if (marks.rating == marks_.rating && marks.label == marks_.label &&
        marks.urgency == marks_.urgency &&
        marks.labellingConvention == marks_.labellingConvention) {
        return;
    }
    marks_ = marks;
    update();
}

bool RasterView::ShowsMarkBadge() const {
    return settings::EnableCopiedStampOverlay.On() && !image_.isNull() &&
           (marks_.rating >= 1 || marks_.label >= 1 || marks_.urgency >= 1);
}

void RasterView::PaintMarkBadge(QPainter& painter) {
    if (!ShowsMarkBadge()) {
        return;
    }
    // 128 x 128 at the bottom-left corner, over the picture.
    constexpr int kBadge = 128;
    const QRect badge(0, height() - kBadge, kBadge, kBadge);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 150));
    painter.drawRoundedRect(badge.adjusted(8, 8, -8, -8), 10, 10);
    QStringList lines;
    if (marks_.rating >= 1) {
        lines << QString(marks_.rating, QChar(0x2605));
    }
    if (marks_.label >= 1) {
        lines << QStringLiteral("L%1").arg(marks_.label);
    }
    if (marks_.urgency >= 1) {
        lines << QStringLiteral("U%1").arg(marks_.urgency);
    }
    QFont font = painter.font();
    font.setPixelSize(20);
    painter.setFont(font);
    painter.setPen(QColor(255, 214, 64));
    painter.drawText(badge.adjusted(12, 12, -12, -12), Qt::AlignCenter, lines.join('\n'));
}

}  // namespace orvanta::display

#include "display/raster_view.h"

#include <QMetaObject>
#include <QPainter>
#include <QPointer>
#include <QThreadPool>

namespace orvanta::display {

namespace {

// Pictures up to this many times the view's area are drawn directly; larger ones are
// reduced off the user-interface thread first.
constexpr double kReduceAbove = 1.5;

}  // namespace

RasterView::RasterView(QWidget* parent) : PictureView(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void RasterView::PictureChanged() {
    ++generation_;
    reduced_ = {};
    StartReduction();
}

void RasterView::resizeEvent(QResizeEvent* event) {
    PictureView::resizeEvent(event);
    StartReduction();
}

void RasterView::StartReduction() {
    if (image_.isNull() || width() <= 0 || height() <= 0) {
        return;
    }
    const DrawPlan plan = Plan(width(), height());
    const QSize target = ToQRect(plan.layout.destination).size();
    const double area = double(plan.layout.source.Width()) * plan.layout.source.Height();
    if (Geometry().Zoomed() || target.isEmpty() ||
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

void RasterView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const DrawPlan plan = Plan(width(), height());
    const QRect destination = ToQRect(plan.layout.destination);
    const QRect source = ToQRect(plan.layout.source);
    const QImage& picture = plan.decoded ? image_ : plan.owned;
    // The margins only, unless the picture has transparency to show black through.
    QRegion background(rect());
    if (!picture.isNull() && !picture.hasAlphaChannel()) {
        background -= destination;
    }
    for (const QRect& r : background) {
        painter.fillRect(r, Qt::black);
    }
    if (!picture.isNull()) {
        if (plan.decoded && !reduced_.isNull() && reducedSize_ == destination.size() &&
            !Geometry().Zoomed()) {
            painter.drawImage(destination.topLeft(), reduced_);
        } else {
            // A reduction is smoothed only with multi-sampling; an enlargement as the
            // filter says.
            const bool smooth = plan.filter == Filter::Mipmapped ||
                                (plan.filter == Filter::Linear && !plan.reducing);
            painter.setRenderHint(QPainter::SmoothPixmapTransform, smooth);
            painter.drawImage(destination, picture, source);
        }
    }
    if (!plan.captionBox.isEmpty()) {
        painter.drawImage(plan.captionBox.topLeft(),
                          CaptionImage(plan.captionBox.size(), plan.caption));
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    if (!plan.copiedStamp.isEmpty()) {
        painter.drawImage(plan.copiedStamp.topLeft(), CopiedStampImage());
    }
    if (!plan.markBadge.isEmpty()) {
        painter.drawImage(plan.markBadge.topLeft(), MarkBadgeImage());
    }
    NotePainted(destination);
}

}  // namespace orvanta::display

#include "display/raster_view.h"

#include <QPainter>

namespace orvanta::display {

RasterView::RasterView(QWidget* parent) : PictureView(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
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
        const QSize target = ReductionTarget(plan, Geometry().Zoomed());
        if (!target.isEmpty() && !SmoothReduction(target).isNull()) {
            painter.drawImage(destination.topLeft(), SmoothReduction(target));
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

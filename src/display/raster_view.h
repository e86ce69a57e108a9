// The picture view on the raster path: draws the frame the picture view plans with QPainter,
// filling the margins around the picture. A picture much larger than the view is drawn from
// the view's smooth reduction to the destination's size, so that a paint copies a
// window-sized image instead of sampling 24 megapixels; until the reduction arrives the full
// picture is drawn without smoothing.
//
// Thread rules: user-interface thread only.
#pragma once

#include <QImage>

#include "display/picture_view.h"

namespace orvanta::display {

class RasterView final : public PictureView {
    Q_OBJECT

public:
    explicit RasterView(QWidget* parent = nullptr);

    QImage Screenshot() override { return grab().toImage(); }
    bool Accelerated() const override { return false; }

protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace orvanta::display

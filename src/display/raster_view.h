// The picture view on the raster path: draws the frame the picture view plans with QPainter,
// filling the margins around the picture. A picture much larger than the view is reduced
// to the view's size on a pool thread, so that the next paint of a large picture copies a
// window-sized image instead of sampling 24 megapixels; until the reduction arrives the
// full picture is drawn without smoothing.
//
// Thread rules: user-interface thread only; the reduction runs on QThreadPool and comes
// back through a queued call tagged with the picture it was made for.
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
    void PictureChanged() override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void StartReduction();

    QImage reduced_;  // picture_ reduced to reducedSize_
    QSize reducedSize_;
    std::uint64_t generation_ = 0;
};

}  // namespace orvanta::display

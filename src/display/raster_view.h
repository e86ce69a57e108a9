// The picture view on the raster path: draws the current decoded picture with QPainter in
// the rectangle the view geometry lays out, fills the margins, and shows the start picture
// (a caption text below the centre) or the error picture when there is no picture to show.
// A picture much larger than the view is reduced to the view's size on a pool thread, so
// that the next paint of a large picture copies a window-sized image instead of sampling
// 24 megapixels; until the reduction arrives the full picture is drawn without smoothing.
//
// Thread rules: user-interface thread only; the reduction runs on QThreadPool and comes
// back through a queued call tagged with the picture it was made for.
#pragma once

#include <memory>
#include <string>

#include <QImage>
#include <QWidget>

#include "decode/decoded_picture.h"
#include "display/view_geometry.h"
#include "list/picture_entry.h"

namespace orvanta::display {

class RasterView final : public QWidget {
    Q_OBJECT

public:
    explicit RasterView(QWidget* parent = nullptr);

    void SetPicture(std::shared_ptr<const decode::DecodedPicture> picture);
    // The start picture with its caption text (empty: the error picture).
    void ShowStartPicture(const QString& caption);
    void ShowErrorPicture();
    // The marks of the shown picture: a badge at the bottom-left corner names them while
    // any is set and the stamp overlays are on.
    void SetMarks(const list::CullingMarks& marks);
    bool ShowsMarkBadge() const;

    const std::shared_ptr<const decode::DecodedPicture>& Picture() const { return picture_; }
    // The destination of the last paint, in widget pixels.
    QRect LastDestination() const { return lastDestination_; }
    // Paints counted since construction (benchmarks and tests wait for the next one).
    std::uint64_t PaintCount() const { return paints_; }

signals:
    void Painted();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void StartReduction();
    void PaintMarkBadge(QPainter& painter);
    QImage OwnedPicture() const;

    std::shared_ptr<const decode::DecodedPicture> picture_;
    QImage image_;    // wraps picture_'s pixels
    QImage reduced_;  // picture_ reduced to reducedSize_
    QSize reducedSize_;
    std::uint64_t generation_ = 0;
    ViewGeometry geometry_;
    bool startPicture_ = false;
    bool errorPicture_ = false;
    QString caption_;
    QRect lastDestination_;
    list::CullingMarks marks_;
    std::uint64_t paints_ = 0;
};

// The QImage format the raster path asks the decoder for (premultiplied BGRA).
QImage WrapPicture(const decode::DecodedPicture& picture);

}  // namespace orvanta::display

// The picture view on the accelerated path: OpenGL 3.3 core in a native window that fills
// the view (it takes no input: mouse and keys go to the view itself). A picture much
// larger than its destination (a photograph fitted to the window) is uploaded as its
// reduction to the destination's size, first a quick one, then the view's smooth one, and
// drawn one to one. Zoomed in, or when not much reduced, the picture itself is uploaded once
// as textures, in tiles when it is larger than the driver's texture limit, with mipmaps when
// multi-sampling is on, into the storage of the last picture's textures when the size is the
// same. The smooth reduction of the picture ahead, prepared while the view is idle, is loaded
// into a second texture then, so that the step to it uploads nothing. Each frame clears the
// margins to black and copies a reduction into place, or draws the planned source rectangle
// into the destination as textured quads, then the caption box and the stamps blended over it.
//
// A lost context (a reset reported by the driver, an invalid context, or the test hook) is
// survived once: the frame stays black, the textures are dropped and made again 250 ms
// later. A second loss before a frame was drawn again emits DisplayFailed.
//
// Thread rules: user-interface thread only. The textures hold the shown picture and the
// prepared one; their storage is reused by the next picture of the same size and goes with
// the view or its context.
#pragma once

#include <memory>

#include <QElapsedTimer>

#include "display/picture_view.h"

namespace orvanta::display {

class GlSurface;

class GlView final : public PictureView {
    Q_OBJECT

public:
    explicit GlView(QWidget* parent = nullptr);
    ~GlView() override;

    QImage Screenshot() override;
    bool Accelerated() const override { return true; }
    void Redraw() override;
    std::uint64_t PresentCount() const override { return swaps_; }

    // Hooks for tests and benchmarks.
    void SimulateContextLoss() { simulatedLoss_ = true; }
    void SetMaxTileSize(int size) { tileLimit_ = size; }
    int TileCount() const;
    int LostCount() const { return lostCount_; }
    // Frames that drew a prepared picture from the texture loaded while the view was idle.
    int AheadTaken() const { return aheadTaken_; }
    // Time of the last picture upload in milliseconds (finished on the device when
    // `measure` is on).
    void SetMeasureUploads(bool measure) { measureUploads_ = measure; }
    double LastUploadMs() const { return lastUploadMs_; }
    // Uploads the whole current picture now, as zooming in does, and returns the time.
    double UploadWhole();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void ReductionPrepared(const QImage& reduction) override;

private:
    friend class GlSurface;
    struct Resources;

    void CreateSurface();
    void Initialize();
    void Paint();
    bool ContextLost();
    void HandleLoss();
    void Recover();
    void Upload(const void* key, const QImage& image);
    void ReleaseTextures();

    GlSurface* surface_ = nullptr;  // owned by container_
    QWidget* container_ = nullptr;  // a child widget holding the surface's native window
    std::unique_ptr<Resources> gl_;
    QTimer recover_;
    int tileLimit_ = 0;
    int lostCount_ = 0;
    int aheadTaken_ = 0;
    bool resetPending_ = false;
    bool simulatedLoss_ = false;
    bool measureUploads_ = false;
    bool drawPosted_ = false;
    double lastUploadMs_ = 0;
    std::uint64_t swaps_ = 0;
};

// Whether an OpenGL 3.3 core context can be made on this display; `software` tells whether
// its renderer is a software rasteriser.
bool OpenGlAvailable(bool* software = nullptr);

// The view for the start-up settings: the accelerated one when asked for and available,
// else the raster one with `fellBack` set when acceleration was asked for. A software
// rasteriser gets the raster view without `fellBack` (unless ORVANTA_SOFTWARE_GL=1).
PictureView* CreatePictureView(bool accelerated, QWidget* parent, bool& fellBack);

}  // namespace orvanta::display

#include "display/gl_view.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLFunctions_3_3_Core>
#include <QOpenGLShaderProgram>
#include <QOpenGLWindow>
#include <QPaintEvent>
#include <QRegion>
#include <QResizeEvent>

#include "display/quick_reduction.h"
#include "display/raster_view.h"
#include "settings/settings.h"

namespace orvanta::display {

namespace {

constexpr int kFirstRecoveryMs = 250;
constexpr int kStillLostMs = 333;

QSurfaceFormat ViewFormat() {
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    format.setOption(QSurfaceFormat::ResetNotification);
    format.setDepthBufferSize(0);
    format.setStencilBufferSize(0);
    return format;
}

const char* kVertexShader = R"(#version 330 core
layout(location = 0) in vec2 position;
layout(location = 1) in vec2 coordinate;
uniform vec2 viewSize;
out vec2 uv;
void main() {
    uv = coordinate;
    gl_Position = vec4(position.x / viewSize.x * 2.0 - 1.0, 1.0 - position.y / viewSize.y * 2.0,
                       0.0, 1.0);
}
)";

const char* kFragmentShader = R"(#version 330 core
in vec2 uv;
uniform sampler2D picture;
out vec4 colour;
void main() {
    colour = texture(picture, uv);
}
)";

}  // namespace

// The native window that owns the context and is drawn into directly: a QOpenGLWidget
// would draw into a framebuffer object that the toolkit then composes with the rest of the
// window every frame, which costs a full-window copy per frame (on a software rasteriser,
// more than the drawing itself). It takes no input and never focus: the pointer and the
// keys go through to the view under it.
class GlSurface final : public QOpenGLWindow {
public:
    explicit GlSurface(GlView* view) : QOpenGLWindow(QOpenGLWindow::NoPartialUpdate), view_(view) {
        setFormat(ViewFormat());
        setFlags(flags() | Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus);
    }

protected:
    void initializeGL() override { view_->Initialize(); }
    void paintGL() override { view_->Paint(); }

private:
    GlView* view_;
};

struct GlView::Resources : QOpenGLFunctions_3_3_Core {
    struct Tile {
        GLuint texture = 0;
        QRect rect;  // picture pixels
        QSize storage;
    };
    // The picture reduced to the size it is shown at, its rows stored top down as they come.
    // A frame blits it into place turned over: the driver keeps a window's rows top down
    // while a texture's go bottom up, so the two turns cancel and a software rasteriser
    // copies rows (a blit that is not turned over, or a textured quad, goes through its
    // whole drawing pipeline at ten to twenty times the cost).
    struct Fitted {
        GLuint texture = 0;
        GLuint framebuffer = 0;  // reads the texture for the blit
        QSize storage;
        const void* key = nullptr;  // the picture it holds
        qint64 smooth = 0;          // the smooth reduction it holds (its cache key; 0: quick)
    };
    struct Overlay {
        GLuint texture = 0;
        QSize size;
        QString text;  // the caption drawn into it
    };
    Fitted fitted;
    Fitted ahead;  // the prepared picture's smooth reduction, loaded while the view was idle
    QImage quick;  // the quick reduction's storage, reused from picture to picture

    QOpenGLShaderProgram program;
    GLuint vao = 0;
    GLuint vbo = 0;
    bool ready = false;
    GLint maxTexture = 0;
    const void* key = nullptr;  // the picture the tiles hold
    std::vector<Tile> tiles;
    bool mipmaps = false;
    Overlay caption;
    Overlay copied;
    Overlay badge;

    // Binds `texture`, made first (edges clamped, no storage yet) when it is 0.
    void Bind(GLuint& texture, QSize& storage) {
        if (texture == 0) {
            glGenTextures(1, &texture);
            glBindTexture(GL_TEXTURE_2D, texture);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
            storage = {};
        } else {
            glBindTexture(GL_TEXTURE_2D, texture);
        }
    }

    // Loads a w x h part of `image` at (x, y) into `texture` (made when 0), into the storage
    // it has when that is the same size: a software rasteriser clears and maps fresh storage
    // page by page, which costs more than the copy itself.
    void Load(GLuint& texture, QSize& storage, const QImage& image, int x, int y, int w, int h) {
        Bind(texture, storage);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(image.bytesPerLine() / 4));
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, x);
        glPixelStorei(GL_UNPACK_SKIP_ROWS, y);
        // 32-bit QImage formats are B, G, R, A in memory on this byte order.
        if (storage == QSize(w, h)) {
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, w, h, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV,
                            image.constBits());
        } else {
            // The unsized internal format lets the driver keep the rows as they come (B, G,
            // R, A): a software rasteriser then copies them instead of converting each pixel.
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV,
                         image.constBits());
            storage = QSize(w, h);
        }
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
        glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    }

    void SetOverlay(Overlay& overlay, const QImage& image, const QString& text = {}) {
        if (overlay.texture != 0 && overlay.size == image.size() && overlay.text == text) {
            return;
        }
        QSize storage = overlay.size;
        Load(overlay.texture, storage, image, 0, 0, image.width(), image.height());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
        overlay.size = image.size();
        overlay.text = text;
    }

    void DropOverlay(Overlay& overlay) {
        if (overlay.texture != 0) {
            glDeleteTextures(1, &overlay.texture);
        }
        overlay = {};
    }

    void DropTiles() {
        for (Tile& tile : tiles) {
            glDeleteTextures(1, &tile.texture);
        }
        tiles.clear();
        key = nullptr;
    }

    void DropFitted(Fitted& f) {
        if (f.texture != 0) {
            glDeleteTextures(1, &f.texture);
        }
        if (f.framebuffer != 0) {
            glDeleteFramebuffers(1, &f.framebuffer);
        }
        f = {};
    }

    // Gives `f` storage of `size` (kept when it has that size already) and the framebuffer
    // that reads it.
    void PrepareFitted(Fitted& f, QSize size) {
        Bind(f.texture, f.storage);
        if (f.storage == size) {
            return;
        }
        // The unsized format, as in Load.
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, size.width(), size.height(), 0, GL_BGRA,
                     GL_UNSIGNED_INT_8_8_8_8_REV, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
        f.storage = size;
        if (f.framebuffer == 0) {
            glGenFramebuffers(1, &f.framebuffer);
        }
        glBindFramebuffer(GL_READ_FRAMEBUFFER, f.framebuffer);
        glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, f.texture,
                               0);
    }

    // Loads rows [first, first + count) of `image`, the size of `f`'s storage.
    void LoadFittedRows(const Fitted& f, const QImage& image, int first, int count) {
        glBindTexture(GL_TEXTURE_2D, f.texture);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(image.bytesPerLine() / 4));
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, first, image.width(), count, GL_BGRA,
                        GL_UNSIGNED_INT_8_8_8_8_REV, image.constScanLine(first));
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    }

    // Loads the smooth reduction `image` of the picture `picture` into `f`.
    void LoadFitted(Fitted& f, const void* picture, const QImage& image) {
        PrepareFitted(f, image.size());
        LoadFittedRows(f, image, 0, image.height());
        f.key = picture;
        f.smooth = image.cacheKey();
    }

    void Quad(const QRectF& destination, const QRectF& uv) {
        const float v[16] = {float(destination.left()),  float(destination.top()),
                             float(uv.left()),           float(uv.top()),
                             float(destination.right()), float(destination.top()),
                             float(uv.right()),          float(uv.top()),
                             float(destination.left()),  float(destination.bottom()),
                             float(uv.left()),           float(uv.bottom()),
                             float(destination.right()), float(destination.bottom()),
                             float(uv.right()),          float(uv.bottom())};
        glBufferSubData(GL_ARRAY_BUFFER, 0, sizeof(v), v);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    }

    void DrawOverlay(const Overlay& overlay, const QRect& where, GLint filter) {
        glBindTexture(GL_TEXTURE_2D, overlay.texture);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
        Quad(QRectF(where), QRectF(0, 0, 1, 1));
    }
};

GlView::GlView(QWidget* parent) : PictureView(parent), gl_(std::make_unique<Resources>()) {
    recover_.setSingleShot(true);
    connect(&recover_, &QTimer::timeout, this, &GlView::Recover);
    // After a suspend the context may have gone; look once the program is active again.
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState s) {
        if (s == Qt::ApplicationActive && !resetPending_) {
            recover_.start(kStillLostMs);
        }
    });
    CreateSurface();
}

GlView::~GlView() {
    ReleaseTextures();
    // The functions and the program go while their context still exists.
    if (surface_->context() != nullptr) {
        surface_->makeCurrent();
        gl_.reset();
        surface_->doneCurrent();
    }
    gl_.reset();
    delete container_;  // and the surface with it
    container_ = nullptr;
    surface_ = nullptr;
}

void GlView::CreateSurface() {
    surface_ = new GlSurface(this);
    connect(surface_, &QOpenGLWindow::frameSwapped, this, [this] { ++swaps_; });
    container_ = QWidget::createWindowContainer(surface_, this);
    container_->setAttribute(Qt::WA_TransparentForMouseEvents);
    container_->setFocusPolicy(Qt::NoFocus);
    container_->setGeometry(rect());
    container_->show();
}

void GlView::resizeEvent(QResizeEvent* event) {
    PictureView::resizeEvent(event);
    // The surface redraws into its new size in the same frame, so a resize does not flash.
    container_->setGeometry(rect());
}

void GlView::Redraw() {
    // The window's own update waits for the next tick of a timer at the screen's refresh
    // rate, and then draws again what a frame sent earlier already drew; the frame is drawn
    // as soon as the event loop comes round instead. A window not shown yet waits for its
    // update as usual.
    PostOnce(drawPosted_, [this] {
        if (surface_ == nullptr) {
            return;
        }
        if (surface_->isExposed()) {
            QPaintEvent draw(QRect(QPoint(0, 0), surface_->size()));
            QCoreApplication::sendEvent(surface_, &draw);
        } else {
            surface_->update();
        }
    });
}

QImage GlView::Screenshot() {
    if (surface_->context() == nullptr) {
        return {};
    }
    // A frame drawn now into the back buffer and read before any swap.
    surface_->makeCurrent();
    Paint();
    QImage shot = surface_->grabFramebuffer();
    surface_->doneCurrent();
    return shot;
}

int GlView::TileCount() const {
    return gl_ ? static_cast<int>(gl_->tiles.size()) : 0;
}

void GlView::Initialize() {
    gl_ = std::make_unique<Resources>();
    Resources& gl = *gl_;
    if (!gl.initializeOpenGLFunctions()) {
        return;
    }
    if (!gl.program.addShaderFromSourceCode(QOpenGLShader::Vertex, kVertexShader) ||
        !gl.program.addShaderFromSourceCode(QOpenGLShader::Fragment, kFragmentShader) ||
        !gl.program.link()) {
        return;
    }
    gl.glGetIntegerv(GL_MAX_TEXTURE_SIZE, &gl.maxTexture);
    gl.glGenVertexArrays(1, &gl.vao);
    gl.glBindVertexArray(gl.vao);
    gl.glGenBuffers(1, &gl.vbo);
    gl.glBindBuffer(GL_ARRAY_BUFFER, gl.vbo);
    gl.glBufferData(GL_ARRAY_BUFFER, 16 * sizeof(float), nullptr, GL_DYNAMIC_DRAW);
    gl.glEnableVertexAttribArray(0);
    gl.glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 4 * sizeof(float), nullptr);
    gl.glEnableVertexAttribArray(1);
    gl.glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 4 * sizeof(float),
                             reinterpret_cast<void*>(2 * sizeof(float)));
    gl.ready = true;
    // The context is new (first show, or made again after a loss): the texture ids of an
    // older one mean nothing here.
    connect(
        surface_->context(), &QOpenGLContext::aboutToBeDestroyed, this,
        [this] {
            if (!gl_) {
                return;
            }
            // The context takes its textures with it.
            gl_->tiles.clear();
            gl_->key = nullptr;
            gl_->fitted = {};
            gl_->ahead = {};
            gl_->caption = {};
            gl_->copied = {};
            gl_->badge = {};
            gl_->ready = false;
        },
        Qt::DirectConnection);
}

void GlView::Upload(const void* key, const QImage& source) {
    Resources& gl = *gl_;
    if (gl.key == key && !gl.tiles.empty()) {
        return;
    }
    QElapsedTimer clock;
    clock.start();
    QImage image = source;
    if (image.format() != QImage::Format_ARGB32_Premultiplied &&
        image.format() != QImage::Format_RGB32) {
        image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    }
    int limit = gl.maxTexture > 0 ? gl.maxTexture : 2048;
    if (tileLimit_ > 0) {
        limit = std::min(limit, tileLimit_);
    }
    std::vector<QRect> rects;
    for (int y = 0; y < image.height(); y += limit) {
        for (int x = 0; x < image.width(); x += limit) {
            rects.emplace_back(x, y, std::min(limit, image.width() - x),
                               std::min(limit, image.height() - y));
        }
    }
    // Pictures of one shoot share their size: the tiles of the last one take the next.
    const bool same =
        rects.size() == gl.tiles.size() &&
        std::equal(rects.begin(), rects.end(), gl.tiles.begin(),
                   [](const QRect& r, const Resources::Tile& t) { return r == t.rect; });
    if (!same) {
        gl.DropTiles();
        gl.tiles.resize(rects.size());
    }
    gl.mipmaps = settings::MultiSampling.On();
    for (std::size_t i = 0; i < rects.size(); ++i) {
        Resources::Tile& tile = gl.tiles[i];
        const QRect& r = rects[i];
        gl.Load(tile.texture, tile.storage, image, r.x(), r.y(), r.width(), r.height());
        tile.rect = r;
        if (gl.mipmaps) {
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 1000);
            gl.glGenerateMipmap(GL_TEXTURE_2D);
        } else {
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
        }
    }
    gl.key = key;
    if (measureUploads_) {
        gl.glFinish();
    }
    lastUploadMs_ = static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

double GlView::UploadWhole() {
    if (image_.isNull() || !gl_->ready || surface_->context() == nullptr) {
        return 0;
    }
    surface_->makeCurrent();
    gl_->key = nullptr;
    Upload(picture_.get(), image_);
    surface_->doneCurrent();
    return lastUploadMs_;
}

void GlView::ReductionPrepared(const QImage& reduction) {
    if (!gl_->ready || resetPending_ || surface_->context() == nullptr || !surface_->isExposed()) {
        return;  // the step will load it then
    }
    surface_->makeCurrent();
    gl_->LoadFitted(gl_->ahead, nullptr, reduction);
    surface_->doneCurrent();
}

void GlView::ReleaseTextures() {
    if (!gl_->ready || surface_ == nullptr || surface_->context() == nullptr) {
        gl_->tiles.clear();
        gl_->key = nullptr;
        gl_->fitted = {};
        gl_->ahead = {};
        return;
    }
    surface_->makeCurrent();
    gl_->DropTiles();
    gl_->DropFitted(gl_->fitted);
    gl_->DropFitted(gl_->ahead);
    gl_->DropOverlay(gl_->caption);
    gl_->DropOverlay(gl_->copied);
    gl_->DropOverlay(gl_->badge);
    surface_->doneCurrent();
}

bool GlView::ContextLost() {
    if (simulatedLoss_) {
        simulatedLoss_ = false;
        return true;
    }
    QOpenGLContext* context = surface_->context();
    return context == nullptr || !context->isValid() || !gl_->ready;
}

void GlView::HandleLoss() {
    if (resetPending_) {
        return;
    }
    ++lostCount_;
    resetPending_ = true;
    if (lostCount_ < 2) {
        recover_.start(kFirstRecoveryMs);
    } else {
        emit DisplayFailed();
    }
}

void GlView::Recover() {
    QOpenGLContext* context = surface_->context();
    if (context != nullptr && !context->isValid()) {
        // The driver reset the context: a new surface brings a new one, and the old
        // textures went with the old context.
        gl_ = std::make_unique<Resources>();
        delete container_;
        CreateSurface();
    } else if (!resetPending_) {
        return;  // a resume check that found nothing wrong
    } else {
        ReleaseTextures();
    }
    resetPending_ = false;
    Redraw();
}

void GlView::Paint() {
    Resources& gl = *gl_;
    // While a reset is pending the frame stays black and a loss found now is the one being
    // recovered from; the next frame after the recovery looks again.
    if (!resetPending_ && ContextLost()) {
        HandleLoss();
    }
    if (gl.ready) {
        const qreal ratio = surface_->devicePixelRatio();
        gl.glViewport(0, 0, static_cast<GLsizei>(width() * ratio),
                      static_cast<GLsizei>(height() * ratio));
        gl.glClearColor(0, 0, 0, 1);
    }
    if (resetPending_ || !gl.ready) {
        if (gl.ready) {
            gl.glClear(GL_COLOR_BUFFER_BIT);
        }
        return;  // black until the context is back
    }
    const DrawPlan plan = Plan(width(), height());
    const QImage& picture = plan.decoded ? image_ : plan.owned;
    static const int kStartKey = 1;
    static const int kErrorKey = 2;
    const void* key = plan.decoded    ? static_cast<const void*>(picture_.get())
                      : errorPicture_ ? &kErrorKey
                                      : &kStartKey;

    gl.program.bind();
    gl.program.setUniformValue("viewSize", QVector2D(float(width()), float(height())));
    gl.program.setUniformValue("picture", 0);
    gl.glActiveTexture(GL_TEXTURE0);
    gl.glBindVertexArray(gl.vao);
    gl.glBindBuffer(GL_ARRAY_BUFFER, gl.vbo);
    // Every texture holds premultiplied pixels: drawn over the black just cleared, a picture
    // shows as it is, so only the overlays drawn over it are blended.
    gl.glDisable(GL_BLEND);
    gl.glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);

    const QRect destination = ToQRect(plan.layout.destination);
    const QRect source = ToQRect(plan.layout.source);
    const QSize target = ReductionTarget(plan, Geometry().Zoomed());
    if (!target.isEmpty()) {
        // Much reduced: drawn one to one from a reduction to the destination's size, the
        // smooth one when it has come, else a quick one made now.
        const QImage& smooth = SmoothReduction(target);
        const bool current = gl.fitted.key == key && gl.fitted.storage == target;
        if (!smooth.isNull() && !(current && gl.fitted.smooth == smooth.cacheKey())) {
            if (gl.ahead.smooth == smooth.cacheKey() && gl.ahead.storage == target) {
                // The prepared picture, loaded while the view was idle.
                std::swap(gl.fitted, gl.ahead);
                gl.fitted.key = key;
                ++aheadTaken_;
            } else {
                gl.LoadFitted(gl.fitted, key, smooth);
            }
        } else if (smooth.isNull() && !current) {
            // Each band of rows goes to the texture as soon as it is made, while the pool
            // thread makes the next.
            gl.PrepareFitted(gl.fitted, target);
            gl.fitted.key = nullptr;
            if (QuickReduction(picture, target, gl.quick, [&gl](int first, int count) {
                    gl.LoadFittedRows(gl.fitted, gl.quick, first, count);
                })) {
                gl.fitted.key = key;
                gl.fitted.smooth = 0;
            }
        }
        const qreal ratio = surface_->devicePixelRatio();
        const GLuint window = surface_->defaultFramebufferObject();
        if (gl.fitted.key != key) {
            gl.glClear(GL_COLOR_BUFFER_BIT);  // the picture could not be reduced
        } else if (ratio == 1.0) {
            // The blit replaces every pixel under it (a transparent one by black, as drawing
            // over black would): only the margins are cleared, a full clear would be written
            // once more under the picture.
            const QRegion margins = QRegion(rect()) - QRect(destination.topLeft(), target);
            gl.glEnable(GL_SCISSOR_TEST);
            for (const QRect& r : margins) {
                gl.glScissor(r.x(), height() - r.y() - r.height(), r.width(), r.height());
                gl.glClear(GL_COLOR_BUFFER_BIT);
            }
            gl.glDisable(GL_SCISSOR_TEST);
            const int bottom = height() - destination.top() - target.height();
            gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, gl.fitted.framebuffer);
            gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER, window);
            gl.glBlitFramebuffer(0, 0, target.width(), target.height(), destination.left(),
                                 bottom + target.height(), destination.left() + target.width(),
                                 bottom, GL_COLOR_BUFFER_BIT, GL_NEAREST);
            gl.glBindFramebuffer(GL_FRAMEBUFFER, window);
        } else {
            gl.glClear(GL_COLOR_BUFFER_BIT);
            gl.glBindTexture(GL_TEXTURE_2D, gl.fitted.texture);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
            gl.Quad(QRectF(destination), QRectF(0, 0, 1, 1));
        }
    } else {
        gl.glClear(GL_COLOR_BUFFER_BIT);
    }
    if (target.isEmpty() && !picture.isNull() && !destination.isEmpty() && !source.isEmpty()) {
        Upload(key, picture);
        GLint minFilter = GL_NEAREST;
        GLint magFilter = GL_NEAREST;
        if (plan.filter == Filter::Linear) {
            minFilter = magFilter = GL_LINEAR;
        } else if (plan.filter == Filter::Mipmapped) {
            minFilter = gl.mipmaps ? GL_LINEAR_MIPMAP_LINEAR : GL_LINEAR;
            magFilter = GL_LINEAR;
        }
        const double sx = double(destination.width()) / source.width();
        const double sy = double(destination.height()) / source.height();
        for (const Resources::Tile& tile : gl.tiles) {
            const QRect part = tile.rect & source;
            if (part.isEmpty()) {
                continue;
            }
            const QRectF where(destination.left() + (part.left() - source.left()) * sx,
                               destination.top() + (part.top() - source.top()) * sy,
                               part.width() * sx, part.height() * sy);
            const QRectF uv(double(part.left() - tile.rect.left()) / tile.rect.width(),
                            double(part.top() - tile.rect.top()) / tile.rect.height(),
                            double(part.width()) / tile.rect.width(),
                            double(part.height()) / tile.rect.height());
            gl.glBindTexture(GL_TEXTURE_2D, tile.texture);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minFilter);
            gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magFilter);
            gl.Quad(where, uv);
        }
    }
    gl.glEnable(GL_BLEND);
    if (!plan.captionBox.isEmpty()) {
        gl.SetOverlay(gl.caption, CaptionImage(plan.captionBox.size(), plan.caption), plan.caption);
        gl.DrawOverlay(gl.caption, plan.captionBox, GL_NEAREST);
    }
    if (!plan.copiedStamp.isEmpty()) {
        gl.SetOverlay(gl.copied, CopiedStampImage());
        gl.DrawOverlay(gl.copied, plan.copiedStamp, GL_LINEAR);
    }
    if (!plan.markBadge.isEmpty()) {
        gl.SetOverlay(gl.badge, MarkBadgeImage());
        gl.DrawOverlay(gl.badge, plan.markBadge, GL_LINEAR);
    }
    gl.glBindVertexArray(0);
    gl.program.release();
    lostCount_ = 0;
    NotePainted(destination);
}

bool OpenGlAvailable(bool* software) {
    QOpenGLContext context;
    context.setFormat(ViewFormat());
    if (!context.create()) {
        return false;
    }
    QOffscreenSurface surface;
    surface.setFormat(context.format());
    surface.create();
    if (!surface.isValid() || !context.makeCurrent(&surface)) {
        return false;
    }
    const QSurfaceFormat made = context.format();
    const bool usable =
        made.version() >= qMakePair(3, 3) && made.renderableType() == QSurfaceFormat::OpenGL;
    if (software != nullptr) {
        const auto* renderer =
            reinterpret_cast<const char*>(context.functions()->glGetString(GL_RENDERER));
        const QByteArray name = QByteArray(renderer != nullptr ? renderer : "").toLower();
        *software = name.contains("llvmpipe") || name.contains("softpipe") ||
                    name.contains("swrast") || name.contains("software");
    }
    context.doneCurrent();
    return usable;
}

PictureView* CreatePictureView(bool accelerated, QWidget* parent, bool& fellBack) {
    fellBack = false;
    if (accelerated) {
        // A software rasteriser draws a textured quad far slower than the raster path paints
        // its prepared reduction (every upload and every frame go through the processor), so
        // it counts as no accelerator at all; ORVANTA_SOFTWARE_GL=1 keeps it for tests.
        bool software = false;
        if (OpenGlAvailable(&software)) {
            if (!software || qEnvironmentVariableIntValue("ORVANTA_SOFTWARE_GL") == 1) {
                return new GlView(parent);
            }
            return new RasterView(parent);
        }
        fellBack = true;
    }
    return new RasterView(parent);
}

}  // namespace orvanta::display

// The accelerated view against the raster view, in one run on the same folder of prefetched
// pictures in a 1920x1080 window:
//  - next-picture command to the frame presented, for both paths (median, p95) and the
//    ratio of the accelerated median to the raster one (limit 1.0: not slower), on
//    prefetched pictures (the first step waits until the picture ahead is decoded);
//  - the upload of a 24 MP picture as textures (finished on the device), with and without
//    mipmaps, and of a 12 MP one to show how it scales, against one 16 ms frame;
//  - panning a 24 MP picture at actual size by dragging: time from each mouse move to the
//    frame presented, median against 16 ms.
// Usage: gl_view_ui_bench FOLDER [--steps N] [--pause MS] [--rounds N]
// (N steps per path in each round; both paths run in every round, in turn first.)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <QApplication>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QThread>

#include "app/language_startup.h"
#include "bench_timing.h"
#include "bench_ui.h"
#include "cmdline/startup_request.h"
#include "display/gl_view.h"
#include "frame/main_frame.h"
#include "settings/settings.h"

namespace {

constexpr double kFrameMs = 16.0;

using orvanta::bench::Percentile;
using orvanta::bench::Pump;

double Ms(const QElapsedTimer& clock) {
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

// Waits for the next frame of `view` to reach the window.
bool WaitPresented(orvanta::display::PictureView& view, std::uint64_t before) {
    QElapsedTimer clock;
    clock.start();
    while (view.PresentCount() == before && clock.elapsed() < 30'000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    // A round trip to the display server: the copy of the frame into the screen, sent by the
    // buffer swap or the backing store's flush, has been carried out when it returns.
    QGuiApplication::sync();
    return view.PresentCount() != before;
}

// Steps of the accelerated view drawn from the texture it loaded ahead.
int aheadTaken = 0;

std::vector<double> Navigate(const std::string& folder, bool accelerated, int steps, int pauseMs,
                             bool& fellBack) {
    orvanta::frame::MainFrame frame(0, nullptr, accelerated);
    fellBack = frame.AccelerationFailed() || frame.View().Accelerated() != accelerated;
    frame.resize(1920, 1080);
    frame.show();
    Pump(300);
    auto& view = frame.View();
    frame.OpenFolder(folder);
    QElapsedTimer clock;
    clock.start();
    while (!view.Picture() && clock.elapsed() < 60'000) {
        Pump(5);
    }
    // The steps are timed on prefetched pictures: the first one waits until the picture ahead
    // has been decoded and the view has prepared it.
    clock.restart();
    while (view.PreparedPicture(true) == nullptr && clock.elapsed() < 10'000) {
        Pump(5);
    }
    std::vector<double> times;
    for (int step = 0; step < steps && view.Picture(); ++step) {
        Pump(pauseMs);
        const auto presents = view.PresentCount();
        const auto* before = view.Picture().get();
        const auto* prepared = view.PreparedPicture(true);
        clock.restart();
        frame.RunCommand(orvanta::frame::Command::kNext, 0, true);
        while (view.Picture().get() == before && clock.elapsed() < 30'000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        const double arrived = Ms(clock);
        WaitPresented(view, presents);
        times.push_back(Ms(clock));
        if (std::getenv("ORVANTA_BENCH_STEPS") != nullptr) {
            std::printf("  step %d: picture set after %.1f ms, presented after %.1f ms%s\n", step,
                        arrived, times.back(),
                        prepared == view.Picture().get() ? " (prepared)" : "");
        }
    }
    if (const auto* gl = dynamic_cast<const orvanta::display::GlView*>(&view)) {
        aheadTaken += gl->AheadTaken();
    }
    frame.close();
    return times;
}

std::shared_ptr<const orvanta::decode::DecodedPicture> Synthetic(int width, int height, int seed) {
    auto picture = std::make_shared<orvanta::decode::DecodedPicture>();
    if (orvanta::imaging::PixelBuffer::Create(
            {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)},
            orvanta::imaging::PixelFormat::Pbgra32, 0, picture->pixels)
            .Failed()) {
        return nullptr;
    }
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(picture->pixels.Row(y));
        for (int x = 0; x < width; ++x) {
            row[x] = 0xFF000000u | static_cast<std::uint32_t>((x + seed) & 0xFF) << 16 |
                     static_cast<std::uint32_t>(y & 0xFF) << 8 |
                     static_cast<std::uint32_t>((x ^ y) & 0xFF);
        }
    }
    picture->width = static_cast<std::uint32_t>(width);
    picture->height = static_cast<std::uint32_t>(height);
    return picture;
}

// The whole-picture upload (as zooming in makes it) of five pictures of one size: the first
// into new textures, the others into the storage of the one before.
struct Uploads {
    double first;
    double median;
};

Uploads UploadTimes(orvanta::display::GlView& view, int width, int height) {
    std::vector<double> times;
    for (int i = 0; i < 5; ++i) {
        view.SetPicture(Synthetic(width, height, i));
        Pump(50);
        times.push_back(view.UploadWhole());
    }
    return {times.front(), Percentile(times, 0.5)};
}

void Move(QWidget& widget, QPoint local, Qt::MouseButtons buttons, QEvent::Type type,
          Qt::MouseButton button) {
    QMouseEvent event(type, QPointF(local), QPointF(widget.mapToGlobal(local)), button, buttons,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(&widget, &event);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: gl_view_ui_bench FOLDER [--steps N] [--pause MS] [--rounds N]\n");
        return 2;
    }
    const std::string folder = argv[1];
    int steps = 20;
    int pauseMs = 700;
    int rounds = 2;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--steps") == 0) {
            steps = std::max(1, std::atoi(argv[i + 1]));
        } else if (std::strcmp(argv[i], "--pause") == 0) {
            pauseMs = std::max(0, std::atoi(argv[i + 1]));
        } else if (std::strcmp(argv[i], "--rounds") == 0) {
            rounds = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    // A software rasteriser would otherwise get the raster view in both runs.
    qputenv("ORVANTA_SOFTWARE_GL", "1");
    QApplication application(argc, argv);
    orvanta::cmdline::StartupRequest request;
    orvanta::app::MessageBoxLanguageNotices notices;
    if (!orvanta::app::LoadLanguage(request, QCoreApplication::applicationDirPath().toStdString(),
                                    notices)) {
        return 1;
    }
    if (!orvanta::display::OpenGlAvailable()) {
        std::fprintf(stderr, "no OpenGL 3.3 context on this display\n");
        return 1;
    }
    std::printf("MultiSampling %u, SmoothPixelsInZoomModes %u\n",
                orvanta::settings::MultiSampling.Get(),
                orvanta::settings::SmoothPixelsInZoomModes.Get());

    // Rounds of both paths, each first in every other round, so that a slow spell of a
    // shared machine does not fall on one side only.
    bool fellBack = false;
    std::vector<double> raster;
    std::vector<double> gl;
    for (int round = 0; round < rounds && !fellBack; ++round) {
        for (const bool accelerated : {round % 2 == 1, round % 2 == 0}) {
            const auto times = Navigate(folder, accelerated, steps, pauseMs, fellBack);
            auto& into = accelerated ? gl : raster;
            into.insert(into.end(), times.begin(), times.end());
        }
    }
    if (fellBack || raster.empty() || gl.empty()) {
        std::fprintf(stderr, "the accelerated view could not be made or no picture came\n");
        return 1;
    }
    const double rasterMedian = Percentile(raster, 0.5);
    const double glMedian = Percentile(gl, 0.5);
    std::printf("next picture to presented, raster: median %.2f ms, p95 %.2f ms over %zu steps\n",
                rasterMedian, Percentile(raster, 0.95), raster.size());
    std::printf("next picture to presented, OpenGL: median %.2f ms, p95 %.2f ms over %zu steps\n",
                glMedian, Percentile(gl, 0.95), gl.size());
    std::printf("OpenGL / raster median ratio %.2f (limit 1.00)\n", glMedian / rasterMedian);
    std::printf("OpenGL steps drawn from the picture ahead loaded while idle: %d of %zu\n",
                aheadTaken, gl.size());

    orvanta::display::GlView view;
    view.resize(1920, 1080);
    view.show();
    Pump(300);
    view.SetMeasureUploads(true);
    for (const std::uint32_t mipmaps : {0u, 1u}) {
        orvanta::settings::MultiSampling.Set(mipmaps);
        const Uploads big = UploadTimes(view, 6000, 4000);
        const Uploads half = UploadTimes(view, 4243, 2828);
        std::printf(
            "whole-picture upload %s mipmaps: 24 MP %.1f ms (%.0f MB/s; new textures %.1f ms), "
            "12 MP %.1f ms (new %.1f ms); 24 MP / 16 ms frame ratio %.2f\n",
            mipmaps ? "with" : "without", big.median, 96.0 / (big.median / 1000.0), big.first,
            half.median, half.first, big.median / kFrameMs);
    }

    // Panning at actual size: the left button held, the mouse moving back and forth.
    orvanta::settings::HideZoomMouseCursor.Set(0);
    view.SetPicture(Synthetic(6000, 4000, 7));
    view.ToggleActualSize();
    Pump(200);
    QPoint at(960, 540);
    Move(view, at, Qt::LeftButton, QEvent::MouseButtonPress, Qt::LeftButton);
    Pump(100);
    std::vector<double> frames;
    for (int i = 0; i < 120; ++i) {
        at += QPoint((i / 30) % 2 == 0 ? 9 : -9, (i / 30) % 2 == 0 ? 5 : -5);
        const auto presents = view.PresentCount();
        QElapsedTimer clock;
        clock.start();
        Move(view, at, Qt::LeftButton, QEvent::MouseMove, Qt::NoButton);
        WaitPresented(view, presents);
        frames.push_back(Ms(clock));
    }
    Move(view, at, Qt::NoButton, QEvent::MouseButtonRelease, Qt::LeftButton);
    const double panMedian = Percentile(frames, 0.5);
    std::printf(
        "pan 24 MP at actual size: median %.2f ms, p95 %.2f ms per frame; limit %.0f ms, ratio "
        "%.2f\n",
        panMedian, Percentile(frames, 0.95), kFrameMs, panMedian / kFrameMs);
    return 0;
}

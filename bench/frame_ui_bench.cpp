// The frame's navigation on the raster path: opens FOLDER in a 1920x1080 window, lets the
// cache fetch ahead between steps as a user's pause would, and times the next-picture
// command up to the paint of its picture. Prints the median and the 90th percentile with
// the median's ratio to the 20 ms limit. With --screenshots DIR it saves the start picture
// and the first steps' windows there.
// Usage: frame_ui_bench FOLDER [--steps N] [--pause MS] [--screenshots DIR] [--accelerated]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <QApplication>
#include <QElapsedTimer>
#include <QPainter>
#include <QThread>

#include "app/language_startup.h"
#include "bench_timing.h"
#include "bench_ui.h"
#include "cmdline/startup_request.h"
#include "decode/decode_cache.h"
#include "display/raster_view.h"
#include "frame/main_frame.h"

namespace {

constexpr double kLimitMs = 20.0;

using orvanta::bench::Percentile;
using orvanta::bench::Pump;

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: frame_ui_bench FOLDER [--steps N] [--pause MS] [--screenshots DIR] "
                     "[--accelerated]\n");
        return 2;
    }
    std::string folder = argv[1];
    int steps = 20;
    int pauseMs = 500;
    std::string shots;
    bool accelerated = false;
    for (int i = 2; i < argc; ++i) {
        const bool valued = i + 1 < argc;
        if (std::strcmp(argv[i], "--accelerated") == 0) {
            accelerated = true;
        } else if (valued && std::strcmp(argv[i], "--steps") == 0) {
            steps = std::max(1, std::atoi(argv[++i]));
        } else if (valued && std::strcmp(argv[i], "--pause") == 0) {
            pauseMs = std::max(0, std::atoi(argv[++i]));
        } else if (valued && std::strcmp(argv[i], "--screenshots") == 0) {
            shots = argv[++i];
        }
    }
    QApplication application(argc, argv);
    orvanta::cmdline::StartupRequest request;
    orvanta::app::MessageBoxLanguageNotices notices;
    if (!orvanta::app::LoadLanguage(request, QCoreApplication::applicationDirPath().toStdString(),
                                    notices)) {
        return 1;
    }
    orvanta::frame::MainFrame frame(0, nullptr, accelerated);
    frame.resize(1920, 1080);
    frame.show();
    frame.ShowStartPicture();
    Pump(300);
    auto& view = frame.View();
    // The window as the screen shows it: an accelerated view draws into a native window of
    // its own that grabbing the frame's widgets does not see, so its frame is put in place.
    const auto shoot = [&](const std::string& name) {
        QImage shot = frame.grab().toImage();
        if (view.Accelerated()) {
            QPainter painter(&shot);
            painter.drawImage(view.mapTo(&frame, QPoint(0, 0)), view.Screenshot());
        }
        shot.save(QString::fromStdString(shots + "/" + name + ".png"));
    };
    if (!shots.empty()) {
        shoot("start");
    }
    std::printf("window %dx%d, %s view %dx%d\n", frame.width(), frame.height(),
                view.Accelerated() ? "OpenGL" : "raster", view.width(), view.height());
    frame.OpenFolder(folder);
    QElapsedTimer clock;
    clock.start();
    while (!view.Picture() && clock.elapsed() < 60'000) {
        Pump(5);
    }
    if (!view.Picture()) {
        std::fprintf(stderr, "no picture came from %s\n", folder.c_str());
        return 1;
    }
    std::vector<double> times;
    for (int step = 0; step < steps; ++step) {
        Pump(pauseMs);
        if (!shots.empty() && step < 4) {
            shoot("step" + std::to_string(step));
        }
        const auto paints = view.PaintCount();
        const auto* before = view.Picture().get();
        clock.restart();
        frame.RunCommand(orvanta::frame::Command::kNext, 0, true);
        while ((view.PaintCount() == paints || view.Picture().get() == before) &&
               clock.elapsed() < 60'000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        times.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
    }
    const double median = Percentile(times, 0.5);
    std::printf(
        "next picture to painted: median %.2f ms, p90 %.2f ms over %zu steps; limit %.0f ms, "
        "ratio %.2f\n",
        median, Percentile(times, 0.9), times.size(), kLimitMs, median / kLimitMs);
    const auto stats = frame.Cache().Stats();
    std::printf("cache: %llu decodes, %llu failures, %llu dropped\n",
                static_cast<unsigned long long>(stats.decodes),
                static_cast<unsigned long long>(stats.failures),
                static_cast<unsigned long long>(stats.dropped));
    return 0;
}

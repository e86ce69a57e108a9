// Throughput of the pipeline stages on a 24-megapixel picture held in memory: the Rgb24 to
// Pbgra32 conversion, and 6000 x 4000 -> 1920 x 1280 reductions (linear and Fant). Each
// figure is the best of a few runs, in megapixels of the source per second, with its ratio
// to a plain copy of the same source bytes measured in the same run (the copy is the bound
// no stage can beat). Last, what reusing a picture-sized buffer saves.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "platform/imaging/format_converter.h"
#include "platform/imaging/memory_source.h"
#include "platform/imaging/pixel_buffer.h"
#include "platform/imaging/scaler.h"

namespace {

using orvanta::imaging::BitmapSource;
using orvanta::imaging::Converted;
using orvanta::imaging::Interpolation;
using orvanta::imaging::MemorySource;
using orvanta::imaging::PixelFormat;
using orvanta::imaging::PixelSize;
using orvanta::imaging::Scaled;

constexpr PixelSize kPicture{6000, 4000};
constexpr PixelSize kScreen{1920, 1280};
constexpr int kRuns = 5;

double BestSeconds(const std::function<void()>& run) {
    double best = 1e9;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        best = std::min(best, took.count());
    }
    return best;
}

std::vector<std::byte> Pixels(std::size_t bytesPerPixel) {
    std::vector<std::byte> pixels(std::size_t{kPicture.width} * kPicture.height * bytesPerPixel);
    std::uint32_t state = 12345;
    for (auto& b : pixels) {
        state = state * 1664525u + 1013904223u;
        b = static_cast<std::byte>(state >> 24);
    }
    return pixels;
}

// Pulls the whole output in bands of 128 rows, as the banded copy does.
void Drain(BitmapSource& source, std::vector<std::byte>& out) {
    const std::size_t stride = source.RowBytes(source.Size().width);
    out.resize(stride * source.Size().height);
    const auto width = static_cast<std::int32_t>(source.Size().width);
    const auto height = static_cast<std::int32_t>(source.Size().height);
    for (std::int32_t top = 0; top < height; top += 128) {
        const std::int32_t rows = std::min(128, height - top);
        const auto result = source.CopyPixels({0, top, width, rows}, stride,
                                              std::span(out).subspan(stride * std::size_t(top)));
        if (result.Failed()) {
            std::fprintf(stderr, "copy failed: %s\n", result.Hex().c_str());
            std::exit(1);
        }
    }
}

void Report(const char* name, double seconds, double copySeconds) {
    const double megapixels = double(kPicture.width) * kPicture.height / 1e6;
    std::printf("%-34s %8.1f MP/s  %6.1f ms  %5.2fx the copy\n", name, megapixels / seconds,
                seconds * 1e3, seconds / copySeconds);
}

}  // namespace

int main() {
    const std::vector<std::byte> rgb = Pixels(3);
    const std::vector<std::byte> bgra = Pixels(4);
    std::vector<std::byte> out(bgra.size());

    const double copyRgb = BestSeconds([&] { std::memcpy(out.data(), rgb.data(), rgb.size()); });
    const double copyBgra = BestSeconds([&] { std::memcpy(out.data(), bgra.data(), bgra.size()); });
    Report("copy of 24 MP Rgb24 (the bound)", copyRgb, copyRgb);

    const double convert = BestSeconds([&] {
        auto source =
            Converted(MemorySource::Borrow(kPicture, PixelFormat::Rgb24, kPicture.width * 3, rgb),
                      PixelFormat::Pbgra32);
        Drain(*source, out);
    });
    Report("Rgb24 -> Pbgra32", convert, copyRgb);

    for (const auto& [mode, name] :
         {std::pair{Interpolation::Linear, "Bgra32 6000x4000 -> 1920 Linear"},
          std::pair{Interpolation::Fant, "Bgra32 6000x4000 -> 1920 Fant"},
          std::pair{Interpolation::Cubic, "Bgra32 6000x4000 -> 1920 Cubic"}}) {
        const double seconds = BestSeconds([&, mode = mode] {
            auto source = Scaled(
                MemorySource::Borrow(kPicture, PixelFormat::Bgra32, kPicture.width * 4, bgra),
                kScreen, mode);
            Drain(*source, out);
        });
        Report(name, seconds, copyBgra);
    }
    const double rgbFant = BestSeconds([&] {
        auto source =
            Scaled(MemorySource::Borrow(kPicture, PixelFormat::Rgb24, kPicture.width * 3, rgb),
                   kScreen, Interpolation::Fant);
        Drain(*source, out);
    });
    Report("Rgb24 6000x4000 -> 1920 Fant", rgbFant, copyRgb);

    // A picture-sized buffer filled once: fresh from the system, then handed back and reused.
    orvanta::imaging::PixelBufferPool pool;
    auto fill = [&](bool fresh) {
        return BestSeconds([&] {
            if (fresh) {
                pool.Trim();
            }
            orvanta::imaging::PixelBuffer buffer;
            if (orvanta::imaging::PixelBuffer::Create(kPicture, PixelFormat::Bgra32, 0, buffer,
                                                      &pool)
                    .Failed()) {
                std::exit(1);
            }
            std::memcpy(buffer.Bytes().data(), bgra.data(), bgra.size());
        });
    };
    const double fresh = fill(true);
    const double reused = fill(false);
    Report("96 MB buffer, fresh, filled", fresh, copyBgra);
    Report("96 MB buffer, reused, filled", reused, copyBgra);
    return 0;
}

// Decode speed of the imaging component against the codec libraries' own decoders, on
// pictures made at bench time. Prints each figure and its ratio to the limit it is held to.
//   decode_bench [--runs N]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <spng.h>
#include <turbojpeg.h>

#include "bench_pictures.h"
#include "bench_timing.h"
#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/pixel_buffer.h"
#include "platform/imaging/scaler.h"

using namespace orvanta;
using namespace orvanta::imaging;
using orvanta::bench::EncodeJpeg;
using orvanta::bench::MakePicture;
using orvanta::bench::Pair;

namespace {

int runs = 7;
int failures = 0;

std::vector<std::uint8_t> EncodePng(const std::vector<std::uint8_t>& rgb, int w, int h) {
    spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{};
    ihdr.width = w;
    ihdr.height = h;
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
    spng_set_ihdr(ctx, &ihdr);
    spng_encode_image(ctx, rgb.data(), rgb.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    std::size_t length = 0;
    int error = 0;
    auto* buffer = static_cast<std::uint8_t*>(spng_get_png_buffer(ctx, &length, &error));
    std::vector<std::uint8_t> png(buffer, buffer + length);
    std::free(buffer);
    spng_ctx_free(ctx);
    return png;
}

Pair MedianPair(const std::function<void()>& ours, const std::function<void()>& reference) {
    return bench::MedianPair(runs, ours, reference);
}

void Report(const char* what, double ours, double reference, double limit) {
    const double ratio = ours / reference;
    std::printf("%-58s %8.1f ms vs %8.1f ms  ratio %.3f  (limit %.2f) %s\n", what, ours, reference,
                ratio, limit, ratio <= limit ? "ok" : "OVER");
    if (ratio > limit) {
        ++failures;
    }
}

void MakeBuffer(PixelSize size, PixelBuffer& buffer) {
    if (PixelBuffer::Create(size, PixelFormat::Pbgra32, 0, buffer).Failed()) {
        std::fprintf(stderr, "decode_bench: out of memory\n");
        std::exit(2);
    }
}

std::unique_ptr<BitmapFrame> OpenFrame(DecoderInfo info, const std::vector<std::uint8_t>& file) {
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    if (info.create(FileBytes::FromMemory(file), decoder).Failed() ||
        decoder->GetFrame(0, frame).Failed()) {
        std::fprintf(stderr, "decode_bench: cannot open the test picture\n");
        std::exit(2);
    }
    return frame;
}

// What the pipeline does for a full-size picture: the frame straight into 32bpp PBGRA.
Result DecodeFull(const std::vector<std::uint8_t>& jpeg, PixelBuffer& buffer) {
    auto source = Converted(OpenFrame(codecs::JpegDecoderInfo(), jpeg), PixelFormat::Pbgra32);
    return source->CopyAll(buffer.Stride(), buffer.Bytes());
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--runs") == 0) {
            runs = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    constexpr int kWidth = 6000, kHeight = 4000;
    const auto rgb = MakePicture(kWidth, kHeight);
    const auto jpeg = EncodeJpeg(rgb, kWidth, kHeight);
    std::printf("24 MP JPEG, 4:2:0, quality 90: %.1f MB; median of %d runs\n",
                jpeg.size() / 1048576.0, runs);

    // libjpeg-turbo's own decode into a reused BGRX buffer.
    tjhandle tj = tjInitDecompress();
    std::vector<std::uint8_t> bgrx(static_cast<std::size_t>(kWidth) * kHeight * 4);
    const auto reference = [&] {
        tjDecompress2(tj, jpeg.data(), jpeg.size(), bgrx.data(), kWidth, 0, kHeight, TJPF_BGRX, 0);
    };
    PixelBuffer pooled;
    MakeBuffer({kWidth, kHeight}, pooled);
    const Pair full = MedianPair([&] { (void)DecodeFull(jpeg, pooled); }, reference);
    Report("full decode to 32bppPBGRA, buffer from the pool", full.ours, full.reference, 1.10);

    // A fresh buffer every time: the pool is emptied first.
    const Pair fresh = MedianPair(
        [&] {
            PixelBufferPool::Instance().Trim(0);
            PixelBuffer buffer;
            MakeBuffer({kWidth, kHeight}, buffer);
            (void)DecodeFull(jpeg, buffer);
        },
        reference);
    std::printf("%-58s %8.1f ms  (%.2f x tjDecompress2 in the same run; not held to a limit)\n",
                "full decode into a fresh buffer", fresh.ours, fresh.ours / fresh.reference);

    // Reduced to fit 1920 x 1280: DCT scaling in the codec, then the scaler.
    const PixelSize target{1920, 1280};
    int scaledWidth = kWidth, scaledHeight = kHeight;
    {
        int count = 0;
        const tjscalingfactor* factors = tjGetScalingFactors(&count);
        // The smallest factor that still covers the target, as the pipeline picks it.
        for (int i = 0; i < count; ++i) {
            const int w = TJSCALED(kWidth, factors[i]), h = TJSCALED(kHeight, factors[i]);
            if (w >= int(target.width) && h >= int(target.height) &&
                w * h < scaledWidth * scaledHeight) {
                scaledWidth = w, scaledHeight = h;
            }
        }
    }
    std::vector<std::uint8_t> small(static_cast<std::size_t>(scaledWidth) * scaledHeight * 4);
    PixelBuffer reducedBuffer;
    MakeBuffer(target, reducedBuffer);
    const Pair reduced = MedianPair(
        [&] {
            auto frame = OpenFrame(codecs::JpegDecoderInfo(), jpeg);
            auto variant = frame->CreateVariant(target, PixelFormat::Pbgra32);
            auto source = Scaled(
                variant ? std::move(variant) : Converted(std::move(frame), PixelFormat::Pbgra32),
                target, Interpolation::Linear);
            (void)source->CopyAll(reducedBuffer.Stride(), reducedBuffer.Bytes());
        },
        [&] {
            tjDecompress2(tj, jpeg.data(), jpeg.size(), small.data(), scaledWidth, 0, scaledHeight,
                          TJPF_BGRX, 0);
        });
    char label[96];
    std::snprintf(label, sizeof label, "reduced to 1920 x 1280 (DCT to %d x %d, then linear)",
                  scaledWidth, scaledHeight);
    Report(label, reduced.ours, reduced.reference, 1.25);
    tjDestroy(tj);

    // 12 MP PNG against libspng's own decode to RGBA.
    constexpr int kPngWidth = 4240, kPngHeight = 2832;
    const auto pngPixels = MakePicture(kPngWidth, kPngHeight);
    const auto png = EncodePng(pngPixels, kPngWidth, kPngHeight);
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(kPngWidth) * kPngHeight * 4);
    PixelBuffer pngBuffer;
    MakeBuffer({kPngWidth, kPngHeight}, pngBuffer);
    const Pair pngPair = MedianPair(
        [&] {
            auto source = Converted(OpenFrame(codecs::PngDecoderInfo(), png), PixelFormat::Pbgra32);
            (void)source->CopyAll(pngBuffer.Stride(), pngBuffer.Bytes());
        },
        [&] {
            spng_ctx* ctx = spng_ctx_new(0);
            spng_set_png_buffer(ctx, png.data(), png.size());
            spng_decode_image(ctx, rgba.data(), rgba.size(), SPNG_FMT_RGBA8, 0);
            spng_ctx_free(ctx);
        });
    std::printf("12 MP PNG: %.1f MB\n", png.size() / 1048576.0);
    Report("PNG to 32bppPBGRA vs libspng to RGBA8", pngPair.ours, pngPair.reference, 1.10);
    return failures == 0 ? 0 : 1;
}

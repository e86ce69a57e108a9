// Cost of colour management on a 24-megapixel Adobe RGB JPEG made at bench time (TurboJPEG,
// with the Adobe RGB (1998) profile in an APP2 ICC_PROFILE segment): the decode to 32bpp
// PBGRA with the colour step against the same decode without it, both through the banded
// copy with histogram counting as the decoder runs them (colour and counting on a second
// thread when a core is free, and for reference on the copying thread). Also lcms2 alone on the same
// pixels, for reference. Prints each figure and its ratio to the limit of 1.5.
//   colour_bench [--runs N]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <turbojpeg.h>

#include "bench_pictures.h"
#include "decode/abortable_copy.h"
#include "decode/colour_management.h"
#include "decode/colour_profiles.h"
#include "decode/colour_transform.h"
#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/pixel_buffer.h"

using namespace orvanta;
using namespace orvanta::imaging;
using Clock = std::chrono::steady_clock;
using orvanta::bench::EncodeJpeg;
using orvanta::bench::MakePicture;

namespace {

constexpr double kLimit = 1.5;

// The profile as one APP2 ICC_PROFILE segment right after the start marker.
std::vector<std::uint8_t> WithIccProfile(const std::vector<std::uint8_t>& jpeg,
                                         const std::vector<std::uint8_t>& icc) {
    std::vector<std::uint8_t> segment = {0xFF, 0xE2, 0, 0};
    const char id[] = "ICC_PROFILE";
    segment.insert(segment.end(), id, id + sizeof id);
    segment.push_back(1);
    segment.push_back(1);
    segment.insert(segment.end(), icc.begin(), icc.end());
    const std::size_t length = segment.size() - 2;
    segment[2] = static_cast<std::uint8_t>(length >> 8);
    segment[3] = static_cast<std::uint8_t>(length);
    std::vector<std::uint8_t> out(jpeg.begin(), jpeg.begin() + 2);
    out.insert(out.end(), segment.begin(), segment.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

std::unique_ptr<BitmapFrame> OpenFrame(const std::vector<std::uint8_t>& file) {
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    if (codecs::JpegDecoderInfo().create(FileBytes::FromMemory(file), decoder).Failed() ||
        decoder->GetFrame(0, frame).Failed()) {
        std::fprintf(stderr, "colour_bench: cannot open the test picture\n");
        std::exit(2);
    }
    return frame;
}

// Unless told otherwise, the copy converts and counts on a second thread when a core is free.
std::optional<bool> aside;

Result CopyBanded(std::unique_ptr<BitmapSource> source, PixelBuffer& buffer) {
    static std::atomic<std::uint32_t> abort{0};
    auto banded = decode::AbortableSource::Create(std::move(source));
    banded->SetCallback(decode::AbortCallback(abort));
    if (aside) {
        banded->SetCountAside(*aside);
    }
    return banded->CopyAll(buffer.Stride(), buffer.Bytes());
}

Result DecodePlain(const std::vector<std::uint8_t>& jpeg, PixelBuffer& buffer) {
    return CopyBanded(Converted(OpenFrame(jpeg), PixelFormat::Pbgra32), buffer);
}

Result DecodeManaged(const std::vector<std::uint8_t>& jpeg, PixelBuffer& buffer, bool& converted) {
    auto frame = OpenFrame(jpeg);
    auto outcome =
        decode::TransformForFrame(frame->CreateVariant({0, 0}, PixelFormat::Pbgra32), *frame,
                                  nullptr, {false, PixelFormat::Pbgra32}, decode::ColourSettings{});
    converted = outcome.transformed;
    return CopyBanded(std::move(outcome.source), buffer);
}

template <typename F>
double BestMs(int runs, F&& f) {
    double best = 1e12;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        f();
        best =
            std::min(best, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 7;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--runs") == 0) {
            runs = std::max(1, std::atoi(argv[++i]));
        }
    }
    const int width = 6000, height = 4000;
    const auto jpeg = WithIccProfile(EncodeJpeg(MakePicture(width, height), width, height),
                                     decode::ProfileBytes(decode::AdobeRgbProfile()));
    PixelBuffer plainBuffer, managedBuffer;
    if (PixelBuffer::Create({width, height}, PixelFormat::Pbgra32, 0, plainBuffer).Failed() ||
        PixelBuffer::Create({width, height}, PixelFormat::Pbgra32, 0, managedBuffer).Failed()) {
        std::fprintf(stderr, "colour_bench: out of memory\n");
        return 2;
    }
    bool converted = false;
    (void)DecodePlain(jpeg, plainBuffer);
    (void)DecodeManaged(jpeg, managedBuffer, converted);
    if (!converted) {
        std::printf("FAIL: the Adobe RGB picture was not converted\n");
        return 1;
    }
    const double plain = BestMs(runs, [&] { (void)DecodePlain(jpeg, plainBuffer); });
    const double managed =
        BestMs(runs, [&] { (void)DecodeManaged(jpeg, managedBuffer, converted); });
    // As when every core is busy decoding: colour and counting on the copying thread.
    aside = false;
    const double plainInLine = BestMs(runs, [&] { (void)DecodePlain(jpeg, plainBuffer); });
    const double managedInLine =
        BestMs(runs, [&] { (void)DecodeManaged(jpeg, managedBuffer, converted); });

    // lcms2 alone over the decoded pixels, for reference.
    std::shared_ptr<const decode::ColourTransform> transform;
    (void)decode::ColourTransform::Create(decode::AdobeRgbProfile(), decode::SrgbProfile(),
                                          PixelFormat::Pbgra32, transform);
    const double lcms = BestMs(std::min(runs, 3), [&] {
        for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(height); ++y) {
            transform->ApplyWithLcms(plainBuffer.Row(y), width);
        }
    });
    const double ours = BestMs(std::min(runs, 3), [&] {
        for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(height); ++y) {
            transform->Apply(plainBuffer.Row(y), width);
        }
    });

    const double ratio = managed / plain;
    std::printf("24 MP Adobe RGB JPEG to 32bppPBGRA, banded copy with histogram\n");
    std::printf("  without colour management  %8.1f ms\n", plain);
    std::printf("  with colour management     %8.1f ms  ratio %.3f  (limit %.2f) %s\n", managed,
                ratio, kLimit, ratio <= kLimit ? "ok" : "OVER");
    std::printf("  every core busy (colour and counting in line): %.1f ms vs %.1f ms, ratio %.3f "
                "(not held to the limit)\n",
                managedInLine, plainInLine, managedInLine / plainInLine);
    std::printf("  conversion alone: matrix-shaper path %.1f ms, lcms2 %.1f ms (%.2fx)\n", ours,
                lcms, lcms / ours);
    return ratio <= kLimit ? 0 : 1;
}

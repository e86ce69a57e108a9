// The whole decode pipeline on a 24-megapixel JPEG made at bench time, as a decode worker
// runs it (DecodePicture: file read, decoder, metadata, colour step with nothing to convert,
// 32bpp PBGRA output, the banded copy with histogram counting into a pixel buffer from the
// pool, orientation check), against libjpeg-turbo's own tjDecompress2 of the same file to
// BGRX into a reused buffer. Prints each figure and its ratio to the limit of 1.15.
//   pipeline_bench [--runs N]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <turbojpeg.h>
#include <unistd.h>

#include "bench_pictures.h"
#include "bench_timing.h"
#include "decode/abortable_copy.h"
#include "decode/decode_entry.h"
#include "decode/histogram.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/pixel_buffer.h"

using namespace orvanta;
using bench::MedianPair;
using bench::Pair;

namespace {

constexpr double kLimit = 1.15;

}  // namespace

int main(int argc, char** argv) {
    int runs = 9;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--runs") == 0) {
            runs = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    constexpr int kWidth = 6000, kHeight = 4000;
    const auto jpeg = bench::EncodeJpeg(bench::MakePicture(kWidth, kHeight), kWidth, kHeight);
    const auto path = std::filesystem::temp_directory_path() /
                      ("pipeline_bench_" + std::to_string(::getpid()) + ".jpg");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(jpeg.data()),
               static_cast<std::streamsize>(jpeg.size()));

    tjhandle tj = tjInitDecompress();
    std::vector<std::uint8_t> bgrx(static_cast<std::size_t>(kWidth) * kHeight * 4);
    const auto reference = [&] {
        tjDecompress2(tj, jpeg.data(), jpeg.size(), bgrx.data(), kWidth, 0, kHeight, TJPF_BGRX, 0);
    };

    const std::atomic<std::uint32_t> abortFlag{0};
    decode::DecodeOptions options;  // colour management on, orientation on, no downscaling
    bool counted = true;
    const auto pipeline = [&](const decode::DecodeOptions& o) {
        decode::DecodedPicture picture;
        metadata::PictureMetadata record;
        const Result result = decode::DecodePicture(path, 0, o, abortFlag, picture, record);
        counted = counted && result == S_OK &&
                  (o.outputFormat != imaging::PixelFormat::Pbgra32 ||
                   (record.validFields & metadata::ValidField::kHistogram) != 0);
        // The picture dies here and its block goes back to the pool for the next run.
    };

    std::printf(
        "24 MP JPEG, 4:2:0, quality 90: %.1f MB; histogram counting %s; median of %d runs\n",
        jpeg.size() / 1048576.0, std::string(decode::CountingVersion()).c_str(), runs);
    const Pair full = MedianPair(
        runs, [&] { pipeline(options); }, reference);
    const double ratio = full.ours / full.reference;
    std::printf("%-62s %7.1f ms vs %7.1f ms  ratio %.3f  (limit %.2f) %s\n",
                "DecodePicture, 32bppPBGRA with histogram, vs tjDecompress2 BGRX", full.ours,
                full.reference, ratio, kLimit, ratio <= kLimit ? "ok" : "OVER");

    // The same pipeline into a format that is not counted, to show what the counting costs.
    decode::DecodeOptions uncounted = options;
    uncounted.outputFormat = imaging::PixelFormat::Bgra32;
    const Pair plain = MedianPair(
        runs, [&] { pipeline(uncounted); }, reference);
    std::printf("%-62s %7.1f ms vs %7.1f ms  ratio %.3f  (not held to a limit)\n",
                "DecodePicture, 32bppBGRA (not counted), vs tjDecompress2", plain.ours,
                plain.reference, plain.ours / plain.reference);
    std::printf("histogram share of the pipeline: %.1f%% of tjDecompress2's time\n",
                100.0 * (full.ours / full.reference - plain.ours / plain.reference));

    // The banded copy alone (decoder, 32bpp PBGRA, counting), counting in line and on a
    // second core, into the same pooled buffer: what handing the counting over saves.
    imaging::PixelBuffer buffer;
    if (imaging::PixelBuffer::Create({kWidth, kHeight}, imaging::PixelFormat::Pbgra32, 0, buffer)
            .Failed()) {
        std::printf("FAIL: out of memory\n");
        return 1;
    }
    decode::HistogramBlock histograms[2];
    const auto banded = [&](bool aside) {
        std::unique_ptr<imaging::Decoder> decoder;
        std::unique_ptr<imaging::BitmapFrame> frame;
        if (imaging::codecs::JpegDecoderInfo()
                .create(imaging::FileBytes::FromMemory(jpeg), decoder)
                .Failed() ||
            decoder->GetFrame(0, frame).Failed()) {
            counted = false;
            return;
        }
        auto copy = decode::AbortableSource::Create(
            imaging::Converted(std::move(frame), imaging::PixelFormat::Pbgra32));
        copy->SetCallback(decode::AbortCallback(abortFlag));
        copy->SetCountAside(aside);
        counted = counted && copy->CopyAll(buffer.Stride(), buffer.Bytes()) == S_OK;
        histograms[aside ? 1 : 0] = copy->Histogram();
    };
    const Pair inlineAside = MedianPair(
        runs, [&] { banded(false); }, [&] { banded(true); });
    std::printf("%-62s %7.1f ms vs %7.1f ms  aside/in line %.3f  (not held to a limit)\n",
                "banded copy with counting in line vs on a second core", inlineAside.ours,
                inlineAside.reference, inlineAside.reference / inlineAside.ours);
    if (std::memcmp(&histograms[0], &histograms[1], sizeof histograms[0]) != 0) {
        std::printf("FAIL: counting on a second core gave other counts\n");
        return 1;
    }

    tjDestroy(tj);
    std::filesystem::remove(path);
    if (!counted) {
        std::printf("FAIL: a decode failed or left the histogram invalid\n");
        return 1;
    }
    return ratio <= kLimit ? 0 : 1;
}

// The embedded preview of a raw file ready as pixels, against LibRaw's own unpack_thumb
// plus a TurboJPEG decode of that thumbnail, on the raw files of the test corpus.
//   raw_preview_bench [FOLDER]   (default: $ORVANTA_TESTDATA/raw or ../shared/testdata/raw)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <vector>

#include <libraw/libraw.h>
#include <turbojpeg.h>

#include "decode/open_decoder.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/pixel_buffer.h"

using namespace orvanta;
using namespace orvanta::imaging;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kRuns = 9;

double Milliseconds(const std::function<bool()>& work, bool& ok) {
    const auto start = Clock::now();
    ok = work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Ours: open the raw's decoder, take its preview, have it as 32bppPBGRA pixels.
bool OursOnce(const std::filesystem::path& path, PixelSize& size) {
    decode::OpenedPicture picture;
    if (decode::OpenPicture(path, picture).Failed()) {
        return false;
    }
    std::unique_ptr<BitmapFrame> preview;
    if (picture.decoder->GetPreview(preview) != S_OK || !preview) {
        return false;
    }
    size = preview->Size();
    auto source = Converted(std::move(preview), PixelFormat::Pbgra32);
    PixelBuffer buffer;
    return source && PixelBuffer::Create(size, PixelFormat::Pbgra32, 0, buffer).Succeeded() &&
           source->CopyAll(buffer.Stride(), buffer.Bytes()).Succeeded();
}

std::vector<std::uint8_t> ReadFile(const std::filesystem::path& path) {
    std::vector<std::uint8_t> file(std::filesystem::file_size(path));
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        file.resize(std::fread(file.data(), 1, file.size(), f));
        std::fclose(f);
    }
    return file;
}

// LibRaw on its own: read the file, open it, unpack the thumbnail, decode it if it is a
// JPEG.
bool ReferenceOnce(const std::filesystem::path& path, std::vector<std::uint8_t>& pixels) {
    const std::vector<std::uint8_t> file = ReadFile(path);
    LibRaw raw;
    if (raw.open_buffer(const_cast<std::uint8_t*>(file.data()), file.size()) != LIBRAW_SUCCESS ||
        raw.unpack_thumb() != LIBRAW_SUCCESS) {
        return false;
    }
    const auto& thumb = raw.imgdata.thumbnail;
    if (thumb.tformat == LIBRAW_THUMBNAIL_JPEG) {
        tjhandle tj = tjInitDecompress();
        int w = 0, h = 0, sub = 0, space = 0;
        bool ok = tjDecompressHeader3(tj, reinterpret_cast<unsigned char*>(thumb.thumb),
                                      thumb.tlength, &w, &h, &sub, &space) == 0;
        if (ok) {
            pixels.resize(std::size_t(w) * h * 4);
            ok = tjDecompress2(tj, reinterpret_cast<unsigned char*>(thumb.thumb), thumb.tlength,
                               pixels.data(), w, 0, h, TJPF_BGRX, 0) == 0;
        }
        tjDestroy(tj);
        return ok;
    }
    // A bitmap thumbnail is already pixels; spreading it to four bytes is the least work.
    pixels.resize(std::size_t(thumb.twidth) * thumb.theight * 4);
    for (std::size_t i = 0; i + 2 < thumb.tlength && i / 3 * 4 + 3 < pixels.size(); i += 3) {
        std::copy_n(reinterpret_cast<const std::uint8_t*>(thumb.thumb) + i, 3,
                    pixels.begin() + std::ptrdiff_t(i / 3 * 4));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::filesystem::path folder;
    if (argc > 1) {
        folder = argv[1];
    } else if (const char* data = std::getenv("ORVANTA_TESTDATA"); data && *data) {
        folder = std::filesystem::path(data) / "raw";
    } else {
        folder = "../shared/testdata/raw";
    }
    if (!std::filesystem::is_directory(folder)) {
        std::printf("raw_preview_bench: no raw files at %s; skipped\n", folder.c_str());
        return 0;
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    int failures = 0;
    for (const auto& path : files) {
        std::vector<double> ours, reference;
        PixelSize size{};
        bool okOurs = true, okReference = true;
        std::vector<std::uint8_t> pixels;
        for (int i = 0; i < kRuns; ++i) {
            bool ok = false;
            ours.push_back(Milliseconds([&] { return OursOnce(path, size); }, ok));
            okOurs = okOurs && ok;
            reference.push_back(Milliseconds([&] { return ReferenceOnce(path, pixels); }, ok));
            okReference = okReference && ok;
        }
        if (!okOurs || !okReference) {
            std::printf("%-44s no usable preview (ours %s, LibRaw %s)\n", path.filename().c_str(),
                        okOurs ? "ok" : "none", okReference ? "ok" : "none");
            continue;
        }
        std::sort(ours.begin(), ours.end());
        std::sort(reference.begin(), reference.end());
        const double a = ours[kRuns / 2], b = reference[kRuns / 2];
        std::printf("%-44s %4u x %-4u %7.2f ms vs %7.2f ms  ratio %.3f  (limit 1.20) %s\n",
                    path.filename().c_str(), size.width, size.height, a, b, a / b,
                    a / b <= 1.2 ? "ok" : "OVER");
        failures += a / b > 1.2;
    }
    return failures == 0 ? 0 : 1;
}

// The mark stores' cost per mark: creating and updating an XMP sidecar, and rating a 24 MP
// JPEG in the file itself against copying that file once (read it, write the copy, flush
// it to the disk, as the rating's replacement does). Limit: the rating takes at most 1.5x
// the copy.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "bench_pictures.h"
#include "bench_timing.h"
#include "marks/embedded_mark_writer.h"
#include "marks/sidecar_file.h"
#include "platform/imaging/metadata_query_reader.h"

namespace {

using namespace orvanta;

constexpr double kLimit = 1.5;

void CopyOnce(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::vector<char> bytes(std::filesystem::file_size(from));
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const bool read =
        in >= 0 && ::read(in, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    ::close(in);
    const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (!read || out < 0 ||
        ::write(out, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        ::fsync(out) != 0) {
        std::fprintf(stderr, "mark_stores_bench: the copy failed\n");
        std::exit(1);
    }
    ::close(out);
}

}  // namespace

int main() {
    imaging::InitialiseMetadata();
    std::string name = (std::filesystem::temp_directory_path() / "mark-bench-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        return 1;
    }
    const std::filesystem::path folder = name;

    // Sidecars: one mark each, as the writer makes them.
    std::uint32_t stars = 0;
    const auto sidecar = folder / "IMG_0001.xmp";
    const auto sidecarTimes = bench::MedianPair(
        101,
        [&] {
            const marks::MarkRequest request{stars++ % 5 + 1, false, 0, false, nullptr};
            (void)marks::CreateSidecarFile(folder / "created.xmp", request, marks::MarkTimeNow());
        },
        [&] {
            const marks::MarkRequest request{stars++ % 5 + 1, false, 0, false, nullptr};
            if (!std::filesystem::exists(sidecar)) {
                (void)marks::CreateSidecarFile(sidecar, request, marks::MarkTimeNow());
            }
            (void)marks::UpdateSidecarFile(sidecar, request, marks::MarkTimeNow());
        });
    std::printf("sidecar create: %.3f ms per mark\n", sidecarTimes.ours);
    std::printf("sidecar update: %.3f ms per mark\n", sidecarTimes.reference);

    // A 24 MP JPEG rated in the file against copying it once.
    constexpr int kWidth = 6000, kHeight = 4000;
    const auto jpeg = bench::EncodeJpeg(bench::MakePicture(kWidth, kHeight), kWidth, kHeight);
    const auto picture = folder / "IMG_0002.JPG";
    std::ofstream(picture, std::ios::binary)
        .write(reinterpret_cast<const char*>(jpeg.data()),
               static_cast<std::streamsize>(jpeg.size()));
    bool failed = false;
    const auto times = bench::MedianPair(
        9,
        [&] {
            const marks::MarkRequest request{stars++ % 5 + 1, false, 0, false, nullptr};
            failed =
                failed ||
                marks::WriteEmbeddedMarkToFile(picture, request, marks::MarkTimeNow()).Failed();
        },
        [&] { CopyOnce(picture, folder / "copy.JPG"); });
    std::filesystem::remove_all(folder);
    if (failed) {
        std::fprintf(stderr, "mark_stores_bench: the embedded rating failed\n");
        return 1;
    }
    const double ratio = times.ours / times.reference;
    std::printf("embedded rating of a %d x %d JPEG (%.1f MB): %.1f ms; copying it once: %.1f ms\n",
                kWidth, kHeight, jpeg.size() / 1e6, times.ours, times.reference);
    std::printf("ratio %.2f (limit %.1f): %s\n", ratio, kLimit, ratio <= kLimit ? "PASS" : "FAIL");
    return ratio <= kLimit ? 0 : 1;
}

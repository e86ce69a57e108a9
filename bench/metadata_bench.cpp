// Metadata reader speed, each figure with its ratio to the limit measured in the same run:
//  - ReadDateTaken over 1,000 JPEGs with EXIF against a plain exiv2 open + readMetadata of
//    the same files (limit: 1.5 times);
//  - ReadPictureMetadata on a 24-megapixel JPEG against the decode of that JPEG (limit:
//    10 % of it).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop
#include <turbojpeg.h>

#include "metadata/date_taken.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/file_bytes.h"
#include "platform/imaging/metadata_query_reader.h"

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr int kFiles = 1000;
constexpr int kRounds = 3;

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

Bytes Encode(int width, int height) {
    Bytes pixels(static_cast<std::size_t>(width) * height * 3);
    // Smooth gradients with a little grain: compresses about as a photograph does.
    std::uint32_t grain = 12345;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            grain = grain * 1103515245u + 12345u;
            std::uint8_t* p = &pixels[(static_cast<std::size_t>(y) * width + x) * 3];
            p[0] = static_cast<std::uint8_t>(x * 255 / width + (grain >> 28));
            p[1] = static_cast<std::uint8_t>(y * 255 / height + (grain >> 29));
            p[2] = static_cast<std::uint8_t>((x + y) * 127 / (width + height) + (grain >> 30));
        }
    }
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    if (tjCompress2(handle, pixels.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, 90,
                    0) != 0) {
        std::fprintf(stderr, "TurboJPEG: %s\n", tjGetErrorStr2(handle));
        std::exit(1);
    }
    Bytes jpeg(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    return jpeg;
}

// A camera's worth of EXIF: shooting data, a maker-note blob and a thumbnail-sized comment.
Bytes WithExif(const Bytes& jpeg) {
    auto image = Exiv2::ImageFactory::open(jpeg.data(), static_cast<long>(jpeg.size()));
    image->readMetadata();
    Exiv2::ExifData& exif = image->exifData();
    exif["Exif.Image.Make"] = "NIKON CORPORATION";
    exif["Exif.Image.Model"] = "NIKON D300";
    exif["Exif.Image.Orientation"] = "1";
    exif["Exif.Photo.DateTimeOriginal"] = "2009:03:14 15:09:26";
    exif["Exif.Photo.DateTimeDigitized"] = "2009:03:14 15:09:26";
    exif["Exif.Photo.ExposureTime"] = "10/1250";
    exif["Exif.Photo.FNumber"] = "56/10";
    exif["Exif.Photo.ISOSpeedRatings"] = "200";
    exif["Exif.Photo.FocalLength"] = "1050/10";
    exif["Exif.Photo.Flash"] = "16";
    exif["Exif.Photo.MeteringMode"] = "5";
    exif["Exif.Photo.WhiteBalance"] = "0";
    Bytes note(4096, 0);
    Exiv2::DataValue blob(note.data(), static_cast<long>(note.size()), Exiv2::invalidByteOrder,
                          Exiv2::undefined);
    exif["Exif.Photo.MakerNote"] = blob;
    image->writeMetadata();
    Exiv2::BasicIo& io = image->io();
    io.seek(0, Exiv2::BasicIo::beg);
    Bytes out(static_cast<std::size_t>(io.size()));
    io.read(out.data(), static_cast<long>(out.size()));
    return out;
}

void Write(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

void DateBenchmark(const std::filesystem::path& folder) {
    const Bytes base = WithExif(Encode(1600, 1200));
    const std::string stamp = "2009:03:14 15:09:26";
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < kFiles; ++i) {
        Bytes copy = base;
        // A different minute and second in every file, in both date tags.
        char minute[6];
        std::snprintf(minute, sizeof minute, "%02d:%02d", i / 60 % 60, i % 60);
        for (auto at = std::search(copy.begin(), copy.end(), stamp.begin(), stamp.end());
             at != copy.end(); at = std::search(at + 1, copy.end(), stamp.begin(), stamp.end())) {
            std::copy(minute, minute + 5, at + 14);
        }
        files.push_back(folder / ("IMG_" + std::to_string(i) + ".jpg"));
        Write(files.back(), copy);
    }
    double plain = 1e9, ours = 1e9;
    std::uint64_t check = 0;
    for (int round = 0; round < kRounds; ++round) {
        auto start = Clock::now();
        for (const auto& file : files) {
            auto image = Exiv2::ImageFactory::open(file.string());
            image->readMetadata();
            check += image->exifData().count();
        }
        plain = std::min(plain, Seconds(start));
        start = Clock::now();
        for (const auto& file : files) {
            check += metadata::ReadDateTaken(file, {}, false).ticks != 0;
        }
        ours = std::min(ours, Seconds(start));
    }
    const double ratio = ours / plain;
    std::printf(
        "ReadDateTaken, %d JPEGs of %zu bytes: %.1f us per file; exiv2 open + "
        "readMetadata: %.1f us per file; ratio %.2f (limit 1.50) %s\n",
        kFiles, base.size(), ours / kFiles * 1e6, plain / kFiles * 1e6, ratio,
        ratio <= 1.5 ? "ok" : "OVER");
    std::printf("  (a folder of 10,000 such pictures sorts by date in %.2f s; check %llu)\n",
                ours / kFiles * 10000, static_cast<unsigned long long>(check));
}

void DecodeBenchmark() {
    const Bytes jpeg = WithExif(Encode(6000, 4000));
    const auto bytes = imaging::FileBytes::FromMemory(jpeg, "bench.jpg");
    Bytes pixels(6000u * 4000u * 3u);
    double decode = 1e9;
    tjhandle handle = tjInitDecompress();
    for (int round = 0; round < kRounds; ++round) {
        const auto start = Clock::now();
        if (tjDecompress2(handle, jpeg.data(), jpeg.size(), pixels.data(), 6000, 0, 4000, TJPF_RGB,
                          0) != 0) {
            std::fprintf(stderr, "TurboJPEG: %s\n", tjGetErrorStr2(handle));
            std::exit(1);
        }
        decode = std::min(decode, Seconds(start));
    }
    tjDestroy(handle);
    double read = 1e9;
    metadata::MetadataFrame frame{bytes.get(), imaging::container::Jpeg, 1, 0, {6000, 4000}, {}};
    for (int round = 0; round < 20; ++round) {
        metadata::PictureMetadata record;
        const auto start = Clock::now();
        if (metadata::ReadPictureMetadata("bench.jpg", record, frame, "").Failed()) {
            std::fprintf(stderr, "ReadPictureMetadata failed\n");
            std::exit(1);
        }
        read = std::min(read, Seconds(start));
    }
    const double ratio = read / decode;
    std::printf(
        "ReadPictureMetadata on a 24 MP JPEG: %.1f us; TurboJPEG decode: %.1f ms; "
        "ratio %.4f (limit 0.10) %s\n",
        read * 1e6, decode * 1e3, ratio, ratio <= 0.1 ? "ok" : "OVER");
}

}  // namespace

int main() {
    imaging::InitialiseMetadata();
    char name[] = "/tmp/orvanta-metadata-bench-XXXXXX";
    if (mkdtemp(name) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::filesystem::path folder = name;
    try {
        DateBenchmark(folder);
        DecodeBenchmark();
    } catch (const Exiv2::AnyError& error) {
        std::fprintf(stderr, "exiv2: %s\n", error.what());
        std::filesystem::remove_all(folder);
        return 1;
    }
    std::filesystem::remove_all(folder);
    return 0;
}

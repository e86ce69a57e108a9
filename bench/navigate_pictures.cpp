// Makes the folder that `orvanta-cli bench navigate` walks: COUNT JPEGs of MEGAPIXELS each
// (3:2), photo-like content from one rendered picture with a different band per file so
// that no two files are alike. Usage: navigate_pictures FOLDER [COUNT] [MEGAPIXELS].
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench_pictures.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: navigate_pictures FOLDER [COUNT] [MEGAPIXELS]\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    const int count = argc > 2 ? std::atoi(argv[2]) : 40;
    const double megapixels = argc > 3 ? std::atof(argv[3]) : 24.0;
    const int height = static_cast<int>(std::sqrt(megapixels * 1e6 / 1.5)) / 16 * 16;
    const int width = height * 3 / 2;
    std::filesystem::create_directories(folder);
    std::vector<std::uint8_t> rgb = orvanta::bench::MakePicture(width, height);
    for (int i = 0; i < count; ++i) {
        // A bright band whose place depends on the file.
        const int top = (i * height / std::max(count, 1)) % (height - 16);
        for (int y = top; y < top + 16; ++y) {
            for (int x = 0; x < width * 3; ++x) {
                rgb[static_cast<std::size_t>(y) * width * 3 + x] ^= 0x5A;
            }
        }
        const std::vector<std::uint8_t> jpeg = orvanta::bench::EncodeJpeg(rgb, width, height);
        char name[32];
        std::snprintf(name, sizeof name, "p%03d.jpg", i + 1);
        std::ofstream(folder / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(jpeg.data()),
                   static_cast<std::streamsize>(jpeg.size()));
    }
    std::printf("%d JPEGs of %dx%d in %s\n", count, width, height, folder.c_str());
    return 0;
}

// Makes a sample shoot to look at the viewer with: a dozen photo-like pictures in several
// formats (JPEG, PNG, TIFF, WebP) carrying the shooting data a camera writes (maker, model,
// exposure, aperture, ISO, focal length, date taken; one JPEG turned by its orientation), a
// raw pair (a JPEG and a linear DNG of the same name, written with libtiff) and a multi-page
// TIFF. Usage: sample_shoot FOLDER. Exits 1 when a file cannot be made.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <exiv2/exiv2.hpp>
#include <spng.h>
#include <tiffio.h>
#include <webp/encode.h>

#include "bench_pictures.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Shot {
    const char* name;  // with its extension, which picks the format
    const char* model;
    const char* exposure;  // seconds, as a rational
    const char* aperture;  // f-number, as a rational
    int iso;
    const char* focal;  // millimetres, as a rational
    int orientation;
};

constexpr Shot kShots[] = {
    {"IMG_0001.jpg", "Alder X5", "1/250", "56/10", 100, "35/1", 1},
    {"IMG_0002.jpg", "Alder X5", "1/125", "4/1", 200, "50/1", 1},
    {"IMG_0003.jpg", "Alder X5", "1/60", "28/10", 800, "24/1", 6},
    {"IMG_0004.jpg", "Alder X5", "1/1000", "8/1", 100, "85/1", 1},
    {"IMG_0005.jpg", "Alder X5", "1/30", "2/1", 3200, "35/1", 1},
    {"IMG_0006.jpg", "Alder X5", "1/500", "11/1", 64, "200/1", 1},
    {"IMG_0007.png", "Birch M2", "1/200", "63/10", 400, "18/1", 1},
    {"IMG_0008.png", "Birch M2", "1/15", "35/10", 1600, "12/1", 1},
    {"IMG_0009.tif", "Birch M2", "2/1", "16/1", 100, "16/1", 1},
    {"IMG_0010.tif", "Birch M2", "1/80", "45/10", 250, "70/1", 1},
    {"IMG_0011.webp", "Cedar Q1", "1/320", "5/1", 125, "28/1", 1},
    {"IMG_0012.webp", "Cedar Q1", "1/4000", "14/10", 100, "55/1", 1},
};

constexpr int kWidth = 3000;
// The DNG photometric interpretation of demosaiced raw data (libtiff has no name for it).
constexpr std::uint16_t kLinearRaw = 34892;
constexpr int kHeight = 2000;

bool Write(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return !bytes.empty() && out.good();
}

// A different picture per shot: the content shifted and tinted by the shot's number.
std::vector<std::uint8_t> Variant(const std::vector<std::uint8_t>& base, int number) {
    std::vector<std::uint8_t> rgb(base.size());
    const std::size_t shift = static_cast<std::size_t>(number) * 157 * 3;
    for (std::size_t i = 0; i < base.size(); ++i) {
        const int tint = (i % 3 == static_cast<std::size_t>(number % 3)) ? 25 : 0;
        rgb[i] = static_cast<std::uint8_t>(std::min(255, base[(i + shift) % base.size()] + tint));
    }
    return rgb;
}

Bytes EncodePng(const std::vector<std::uint8_t>& rgb, int width, int height) {
    spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{};
    ihdr.width = static_cast<std::uint32_t>(width);
    ihdr.height = static_cast<std::uint32_t>(height);
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
    spng_set_ihdr(ctx, &ihdr);
    int error = spng_encode_image(ctx, rgb.data(), rgb.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    std::size_t size = 0;
    void* out = error == 0 ? spng_get_png_buffer(ctx, &size, &error) : nullptr;
    Bytes png;
    if (out != nullptr) {
        png.assign(static_cast<std::uint8_t*>(out), static_cast<std::uint8_t*>(out) + size);
        std::free(out);
    }
    spng_ctx_free(ctx);
    return png;
}

Bytes EncodeWebp(const std::vector<std::uint8_t>& rgb, int width, int height) {
    std::uint8_t* out = nullptr;
    const std::size_t size = WebPEncodeRGB(rgb.data(), width, height, width * 3, 85, &out);
    Bytes webp(out, out + size);
    WebPFree(out);
    return webp;
}

// An RGB TIFF of `pages` pages, each a little darker than the one before.
bool WriteTiff(const std::filesystem::path& path, const std::vector<std::uint8_t>& rgb, int width,
               int height, int pages) {
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    if (tiff == nullptr) {
        return false;
    }
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 3);
    bool ok = true;
    for (int page = 0; page < pages && ok; ++page) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 64);
        if (pages > 1) {
            TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
            TIFFSetField(tiff, TIFFTAG_PAGENUMBER, page, pages);
        }
        for (int y = 0; y < height && ok; ++y) {
            const std::uint8_t* source = &rgb[static_cast<std::size_t>(y) * width * 3];
            for (std::size_t i = 0; i < row.size(); ++i) {
                row[i] = static_cast<std::uint8_t>(source[i] * (pages - page) / pages);
            }
            ok = TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) == 1;
        }
        ok = ok && TIFFWriteDirectory(tiff) == 1;
    }
    TIFFClose(tiff);
    return ok;
}

// A linear DNG (demosaiced 16-bit RGB) as a camera's converter writes it; LibRaw reads it
// as raw data.
bool WriteDng(const std::filesystem::path& path, const std::vector<std::uint8_t>& rgb, int width,
              int height, const char* model) {
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    if (tiff == nullptr) {
        return false;
    }
    static const std::uint8_t kVersion[4] = {1, 4, 0, 0};
    static const float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    static const float kNeutral[3] = {1, 1, 1};
    const std::string unique = std::string("Alder ") + model;
    TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, 0);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kLinearRaw);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
    TIFFSetField(tiff, TIFFTAG_MAKE, "Alder");
    TIFFSetField(tiff, TIFFTAG_MODEL, model);
    TIFFSetField(tiff, TIFFTAG_DNGVERSION, kVersion);
    TIFFSetField(tiff, TIFFTAG_DNGBACKWARDVERSION, kVersion);
    TIFFSetField(tiff, TIFFTAG_UNIQUECAMERAMODEL, unique.c_str());
    TIFFSetField(tiff, TIFFTAG_COLORMATRIX1, 9, kIdentity);
    TIFFSetField(tiff, TIFFTAG_ASSHOTNEUTRAL, 3, kNeutral);
    TIFFSetField(tiff, TIFFTAG_CALIBRATIONILLUMINANT1, 21);  // D65
    std::vector<std::uint16_t> row(static_cast<std::size_t>(width) * 3);
    bool ok = true;
    for (int y = 0; y < height && ok; ++y) {
        const std::uint8_t* source = &rgb[static_cast<std::size_t>(y) * width * 3];
        for (std::size_t i = 0; i < row.size(); ++i) {
            // Back to linear light, roughly, so that the converter's curve gives the picture.
            const double v = source[i] / 255.0;
            row[i] = static_cast<std::uint16_t>(v * v * 65535.0);
        }
        ok = TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) == 1;
    }
    ok = ok && TIFFWriteDirectory(tiff) == 1;
    TIFFClose(tiff);
    return ok;
}

// Writes the shooting data into the file at `path` in place.
bool AddShootingData(const std::filesystem::path& path, const char* make, const Shot& shot,
                     int day) {
    try {
        auto image = Exiv2::ImageFactory::open(path.string());
        image->readMetadata();
        Exiv2::ExifData& exif = image->exifData();
        char date[32];
        std::snprintf(date, sizeof date, "2026:05:%02d 09:%02d:%02d", day, 10 + day, 7 * day % 60);
        exif["Exif.Image.Make"] = make;
        exif["Exif.Image.Model"] = shot.model;
        exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(shot.orientation);
        exif["Exif.Image.DateTime"] = date;
        exif["Exif.Photo.DateTimeOriginal"] = date;
        exif["Exif.Photo.DateTimeDigitized"] = date;
        exif["Exif.Photo.ExposureTime"] = shot.exposure;
        exif["Exif.Photo.FNumber"] = shot.aperture;
        exif["Exif.Photo.ISOSpeedRatings"] = static_cast<std::uint16_t>(shot.iso);
        exif["Exif.Photo.FocalLength"] = shot.focal;
        exif["Exif.Photo.ExposureProgram"] = static_cast<std::uint16_t>(3);
        exif["Exif.Photo.ExposureBiasValue"] = "-1/3";
        exif["Exif.Photo.Flash"] = static_cast<std::uint16_t>(16);
        exif["Exif.Photo.LensModel"] = "24-105mm F4";
        image->writeMetadata();
        return true;
    } catch (const Exiv2::AnyError& error) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.what());
        return false;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: sample_shoot FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::vector<std::uint8_t> base = orvanta::bench::MakePicture(kWidth, kHeight);
    bool ok = true;
    int number = 0;
    for (const Shot& shot : kShots) {
        ++number;
        const std::vector<std::uint8_t> rgb = Variant(base, number);
        const std::filesystem::path path = folder / shot.name;
        const std::string extension = path.extension().string();
        bool made = false;
        if (extension == ".jpg") {
            made = Write(path, orvanta::bench::EncodeJpeg(rgb, kWidth, kHeight));
        } else if (extension == ".png") {
            made = Write(path, EncodePng(rgb, kWidth, kHeight));
        } else if (extension == ".tif") {
            made = WriteTiff(path, rgb, kWidth, kHeight, 1);
        } else if (extension == ".webp") {
            made = Write(path, EncodeWebp(rgb, kWidth, kHeight));
        }
        const char* make = shot.model[0] == 'A'   ? "Alder"
                           : shot.model[0] == 'B' ? "Birch"
                                                  : "Cedar";
        made = made && AddShootingData(path, make, shot, number);
        if (!made) {
            std::fprintf(stderr, "could not make %s\n", path.c_str());
        }
        ok = ok && made;
    }

    // The raw pair: what the camera wrote as raw and as JPEG at the same moment.
    const Shot pair{"IMG_0100", "Alder X5", "1/160", "71/10", 100, "40/1", 1};
    const std::vector<std::uint8_t> small = orvanta::bench::MakePicture(1200, 800);
    const bool jpegMade =
        Write(folder / "IMG_0100.jpg", orvanta::bench::EncodeJpeg(small, 1200, 800));
    const bool dngMade = WriteDng(folder / "IMG_0100.dng", small, 1200, 800, "X5");
    ok = ok && jpegMade && dngMade && AddShootingData(folder / "IMG_0100.jpg", "Alder", pair, 20) &&
         AddShootingData(folder / "IMG_0100.dng", "Alder", pair, 20);

    // A scan of a three-page document.
    const std::vector<std::uint8_t> scan = Variant(orvanta::bench::MakePicture(1000, 1400), 5);
    ok = ok && WriteTiff(folder / "scan-3-pages.tif", scan, 1000, 1400, 3);

    std::printf("sample shoot in %s%s\n", folder.c_str(), ok ? "" : " (some files failed)");
    return ok ? 0 : 1;
}

#include "support/picture_fixtures.h"

#include <fstream>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop
#include <gtest/gtest.h>
#include <spng.h>
#include <tiffio.h>
#include <turbojpeg.h>

#include "support/temp_folder.h"

namespace orvanta::test {

namespace {

Bytes Gradient(int width, int height) {
    Bytes pixels(static_cast<std::size_t>(width) * height * 3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &pixels[(static_cast<std::size_t>(y) * width + x) * 3];
            p[0] = static_cast<std::uint8_t>(x * 255 / std::max(1, width - 1));
            p[1] = static_cast<std::uint8_t>(y * 255 / std::max(1, height - 1));
            p[2] = static_cast<std::uint8_t>((x + y) & 0xFF);
        }
    }
    return pixels;
}

Bytes ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace

Bytes MakeJpeg(int width, int height) {
    const Bytes pixels = Gradient(width, height);
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    const int failed = tjCompress2(handle, pixels.data(), width, 0, height, TJPF_RGB, &out, &size,
                                   TJSAMP_420, 90, 0);
    Bytes jpeg;
    if (failed == 0) {
        jpeg.assign(out, out + size);
    }
    tjFree(out);
    tjDestroy(handle);
    EXPECT_EQ(failed, 0) << "TurboJPEG could not make the fixture";
    return jpeg;
}

Bytes WithIccProfile(const Bytes& jpeg, const Bytes& icc) {
    Bytes segment = {0xFF, 0xE2, 0, 0};
    const char id[] = "ICC_PROFILE";
    segment.insert(segment.end(), id, id + sizeof id);  // with its NUL
    segment.push_back(1);                               // chunk 1 of 1
    segment.push_back(1);
    segment.insert(segment.end(), icc.begin(), icc.end());
    const std::size_t length = segment.size() - 2;
    segment[2] = static_cast<std::uint8_t>(length >> 8);
    segment[3] = static_cast<std::uint8_t>(length);
    Bytes out(jpeg.begin(), jpeg.begin() + 2);
    out.insert(out.end(), segment.begin(), segment.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

Bytes MakeTiff(int width, int height) {
    return MakeMultiPageTiff(1, width, height);
}

Bytes MakeMultiPageTiff(int pages, int width, int height) {
    const Bytes pixels = Gradient(width, height);
    TempFolder folder;
    const auto path = folder / "fixture.tif";
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    if (tiff == nullptr) {
        ADD_FAILURE() << "libtiff could not make the fixture";
        return {};
    }
    for (int page = 0; page < pages; ++page) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height);
        for (int y = 0; y < height; ++y) {
            TIFFWriteScanline(
                tiff, const_cast<std::uint8_t*>(&pixels[static_cast<std::size_t>(y) * width * 3]),
                y, 0);
        }
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    return ReadFile(path);
}

Bytes MakePng(int width, int height) {
    const Bytes pixels = Gradient(width, height);
    spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{};
    ihdr.width = static_cast<std::uint32_t>(width);
    ihdr.height = static_cast<std::uint32_t>(height);
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
    spng_set_ihdr(ctx, &ihdr);
    int error =
        spng_encode_image(ctx, pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    std::size_t size = 0;
    void* out = error == 0 ? spng_get_png_buffer(ctx, &size, &error) : nullptr;
    Bytes png;
    if (out != nullptr) {
        png.assign(static_cast<std::uint8_t*>(out), static_cast<std::uint8_t*>(out) + size);
        free(out);
    }
    spng_ctx_free(ctx);
    EXPECT_EQ(error, 0) << "libspng could not make the fixture";
    return png;
}

Bytes WithMetadata(const Bytes& file, const MetadataEdits& edits) {
    try {
        auto image = Exiv2::ImageFactory::open(file.data(), static_cast<long>(file.size()));
        image->readMetadata();
        for (const auto& [key, value] : edits.exif) {
            image->exifData()[key] = value;
        }
        for (const auto& [key, blob] : edits.exifBlobs) {
            Exiv2::DataValue value(blob.data(), static_cast<long>(blob.size()),
                                   Exiv2::invalidByteOrder, Exiv2::undefined);
            image->exifData()[key] = value;
        }
        for (const auto& [key, value] : edits.xmp) {
            image->xmpData()[key] = value;
        }
        for (const auto& [key, value] : edits.iptc) {
            Exiv2::StringValue text(value);
            image->iptcData().add(Exiv2::IptcKey(key), &text);
        }
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        io.seek(0, Exiv2::BasicIo::beg);
        Bytes out(static_cast<std::size_t>(io.size()));
        io.read(out.data(), static_cast<long>(out.size()));
        return out;
    } catch (const Exiv2::AnyError& error) {
        ADD_FAILURE() << "exiv2 could not write the fixture's metadata: " << error.what();
        return {};
    }
}

void WriteFile(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

}  // namespace orvanta::test

// Pictures made at test time with the field's own libraries: JPEGs from TurboJPEG, TIFFs
// from libtiff, PNGs from libspng, with EXIF, XMP and IPTC values written into them by
// exiv2, so tests never depend on files they did not make. Single-thread helpers.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace orvanta::test {

using Bytes = std::vector<std::uint8_t>;

// Values to write, keyed as exiv2 names them ("Exif.Photo.ExposureTime",
// "Xmp.xmp.Label", "Iptc.Application2.Keywords"); text in exiv2's notation for the key's
// type ("10/1250" for a rational). Blobs go in as undefined bytes.
struct MetadataEdits {
    std::vector<std::pair<std::string, std::string>> exif;
    std::vector<std::pair<std::string, Bytes>> exifBlobs;
    std::vector<std::pair<std::string, std::string>> xmp;
    std::vector<std::pair<std::string, std::string>> iptc;
};

Bytes MakeJpeg(int width, int height);
Bytes MakeTiff(int width, int height);
// A TIFF of `pages` pages (directories) of the same picture.
Bytes MakeMultiPageTiff(int pages, int width, int height);
Bytes MakePng(int width, int height);

// The JPEG with `icc` as one APP2 ICC_PROFILE segment right after its start marker.
Bytes WithIccProfile(const Bytes& jpeg, const Bytes& icc);

// The file with the edits written by exiv2; fails the calling test on an exiv2 error.
Bytes WithMetadata(const Bytes& file, const MetadataEdits& edits);

void WriteFile(const std::filesystem::path& path, const Bytes& bytes);

}  // namespace orvanta::test

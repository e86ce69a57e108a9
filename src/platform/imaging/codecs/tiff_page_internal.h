// How one TIFF page is read and what it becomes: the analysis of a page's tags into an
// output pixel format, a read strategy (bands of strips or tiles, single scanlines for a
// huge compressed strip, or libtiff's RGBA reader for layouts not unpacked here) and the
// operation that turns one row as the file stores it into the output format.
//
// Thread rules: the layout is an immutable value once made; the RGBA reader belongs to
// the handle it was made on and is used by that handle's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <tiffio.h>

#include "platform/imaging/bitmap_source.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

// Bands (a strip, a row of tiles, an RGBA band) are held decoded; none may be larger.
inline constexpr std::size_t kTiffMaxBandBytes = 64u << 20;

enum class TiffRead : std::uint8_t {
    Bands,      // strips or rows of tiles, decoded one band at a time: random access
    Scanlines,  // one huge compressed strip, read row by row: sequential access
    Rgba,       // libtiff's RGBA reader, a band at a time
};

enum class TiffRowOp : std::uint8_t {
    CopyBits,     // the row as stored (packed 1..8 bits, 8- or 16-bit samples)
    InvertBits,   // the same, every bit inverted (min-is-white gray)
    ExpandGray,   // 2- or 4-bit gray to 8 bits, inverted for min-is-white
    Samples,      // 8- or 16-bit samples: keep the first `outSamples` of each pixel (gray
                  // inverted for min-is-white)
    SwapRedBlue,  // 8-bit premultiplied RGBA to B, G, R, A
    Raster,       // libtiff's packed RGBA words to B, G, R, A
};

struct TiffPageLayout {
    PixelSize size;
    PixelFormat format = PixelFormat::Unknown;
    TiffRead read = TiffRead::Bands;
    TiffRowOp op = TiffRowOp::CopyBits;
    bool tiled = false;
    bool separate = false;       // planes interleaved while reading
    std::uint32_t bandRows = 0;  // rows per strip, tile length or RGBA band rows
    std::uint32_t tileWidth = 0;
    std::uint16_t samples = 0;     // samples per pixel as stored
    std::uint16_t bits = 0;        // bits per sample
    std::uint16_t outSamples = 0;  // samples kept by TiffRowOp::Samples and SwapRedBlue
    bool invert = false;           // min-is-white gray
    std::size_t rowBytes = 0;      // one full row as a band holds it (interleaved)
    std::vector<std::uint32_t> palette;
};

// libtiff's RGBA reader over the current page, ended with the object.
class TiffRgbaImage {
public:
    static std::unique_ptr<TiffRgbaImage> Begin(TIFF* tiff);
    ~TiffRgbaImage();
    TiffRgbaImage(const TiffRgbaImage&) = delete;
    TiffRgbaImage& operator=(const TiffRgbaImage&) = delete;

    bool HasAlpha() const { return image_.alpha != 0; }
    // Rows [top, top + rows) as packed RGBA words, `width` words a row.
    bool Read(std::uint32_t top, std::uint32_t rows, std::uint32_t* raster);

private:
    TiffRgbaImage() = default;
    TIFFRGBAImage image_{};
};

// Reads the tags of the current page of `tiff` (and sets libtiff's JPEG colour mode for
// YCbCr JPEG pages). E_UNSUPPORTED_TYPE for a layout nothing here can read, E_FAIL for a
// broken page, E_OUTOFMEMORY for a page over kMaxPixels or with bands over the cap.
Result AnalyzeTiffPage(TIFF* tiff, std::size_t fileSize, TiffPageLayout& layout,
                       std::unique_ptr<TiffRgbaImage>& rgba);

// Writes pixels [x, x + width) of one band row (`row`, in the layout's stored form) to
// `out` in the layout's output format.
void ConvertTiffRow(const TiffPageLayout& layout, const std::uint8_t* row, std::uint32_t x,
                    std::uint32_t width, std::uint8_t* out);

}  // namespace orvanta::imaging::codecs

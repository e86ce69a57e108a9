// Built only with libtiff.
#if ORVANTA_HAVE_TIFF

#include <algorithm>
#include <cstring>

#include "platform/checked.h"
#include "platform/imaging/codecs/tiff_page_internal.h"

namespace orvanta::imaging::codecs {

namespace {

enum class Alpha : std::uint8_t { None, Associated, Unassociated };

struct Tags {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t samples = 1;
    std::uint16_t bits = 1;
    std::uint16_t photometric = 0;
    std::uint16_t planar = PLANARCONFIG_CONTIG;
    std::uint16_t compression = COMPRESSION_NONE;
    std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
    std::uint16_t inkSet = INKSET_CMYK;
    std::uint16_t extraCount = 0;
    const std::uint16_t* extraTypes = nullptr;
};

bool ReadTags(TIFF* tiff, Tags& tags) {
    if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &tags.width) != 1 ||
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &tags.height) != 1 ||
        TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &tags.photometric) != 1) {
        return false;
    }
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &tags.samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &tags.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &tags.planar);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &tags.compression);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &tags.sampleFormat);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_INKSET, &tags.inkSet);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &tags.extraCount, &tags.extraTypes);
    return tags.samples > 0 && tags.bits > 0;
}

// The kind of the first extra sample, the only one that can be alpha here.
Alpha FirstExtra(const Tags& tags, std::uint16_t colour) {
    if (tags.samples <= colour || tags.extraCount == 0 || tags.extraTypes == nullptr) {
        return Alpha::None;
    }
    switch (tags.extraTypes[0]) {
        case EXTRASAMPLE_ASSOCALPHA:
            return Alpha::Associated;
        case EXTRASAMPLE_UNASSALPHA:
            return Alpha::Unassociated;
        default:
            return Alpha::None;
    }
}

// Colormaps are 16-bit, but some writers store 8-bit values in them; a map with no value
// above 255 is taken as 8-bit, as libtiff's own RGBA reader does.
std::vector<std::uint32_t> ReadPalette(TIFF* tiff, std::uint16_t bits) {
    std::uint16_t* red = nullptr;
    std::uint16_t* green = nullptr;
    std::uint16_t* blue = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_COLORMAP, &red, &green, &blue) != 1 || red == nullptr ||
        green == nullptr || blue == nullptr) {
        return {};
    }
    const std::size_t count = std::size_t{1} << bits;
    bool eightBit = true;
    for (std::size_t i = 0; i < count && eightBit; ++i) {
        eightBit = red[i] < 256 && green[i] < 256 && blue[i] < 256;
    }
    const auto scale = [eightBit](std::uint16_t value) -> std::uint32_t {
        return eightBit ? value : value >> 8;
    };
    std::vector<std::uint32_t> palette(count);
    for (std::size_t i = 0; i < count; ++i) {
        palette[i] = 0xFF000000u | scale(red[i]) << 16 | scale(green[i]) << 8 | scale(blue[i]);
    }
    return palette;
}

// Chooses the output format and row operation for layouts read straight from the stored
// samples; false when the page needs libtiff's RGBA reader.
bool ChooseNative(TIFF* tiff, const Tags& tags, TiffPageLayout& layout) {
    if (tags.sampleFormat != SAMPLEFORMAT_UINT && tags.sampleFormat != SAMPLEFORMAT_VOID) {
        return false;
    }
    const bool wide = tags.bits == 8 || tags.bits == 16;
    const bool sixteen = tags.bits == 16;
    layout.samples = tags.samples;
    layout.bits = tags.bits;
    const auto keep = [&](PixelFormat format, std::uint16_t outSamples) {
        layout.format = format;
        layout.outSamples = outSamples;
        layout.op = outSamples == tags.samples ? TiffRowOp::CopyBits : TiffRowOp::Samples;
        return true;
    };
    switch (tags.photometric) {
        case PHOTOMETRIC_MINISBLACK:
        case PHOTOMETRIC_MINISWHITE: {
            const bool white = tags.photometric == PHOTOMETRIC_MINISWHITE;
            const Alpha alpha = FirstExtra(tags, 1);
            if (tags.samples == 1) {
                layout.outSamples = 1;
                layout.invert = white;
                layout.op = white ? TiffRowOp::InvertBits : TiffRowOp::CopyBits;
                switch (tags.bits) {
                    case 1:
                        layout.format = PixelFormat::BlackWhite;
                        return true;
                    case 2:
                    case 4:
                        layout.format = PixelFormat::Gray8;
                        layout.op = TiffRowOp::ExpandGray;
                        return true;
                    case 8:
                        layout.format = PixelFormat::Gray8;
                        return true;
                    case 16:
                        layout.format = PixelFormat::Gray16;
                        return true;
                    default:
                        return false;
                }
            }
            // libtiff's RGBA reader takes gray with alpha as premultiplied, right for
            // associated alpha only.
            if (!wide || alpha == Alpha::Associated) {
                return false;
            }
            layout.invert = white;
            if (alpha == Alpha::Unassociated) {
                keep(sixteen ? PixelFormat::GrayAlpha32 : PixelFormat::GrayAlpha16, 2);
            } else {
                keep(sixteen ? PixelFormat::Gray16 : PixelFormat::Gray8, 1);
            }
            layout.op = TiffRowOp::Samples;
            return true;
        }
        case PHOTOMETRIC_PALETTE: {
            if (tags.samples != 1 || tags.bits > 8 || (tags.bits & (tags.bits - 1)) != 0) {
                return false;
            }
            layout.palette = ReadPalette(tiff, tags.bits);
            if (layout.palette.empty()) {
                return false;
            }
            constexpr PixelFormat kIndexed[] = {PixelFormat::Indexed1, PixelFormat::Indexed2,
                                                PixelFormat::Unknown,  PixelFormat::Indexed4,
                                                PixelFormat::Unknown,  PixelFormat::Unknown,
                                                PixelFormat::Unknown,  PixelFormat::Indexed8};
            return keep(kIndexed[tags.bits - 1], 1);
        }
        case PHOTOMETRIC_RGB: {
            if (!wide || tags.samples < 3) {
                return false;
            }
            switch (FirstExtra(tags, 3)) {
                case Alpha::None:
                    return keep(sixteen ? PixelFormat::Rgb48 : PixelFormat::Rgb24, 3);
                case Alpha::Unassociated:
                    return keep(sixteen ? PixelFormat::Rgba64 : PixelFormat::Rgba32, 4);
                case Alpha::Associated:
                    if (sixteen) {
                        return keep(PixelFormat::Prgba64, 4);
                    }
                    // No premultiplied RGBA order at 8 bits: write the BGRA one.
                    keep(PixelFormat::Pbgra32, 4);
                    layout.op = TiffRowOp::SwapRedBlue;
                    return true;
            }
            return false;
        }
        case PHOTOMETRIC_SEPARATED:
            if (!wide || tags.inkSet != INKSET_CMYK || tags.samples < 4) {
                return false;
            }
            return keep(sixteen ? PixelFormat::Cmyk64 : PixelFormat::Cmyk32, 4);
        default:
            return false;
    }
}

std::optional<std::size_t> Multiply(std::size_t a, std::size_t b) {
    return CheckedMul<std::size_t>(a, b);
}

Result ChooseBands(TIFF* tiff, const Tags& tags, std::size_t fileSize, TiffPageLayout& layout) {
    layout.separate = tags.planar == PLANARCONFIG_SEPARATE && tags.samples > 1;
    if (layout.separate && tags.bits % 8 != 0) {
        return E_UNSUPPORTED_TYPE;
    }
    const std::size_t pixelBits = std::size_t{tags.bits} * tags.samples;
    const auto rowBits = Multiply(pixelBits, tags.width);
    if (!rowBits) {
        return E_OUTOFMEMORY;
    }
    layout.rowBytes = (*rowBits + 7) / 8;
    if (!layout.separate &&
        static_cast<std::uint64_t>(TIFFScanlineSize64(tiff)) != layout.rowBytes) {
        // Subsampled YCbCr and other layouts whose stored rows are not plain pixels.
        return E_UNSUPPORTED_TYPE;
    }
    // Uncompressed data cannot hold more than the file does: a header that claims more
    // is refused before anything is allocated for it.
    const auto imageBytes = Multiply(layout.rowBytes, tags.height);
    if (!imageBytes || (tags.compression == COMPRESSION_NONE && *imageBytes > fileSize)) {
        return E_FAIL;
    }
    std::size_t tileBytes = 0;
    if (TIFFIsTiled(tiff)) {
        layout.tiled = true;
        std::uint32_t tileLength = 0;
        if (TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &layout.tileWidth) != 1 ||
            TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tileLength) != 1 || layout.tileWidth == 0 ||
            tileLength == 0) {
            return E_FAIL;
        }
        const std::size_t storedBits = layout.separate ? tags.bits : pixelBits;
        if (layout.tileWidth * storedBits % 8 != 0) {
            return E_UNSUPPORTED_TYPE;
        }
        layout.bandRows = tileLength;
        tileBytes = static_cast<std::size_t>(TIFFTileSize64(tiff));
    } else {
        std::uint32_t rowsPerStrip = 0;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        layout.bandRows = rowsPerStrip == 0 ? tags.height : rowsPerStrip;
    }
    const std::size_t rows = std::min(layout.bandRows, tags.height);
    const auto bandBytes = Multiply(rows, layout.rowBytes);
    std::optional<std::size_t> total = bandBytes;
    if (total && layout.separate) {
        total = CheckedAdd<std::size_t>(*total, *bandBytes / tags.samples);
    }
    if (total && layout.tiled) {
        total = tileBytes != 0 ? CheckedAdd<std::size_t>(*total, tileBytes) : std::nullopt;
    }
    if (total && *total <= kTiffMaxBandBytes) {
        return S_OK;
    }
    if (!layout.tiled && !layout.separate) {
        // One huge compressed strip: read it a row at a time, top to bottom.
        layout.read = TiffRead::Scanlines;
        layout.bandRows = 1;
        return S_OK;
    }
    return E_OUTOFMEMORY;
}

Result ChooseRgba(TIFF* tiff, const Tags& tags, TiffPageLayout& layout,
                  std::unique_ptr<TiffRgbaImage>& rgba) {
    char message[1024] = {};
    if (TIFFRGBAImageOK(tiff, message) != 1) {
        return E_UNSUPPORTED_TYPE;
    }
    rgba = TiffRgbaImage::Begin(tiff);
    if (!rgba) {
        return E_FAIL;
    }
    layout.read = TiffRead::Rgba;
    layout.op = TiffRowOp::Raster;
    layout.format = rgba->HasAlpha() ? PixelFormat::Pbgra32 : PixelFormat::Bgr32;
    layout.rowBytes = std::size_t{tags.width} * 4;
    std::uint32_t rows = 0;
    if (TIFFIsTiled(tiff)) {
        layout.tiled = true;
        TIFFGetField(tiff, TIFFTAG_TILELENGTH, &rows);
    } else {
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rows);
    }
    rows = std::clamp<std::uint32_t>(rows, 1, tags.height);
    if (std::size_t{rows} * layout.rowBytes > kTiffMaxBandBytes) {
        // Smaller bands; a multiple of 16 rows keeps subsampled chroma whole.
        rows = static_cast<std::uint32_t>(kTiffMaxBandBytes / layout.rowBytes) & ~15u;
        if (rows == 0) {
            return E_OUTOFMEMORY;
        }
    }
    layout.bandRows = rows;
    return S_OK;
}

}  // namespace

std::unique_ptr<TiffRgbaImage> TiffRgbaImage::Begin(TIFF* tiff) {
    std::unique_ptr<TiffRgbaImage> image(new TiffRgbaImage());
    char message[1024] = {};
    if (TIFFRGBAImageBegin(&image->image_, tiff, 1, message) != 1) {
        // Begin cleans up after itself when it fails; nothing to end.
        image->image_.tif = nullptr;
        return nullptr;
    }
    // Rows in stored order: orientation is applied later from the page's metadata.
    image->image_.req_orientation = image->image_.orientation;
    return image;
}

TiffRgbaImage::~TiffRgbaImage() {
    if (image_.tif != nullptr) {
        TIFFRGBAImageEnd(&image_);
    }
}

bool TiffRgbaImage::Read(std::uint32_t top, std::uint32_t rows, std::uint32_t* raster) {
    image_.row_offset = static_cast<int>(top);
    image_.col_offset = 0;
    return TIFFRGBAImageGet(&image_, raster, image_.width, rows) == 1;
}

Result AnalyzeTiffPage(TIFF* tiff, std::size_t fileSize, TiffPageLayout& layout,
                       std::unique_ptr<TiffRgbaImage>& rgba) {
    layout = {};
    rgba.reset();
    Tags tags;
    if (!ReadTags(tiff, tags)) {
        return E_FAIL;
    }
    layout.size = {tags.width, tags.height};
    if (tags.width == 0 || tags.height == 0) {
        return E_FAIL;
    }
    if (!AcceptableSize(layout.size)) {
        return E_OUTOFMEMORY;
    }
    bool native = tags.compression != COMPRESSION_OJPEG;
    if (tags.photometric == PHOTOMETRIC_YCBCR) {
        // libjpeg converts JPEG-compressed YCbCr itself; other YCbCr goes to the RGBA reader.
        native = native && tags.compression == COMPRESSION_JPEG &&
                 tags.planar == PLANARCONFIG_CONTIG && tags.samples == 3 && tags.bits == 8 &&
                 TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB) == 1;
        tags.photometric = PHOTOMETRIC_RGB;
    }
    if (native && ChooseNative(tiff, tags, layout)) {
        const Result bands = ChooseBands(tiff, tags, fileSize, layout);
        if (bands != E_UNSUPPORTED_TYPE) {
            return bands;
        }
    }
    layout = {};
    layout.size = {tags.width, tags.height};
    return ChooseRgba(tiff, tags, layout, rgba);
}

namespace {

// Copies `bitCount` bits starting `bitOffset` bits into `row` to the start of `out`.
void CopyBitRange(const std::uint8_t* row, std::size_t bitOffset, std::size_t bitCount,
                  std::uint8_t* out) {
    const std::uint8_t* source = row + bitOffset / 8;
    const unsigned shift = bitOffset % 8;
    const std::size_t outBytes = (bitCount + 7) / 8;
    if (shift == 0) {
        std::memcpy(out, source, outBytes);
        return;
    }
    // The last source byte that holds a wanted bit; never read past it.
    const std::size_t sourceBytes = (shift + bitCount + 7) / 8;
    for (std::size_t i = 0; i < outBytes; ++i) {
        const unsigned high = static_cast<unsigned>(source[i]) << shift;
        const unsigned low = i + 1 < sourceBytes ? source[i + 1] >> (8 - shift) : 0;
        out[i] = static_cast<std::uint8_t>(high | low);
    }
}

}  // namespace

void ConvertTiffRow(const TiffPageLayout& layout, const std::uint8_t* row, std::uint32_t x,
                    std::uint32_t width, std::uint8_t* out) {
    switch (layout.op) {
        case TiffRowOp::CopyBits:
        case TiffRowOp::InvertBits: {
            const std::size_t pixelBits = std::size_t{layout.bits} * layout.samples;
            CopyBitRange(row, pixelBits * x, pixelBits * width, out);
            if (layout.op == TiffRowOp::InvertBits) {
                const std::size_t bytes = (pixelBits * width + 7) / 8;
                for (std::size_t i = 0; i < bytes; ++i) {
                    out[i] = static_cast<std::uint8_t>(~out[i]);
                }
            }
            return;
        }
        case TiffRowOp::ExpandGray: {
            const unsigned bits = layout.bits;
            const unsigned maximum = (1u << bits) - 1;
            const unsigned perByte = 8 / bits;
            for (std::uint32_t i = 0; i < width; ++i) {
                const std::size_t index = std::size_t{x} + i;
                const unsigned shift = 8 - bits * (index % perByte + 1);
                unsigned value = (row[index / perByte] >> shift) & maximum;
                value = value * 255 / maximum;
                out[i] = static_cast<std::uint8_t>(layout.invert ? 255 - value : value);
            }
            return;
        }
        case TiffRowOp::Samples: {
            const std::size_t sampleBytes = layout.bits / 8;
            const std::size_t pixel = sampleBytes * layout.samples;
            const std::size_t kept = sampleBytes * layout.outSamples;
            const std::uint8_t* source = row + pixel * x;
            for (std::uint32_t i = 0; i < width; ++i) {
                std::memcpy(out + kept * i, source + pixel * i, kept);
                if (layout.invert) {
                    // Min-is-white gray: the gray sample only, never the alpha.
                    for (std::size_t b = 0; b < sampleBytes; ++b) {
                        out[kept * i + b] = static_cast<std::uint8_t>(~out[kept * i + b]);
                    }
                }
            }
            return;
        }
        case TiffRowOp::SwapRedBlue: {
            const std::uint8_t* source = row + std::size_t{layout.samples} * x;
            for (std::uint32_t i = 0; i < width; ++i, source += layout.samples, out += 4) {
                out[0] = source[2];
                out[1] = source[1];
                out[2] = source[0];
                out[3] = source[3];
            }
            return;
        }
        case TiffRowOp::Raster: {
            const std::uint8_t* source = row + std::size_t{4} * x;
            for (std::uint32_t i = 0; i < width; ++i, source += 4, out += 4) {
                std::uint32_t word = 0;
                std::memcpy(&word, source, 4);
                out[0] = static_cast<std::uint8_t>(TIFFGetB(word));
                out[1] = static_cast<std::uint8_t>(TIFFGetG(word));
                out[2] = static_cast<std::uint8_t>(TIFFGetR(word));
                out[3] = static_cast<std::uint8_t>(TIFFGetA(word));
            }
            return;
        }
    }
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_TIFF

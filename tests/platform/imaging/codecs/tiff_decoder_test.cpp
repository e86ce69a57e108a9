#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tiffio.h>

#include "platform/imaging/codecs/codecs.h"
#include "support/temp_folder.h"

namespace orvanta::imaging::codecs {
namespace {

struct PageLayout {
    const char* name;
    PixelFormat expected;
    std::uint16_t samples = 1;
    std::uint16_t bits = 8;
    std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    std::uint16_t extra = EXTRASAMPLE_UNSPECIFIED;  // type of the first extra sample
    std::uint16_t compression = COMPRESSION_NONE;
    std::uint16_t planar = PLANARCONFIG_CONTIG;
    std::uint32_t tile = 0;  // tile side; 0 for strips
    std::uint32_t width = 37;
    std::uint32_t height = 21;
    int tolerance = 0;  // for lossy compression
    std::uint32_t rowsPerStrip = 4;
};

std::uint32_t Maximum(const PageLayout& page) {
    return (1u << page.bits) - 1;
}

// The stored value of sample `s` of pixel (x, y): a gradient that fits 8 bits for the
// JPEG pages (32 x 16) and wraps elsewhere.
std::uint32_t StoredSample(const PageLayout& page, std::uint32_t x, std::uint32_t y,
                           std::uint32_t s) {
    const std::uint32_t value = x * 3 + y * 5 + s * 40;
    return page.bits == 16 ? (value * 263) & 0xFFFF : value % (Maximum(page) + 1);
}

void PutBits(std::vector<std::uint8_t>& row, std::size_t index, unsigned bits, unsigned value) {
    const std::size_t bit = index * bits;
    row[bit / 8] |= static_cast<std::uint8_t>(value << (8 - bits - bit % 8));
}

// Rows of `samples` interleaved samples (sample `first` onwards), as the file stores them.
std::vector<std::uint8_t> StoredRow(const PageLayout& page, std::uint32_t y, std::uint32_t first,
                                    std::uint32_t samples) {
    std::vector<std::uint8_t> row((std::size_t{page.width} * samples * page.bits + 7) / 8);
    for (std::uint32_t x = 0; x < page.width; ++x) {
        for (std::uint32_t s = 0; s < samples; ++s) {
            const std::uint32_t value = StoredSample(page, x, y, first + s);
            const std::size_t index = std::size_t{x} * samples + s;
            if (page.bits == 16) {
                const auto v = static_cast<std::uint16_t>(value);
                std::memcpy(row.data() + index * 2, &v, 2);
            } else {
                PutBits(row, index, page.bits, value);
            }
        }
    }
    return row;
}

std::vector<std::uint8_t> ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WritePage(TIFF* tiff, const PageLayout& page) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, page.samples);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, page.bits);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, page.planar);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, page.compression);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, page.photometric);
    const std::uint16_t colour =
        page.photometric == PHOTOMETRIC_RGB || page.photometric == PHOTOMETRIC_YCBCR ? 3
        : page.photometric == PHOTOMETRIC_SEPARATED                                  ? 4
                                                                                     : 1;
    if (page.samples > colour) {
        std::vector<std::uint16_t> extras(page.samples - colour, EXTRASAMPLE_UNSPECIFIED);
        extras[0] = page.extra;
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<std::uint16_t>(extras.size()),
                     extras.data());
    }
    if (page.photometric == PHOTOMETRIC_PALETTE) {
        std::vector<std::uint16_t> red(1u << page.bits), green(red.size()), blue(red.size());
        for (std::size_t i = 0; i < red.size(); ++i) {
            red[i] = static_cast<std::uint16_t>(i * 257);
            green[i] = static_cast<std::uint16_t>(0xFFFF - i * 257);
            blue[i] = 0x8080;
        }
        TIFFSetField(tiff, TIFFTAG_COLORMAP, red.data(), green.data(), blue.data());
    }
    if (page.compression == COMPRESSION_JPEG) {
        TIFFSetField(tiff, TIFFTAG_JPEGQUALITY, 95);
        if (page.photometric == PHOTOMETRIC_YCBCR) {
            TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        }
    }
    const bool separate = page.planar == PLANARCONFIG_SEPARATE;
    const std::uint32_t planes = separate ? page.samples : 1;
    const std::uint32_t perPlane = separate ? 1 : page.samples;
    if (page.tile == 0) {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, page.rowsPerStrip);
        for (std::uint32_t plane = 0; plane < planes; ++plane) {
            for (std::uint32_t y = 0; y < page.height; ++y) {
                auto row = StoredRow(page, y, plane, perPlane);
                ASSERT_EQ(TIFFWriteScanline(tiff, row.data(), y, static_cast<std::uint16_t>(plane)),
                          1);
            }
        }
    } else {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, page.tile);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, page.tile);
        const std::size_t pixelBits = std::size_t{perPlane} * page.bits;
        const std::size_t tileRow = (page.tile * pixelBits + 7) / 8;
        for (std::uint32_t plane = 0; plane < planes; ++plane) {
            for (std::uint32_t ty = 0; ty < page.height; ty += page.tile) {
                for (std::uint32_t tx = 0; tx < page.width; tx += page.tile) {
                    std::vector<std::uint8_t> tile(tileRow * page.tile);
                    for (std::uint32_t r = 0; r < page.tile && ty + r < page.height; ++r) {
                        const auto row = StoredRow(page, ty + r, plane, perPlane);
                        const std::size_t offset = tx * pixelBits / 8;
                        const std::size_t bytes = std::min(tileRow, row.size() - offset);
                        std::memcpy(tile.data() + r * tileRow, row.data() + offset, bytes);
                    }
                    ASSERT_GT(TIFFWriteTile(tiff, tile.data(), tx, ty, 0,
                                            static_cast<std::uint16_t>(plane)),
                              0);
                }
            }
        }
    }
    ASSERT_EQ(TIFFWriteDirectory(tiff), 1);
}

std::shared_ptr<const FileBytes> MakeTiff(const std::vector<PageLayout>& pages,
                                          const char* mode = "w",
                                          void (*extraTags)(TIFF*) = nullptr) {
    test::TempFolder folder;
    const auto path = folder / "fixture.tif";
    TIFF* tiff = TIFFOpen(path.c_str(), mode);
    EXPECT_NE(tiff, nullptr);
    for (const PageLayout& page : pages) {
        if (extraTags != nullptr) {
            extraTags(tiff);
        }
        WritePage(tiff, page);
    }
    TIFFClose(tiff);
    return FileBytes::FromMemory(ReadAll(path), path);
}

// The expected output row of the whole page, computed from the stored samples.
std::vector<std::uint8_t> ExpectedRow(const PageLayout& page, std::uint32_t y) {
    const PixelFormatInfo& info = Info(page.expected);
    std::vector<std::uint8_t> row((std::size_t{page.width} * info.bitsPerPixel + 7) / 8);
    const bool white = page.photometric == PHOTOMETRIC_MINISWHITE;
    for (std::uint32_t x = 0; x < page.width; ++x) {
        const auto sample = [&](std::uint32_t s) { return StoredSample(page, x, y, s); };
        switch (page.expected) {
            case PixelFormat::BlackWhite:
                PutBits(row, x, 1, white ? 1 - sample(0) : sample(0));
                break;
            case PixelFormat::Indexed1:
            case PixelFormat::Indexed2:
            case PixelFormat::Indexed4:
                PutBits(row, x, page.bits, sample(0));
                break;
            case PixelFormat::Pbgra32: {
                const bool gray = page.samples == 2;
                row[x * 4 + 0] = static_cast<std::uint8_t>(sample(gray ? 0 : 2));
                row[x * 4 + 1] = static_cast<std::uint8_t>(sample(gray ? 0 : 1));
                row[x * 4 + 2] = static_cast<std::uint8_t>(sample(0));
                row[x * 4 + 3] = static_cast<std::uint8_t>(sample(gray ? 1 : 3));
                break;
            }
            default:
                for (std::uint32_t s = 0; s < info.channels; ++s) {
                    std::uint32_t value = sample(s);
                    if (page.bits < 8) {
                        value = value * 255 / Maximum(page);
                    }
                    if (white && s == 0) {
                        value = (info.bitsPerChannel == 16 ? 0xFFFF : 0xFF) - value;
                    }
                    const std::size_t index = std::size_t{x} * info.channels + s;
                    if (info.bitsPerChannel == 16) {
                        const auto v = static_cast<std::uint16_t>(value);
                        std::memcpy(row.data() + index * 2, &v, 2);
                    } else {
                        row[index] = static_cast<std::uint8_t>(value);
                    }
                }
        }
    }
    return row;
}

// Bits [first, first + count) of `row`, moved to the start; trailing bits cleared.
std::vector<std::uint8_t> BitSlice(const std::vector<std::uint8_t>& row, std::size_t first,
                                   std::size_t count) {
    std::vector<std::uint8_t> out((count + 7) / 8);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t bit = first + i;
        if (row[bit / 8] & (0x80 >> (bit % 8))) {
            out[i / 8] |= static_cast<std::uint8_t>(0x80 >> (i % 8));
        }
    }
    return out;
}

void ExpectRect(BitmapSource& source, const PageLayout& page, const PixelRect& rect) {
    const std::size_t bpp = BitsPerPixel(source.Format());
    const std::size_t rowBits = bpp * rect.width;
    const std::size_t stride = (rowBits + 7) / 8 + 3;
    std::vector<std::byte> out(stride * rect.height);
    ASSERT_EQ(source.CopyPixels(rect, stride, out), S_OK);
    for (std::int32_t r = 0; r < rect.height; ++r) {
        const auto want = BitSlice(ExpectedRow(page, rect.y + r), bpp * rect.x, rowBits);
        auto got =
            BitSlice(std::vector<std::uint8_t>(
                         reinterpret_cast<const std::uint8_t*>(out.data()) + r * stride,
                         reinterpret_cast<const std::uint8_t*>(out.data()) + (r + 1) * stride),
                     0, rowBits);
        for (std::size_t i = 0; i < want.size(); ++i) {
            ASSERT_LE(std::abs(int{want[i]} - int{got[i]}), page.tolerance)
                << page.name << " row " << rect.y + r << " byte " << i;
        }
    }
}

class TiffLayouts : public testing::TestWithParam<PageLayout> {};

TEST_P(TiffLayouts, DecodesToTheNaturalFormat) {
    const PageLayout& page = GetParam();
    const auto bytes = MakeTiff({page});
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(TiffDecoderInfo().create(bytes, decoder), S_OK);
    ASSERT_EQ(decoder->FrameCount(), 1u);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    EXPECT_EQ(frame->Format(), page.expected) << Info(frame->Format()).name;
    EXPECT_EQ(frame->Size(), (PixelSize{page.width, page.height}));
    ASSERT_EQ(frame->GetAccess(), Access::Random);
    const auto w = static_cast<std::int32_t>(page.width);
    const auto h = static_cast<std::int32_t>(page.height);
    ExpectRect(*frame, page, {0, 0, w, h});
    // Going back up and starting mid-byte for packed formats.
    ExpectRect(*frame, page, {3, h - 7, w - 5, 6});
    ExpectRect(*frame, page, {1, 2, 17, 9});
}

const PageLayout kLayouts[] = {
    {"Gray8", PixelFormat::Gray8},
    {"Gray16", PixelFormat::Gray16, 1, 16},
    {"Gray4", PixelFormat::Gray8, 1, 4},
    {"MinIsWhite1", PixelFormat::BlackWhite, 1, 1, PHOTOMETRIC_MINISWHITE},
    {"MinIsBlack1", PixelFormat::BlackWhite, 1, 1},
    {"MinIsWhite8", PixelFormat::Gray8, 1, 8, PHOTOMETRIC_MINISWHITE},
    {"MinIsWhite16Alpha", PixelFormat::GrayAlpha32, 2, 16, PHOTOMETRIC_MINISWHITE,
     EXTRASAMPLE_UNASSALPHA},
    {"GrayExtraDropped", PixelFormat::Gray8, 2, 8, PHOTOMETRIC_MINISBLACK},
    {"GrayAssociatedViaRgba", PixelFormat::Pbgra32, 2, 8, PHOTOMETRIC_MINISBLACK,
     EXTRASAMPLE_ASSOCALPHA},
    {"Palette8", PixelFormat::Indexed8, 1, 8, PHOTOMETRIC_PALETTE},
    {"Palette4", PixelFormat::Indexed4, 1, 4, PHOTOMETRIC_PALETTE},
    {"Palette2Tiled", PixelFormat::Indexed2, 1, 2, PHOTOMETRIC_PALETTE, 0, COMPRESSION_NONE,
     PLANARCONFIG_CONTIG, 16},
    {"Rgb8", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_RGB},
    {"Rgb16", PixelFormat::Rgb48, 3, 16, PHOTOMETRIC_RGB},
    {"Rgba8", PixelFormat::Rgba32, 4, 8, PHOTOMETRIC_RGB, EXTRASAMPLE_UNASSALPHA},
    {"Rgba16", PixelFormat::Rgba64, 4, 16, PHOTOMETRIC_RGB, EXTRASAMPLE_UNASSALPHA},
    {"Prgba8", PixelFormat::Pbgra32, 4, 8, PHOTOMETRIC_RGB, EXTRASAMPLE_ASSOCALPHA},
    {"Prgba16", PixelFormat::Prgba64, 4, 16, PHOTOMETRIC_RGB, EXTRASAMPLE_ASSOCALPHA},
    {"RgbExtraDropped", PixelFormat::Rgb24, 5, 8, PHOTOMETRIC_RGB},
    {"Cmyk8", PixelFormat::Cmyk32, 4, 8, PHOTOMETRIC_SEPARATED},
    {"Cmyk16Lzw", PixelFormat::Cmyk64, 4, 16, PHOTOMETRIC_SEPARATED, 0, COMPRESSION_LZW},
    {"RgbSeparate", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_RGB, 0, COMPRESSION_NONE,
     PLANARCONFIG_SEPARATE},
    {"Rgba16SeparateTiled", PixelFormat::Rgba64, 4, 16, PHOTOMETRIC_RGB, EXTRASAMPLE_UNASSALPHA,
     COMPRESSION_ADOBE_DEFLATE, PLANARCONFIG_SEPARATE, 16},
    {"RgbTiledLzw", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_RGB, 0, COMPRESSION_LZW,
     PLANARCONFIG_CONTIG, 16},
    {"Gray16Deflate", PixelFormat::Gray16, 1, 16, PHOTOMETRIC_MINISBLACK, 0,
     COMPRESSION_ADOBE_DEFLATE},
    {"Gray8PackBits", PixelFormat::Gray8, 1, 8, PHOTOMETRIC_MINISBLACK, 0, COMPRESSION_PACKBITS},
    {"Gray1Fax4", PixelFormat::BlackWhite, 1, 1, PHOTOMETRIC_MINISWHITE, 0, COMPRESSION_CCITTFAX4},
    {"JpegRgb", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_RGB, 0, COMPRESSION_JPEG, PLANARCONFIG_CONTIG,
     0, 32, 16, 6, 16},
    {"JpegYCbCr", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_YCBCR, 0, COMPRESSION_JPEG,
     PLANARCONFIG_CONTIG, 0, 32, 16, 8, 16},
};

INSTANTIATE_TEST_SUITE_P(Tiff, TiffLayouts, testing::ValuesIn(kLayouts),
                         [](const auto& info) { return std::string(info.param.name); });

std::unique_ptr<BitmapFrame> FirstFrame(std::shared_ptr<const FileBytes> bytes, Result& result) {
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    result = TiffDecoderInfo().create(std::move(bytes), decoder);
    if (result.Succeeded()) {
        result = decoder->GetFrame(0, frame);
    }
    return frame;
}

TEST(TiffDecoder, PaletteScalesTheColormap) {
    Result result;
    auto frame =
        FirstFrame(MakeTiff({{"p", PixelFormat::Indexed8, 1, 8, PHOTOMETRIC_PALETTE}}), result);
    ASSERT_EQ(result, S_OK);
    const auto palette = frame->Palette();
    ASSERT_EQ(palette.size(), 256u);
    EXPECT_EQ(palette[0], 0xFF00FF80u);
    EXPECT_EQ(palette[200], 0xFFC83780u);
}

TEST(TiffDecoder, PagesAreFrames) {
    const PageLayout first{"a", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_RGB, 0, COMPRESSION_LZW};
    PageLayout second{"b", PixelFormat::Gray16, 1, 16};
    second.width = 9;
    second.height = 30;
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(TiffDecoderInfo().create(MakeTiff({first, second}), decoder), S_OK);
    EXPECT_EQ(decoder->Container(), container::Tiff);
    ASSERT_EQ(decoder->FrameCount(), 2u);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(1, frame), S_OK);
    EXPECT_EQ(frame->Format(), PixelFormat::Gray16);
    ExpectRect(*frame, second, {0, 0, 9, 30});
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    ExpectRect(*frame, first, {0, 0, 37, 21});
    EXPECT_EQ(decoder->GetFrame(2, frame), E_INVALIDARG);
}

TEST(TiffDecoder, BigTiffDecodesWithoutExifBlock) {
    const PageLayout page{"big", PixelFormat::Rgb48, 3, 16, PHOTOMETRIC_RGB, 0, COMPRESSION_LZW};
    Result result;
    auto frame = FirstFrame(MakeTiff({page}, "w8"), result);
    ASSERT_EQ(result, S_OK);
    ExpectRect(*frame, page, {0, 0, 37, 21});
    EXPECT_TRUE(frame->Metadata().exif.empty());
}

const std::string kXmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
const std::vector<std::uint8_t> kIcc(300, 0x5A);
const std::vector<std::uint8_t> kIptc = {0x1C, 0x02, 0x00, 0x00, 0x02, 0x00, 0x04, 0x1C};

TEST(TiffDecoder, MetadataBlocksPointIntoTheFile) {
    const auto bytes = MakeTiff({{"m", PixelFormat::Gray8}}, "w", [](TIFF* tiff) {
        TIFFSetField(tiff, TIFFTAG_XMLPACKET, static_cast<std::uint32_t>(kXmp.size()), kXmp.data());
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(kIcc.size()),
                     kIcc.data());
        TIFFSetField(tiff, TIFFTAG_RICHTIFFIPTC, static_cast<std::uint32_t>(kIptc.size()),
                     kIptc.data());
    });
    Result result;
    auto frame = FirstFrame(bytes, result);
    ASSERT_EQ(result, S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(blocks.exif.data(), bytes->Bytes().data());
    EXPECT_EQ(std::string(blocks.xmp.begin(), blocks.xmp.end()), kXmp);
    EXPECT_EQ(std::vector<std::uint8_t>(blocks.icc.begin(), blocks.icc.end()), kIcc);
    EXPECT_EQ(std::vector<std::uint8_t>(blocks.iptc.begin(), blocks.iptc.end()), kIptc);
    EXPECT_EQ(&frame->File(), bytes.get());
}

// A minimal little-endian TIFF with one gray page whose header makes any claim.
std::vector<std::uint8_t> HandMadeTiff(std::uint32_t width, std::uint32_t height,
                                       std::uint16_t compression, std::uint32_t rowsPerStrip) {
    std::vector<std::uint8_t> file = {'I', 'I', 42, 0, 8, 0, 0, 0};
    const auto put16 = [&](std::uint16_t v) {
        file.push_back(static_cast<std::uint8_t>(v));
        file.push_back(static_cast<std::uint8_t>(v >> 8));
    };
    const auto put32 = [&](std::uint32_t v) {
        put16(static_cast<std::uint16_t>(v));
        put16(static_cast<std::uint16_t>(v >> 16));
    };
    const auto entry = [&](std::uint16_t tag, std::uint16_t type, std::uint32_t value) {
        put16(tag);
        put16(type);
        put32(1);
        put32(value);
    };
    put16(9);
    entry(256, 4, width);
    entry(257, 4, height);
    entry(258, 3, 8);
    entry(259, 3, compression);
    entry(262, 3, 1);
    entry(273, 4, 8 + 2 + 9 * 12 + 4);  // strip offset: just after the IFD
    entry(277, 3, 1);
    entry(278, 4, rowsPerStrip);
    entry(279, 4, 64);
    put32(0);
    file.resize(file.size() + 64, 0x78);
    return file;
}

TEST(TiffDecoder, RefusesHeadersThatClaimTooMuch) {
    Result result;
    // More pixels than kMaxPixels.
    FirstFrame(FileBytes::FromMemory(HandMadeTiff(65535, 65535, 8, 65535)), result);
    EXPECT_EQ(result, E_OUTOFMEMORY);
    // Uncompressed data larger than the file.
    FirstFrame(FileBytes::FromMemory(HandMadeTiff(20000, 20000, 1, 20000)), result);
    EXPECT_EQ(result, E_FAIL);
}

TEST(TiffDecoder, HugeCompressedStripIsReadRowByRow) {
    // 600 MB claimed in one Deflate strip of 64 bytes: read a row at a time, and the
    // garbage data fails on the first row instead of allocating the strip.
    Result result;
    auto frame = FirstFrame(FileBytes::FromMemory(HandMadeTiff(30000, 20000, 8, 20000)), result);
    ASSERT_EQ(result, S_OK);
    EXPECT_EQ(frame->GetAccess(), Access::Sequential);
    std::vector<std::byte> row(30000);
    EXPECT_TRUE(frame->CopyPixels({0, 0, 30000, 1}, row.size(), row).Failed());
}

TEST(TiffDecoder, UnsupportedSamplesFailCleanly) {
    test::TempFolder folder;
    const auto path = folder / "float.tif";
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(tiff, nullptr);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 4u);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 2u);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 32);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    float row[4] = {0.f, 0.25f, 0.5f, 1.f};
    TIFFWriteScanline(tiff, row, 0, 0);
    TIFFWriteScanline(tiff, row, 1, 0);
    TIFFClose(tiff);
    Result result;
    EXPECT_EQ(FirstFrame(FileBytes::FromMemory(ReadAll(path)), result), nullptr);
    EXPECT_EQ(result, E_UNSUPPORTED_TYPE);
}

TEST(TiffDecoder, TruncatedFilesNeverGiveWrongPixels) {
    const PageLayout pages[] = {{"a", PixelFormat::Rgb24, 3, 8, PHOTOMETRIC_RGB, 0, COMPRESSION_LZW,
                                 PLANARCONFIG_CONTIG, 0, 12, 7},
                                {"b", PixelFormat::Gray8, 1, 8, PHOTOMETRIC_MINISBLACK, 0,
                                 COMPRESSION_ADOBE_DEFLATE, PLANARCONFIG_CONTIG, 16, 20, 18}};
    const auto file = MakeTiff({pages[0], pages[1]});
    const auto whole = file->Bytes();
    int decoded = 0;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        std::unique_ptr<Decoder> decoder;
        const auto bytes = FileBytes::FromMemory({whole.begin(), whole.begin() + length});
        if (TiffDecoderInfo().create(bytes, decoder).Failed()) {
            continue;
        }
        for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
            std::unique_ptr<BitmapFrame> frame;
            if (decoder->GetFrame(i, frame).Failed()) {
                continue;
            }
            const std::size_t stride = frame->RowBytes(frame->Size().width);
            std::vector<std::byte> out(stride * frame->Size().height);
            if (frame->CopyAll(stride, out).Failed()) {
                continue;
            }
            ++decoded;
            for (std::uint32_t y = 0; y < frame->Size().height; ++y) {
                const auto want = ExpectedRow(pages[i], y);
                ASSERT_EQ(std::memcmp(want.data(), out.data() + y * stride, want.size()), 0)
                    << "length " << length << " frame " << i << " row " << y;
            }
        }
    }
    // The first page is whole in every prefix that holds its IFD (written after its data).
    EXPECT_GT(decoded, 0);
}

TEST(TiffDecoder, RegistersByContentAndExtension) {
    const DecoderInfo info = TiffDecoderInfo();
    EXPECT_EQ(info.container, container::Tiff);
    EXPECT_EQ(info.vendor, vendor::Microsoft);
    EXPECT_EQ(info.name, "TIFF Decoder");
    EXPECT_EQ(info.extensions, ".tiff,.tif");
    for (const char* head : {"II*\0", "MM\0*", "II+\0", "MM\0+"}) {
        EXPECT_TRUE(info.matches({reinterpret_cast<const std::uint8_t*>(head), 4})) << head;
    }
    for (const char* head : {"II*\1", "MM*\0", "II\xBC\x01", "RIFF"}) {
        EXPECT_FALSE(info.matches({reinterpret_cast<const std::uint8_t*>(head), 4})) << head;
    }
    const DecoderInfo* found =
        ComponentList::Instance().FindByContent(MakeTiff({{"x", PixelFormat::Gray8}})->Bytes());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->container, container::Tiff);
}

// One pixel of a decoded row as 8-bit R, G, B, for the formats real files give.
std::array<std::uint8_t, 3> Rgb8(PixelFormat format, const std::byte* row, std::uint32_t x) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(row);
    switch (format) {
        case PixelFormat::Rgb24:
            return {p[x * 3], p[x * 3 + 1], p[x * 3 + 2]};
        case PixelFormat::Bgr32:
            return {p[x * 4 + 2], p[x * 4 + 1], p[x * 4]};
        case PixelFormat::Gray8:
            return {p[x], p[x], p[x]};
        case PixelFormat::Gray16: {
            std::uint16_t v = 0;
            std::memcpy(&v, p + x * 2, 2);
            const auto g = static_cast<std::uint8_t>(v >> 8);
            return {g, g, g};
        }
        case PixelFormat::BlackWhite: {
            const std::uint8_t v = (p[x / 8] & (0x80 >> (x % 8))) ? 255 : 0;
            return {v, v, v};
        }
        default:
            ADD_FAILURE() << "no oracle for " << Info(format).name;
            return {};
    }
}

// libtiff's own RGBA reader is the oracle for the pages of real files.
void ExpectSameAsLibtiff(const std::filesystem::path& path, std::uint32_t page,
                         BitmapFrame& frame) {
    TIFF* tiff = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tiff, nullptr);
    ASSERT_EQ(TIFFSetDirectory(tiff, static_cast<tdir_t>(page)), 1);
    const PixelSize size = frame.Size();
    std::vector<std::uint32_t> raster(std::size_t{size.width} * size.height);
    ASSERT_EQ(TIFFReadRGBAImageOriented(tiff, size.width, size.height, raster.data(),
                                        ORIENTATION_TOPLEFT, 1),
              1);
    TIFFClose(tiff);
    const std::size_t stride = frame.RowBytes(size.width);
    std::vector<std::byte> out(stride * size.height);
    ASSERT_EQ(frame.CopyAll(stride, out), S_OK);
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            const std::uint32_t word = raster[std::size_t{y} * size.width + x];
            const auto got = Rgb8(frame.Format(), out.data() + y * stride, x);
            ASSERT_EQ(got, (std::array<std::uint8_t, 3>{static_cast<std::uint8_t>(TIFFGetR(word)),
                                                        static_cast<std::uint8_t>(TIFFGetG(word)),
                                                        static_cast<std::uint8_t>(TIFFGetB(word))}))
                << path.filename() << " page " << page << " at " << x << "," << y;
        }
    }
}

TEST(TiffDecoder, RealFilesMatchLibtiff) {
    const auto root = test::TestDataFolder();
    if (root.empty() || !std::filesystem::exists(root / "formats/tiff")) {
        GTEST_SKIP() << "no test data";
    }
    const std::map<std::string, std::uint32_t> pageCounts = {
        {"OME_15pages_8bit.ome.tif", 15},
        {"ghostscript_g4_3pages.tiff", 3},
        {"scanned_5pages_mixed.tif", 5},
    };
    int files = 0;
    for (const char* folder : {"formats/tiff", "tiff-multipage"}) {
        if (!std::filesystem::exists(root / folder)) {
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(root / folder)) {
            ++files;
            std::shared_ptr<const FileBytes> bytes;
            ASSERT_EQ(FileBytes::Read(entry.path(), bytes), S_OK);
            std::unique_ptr<Decoder> decoder;
            ASSERT_EQ(TiffDecoderInfo().create(bytes, decoder), S_OK) << entry.path();
            const auto name = entry.path().filename().string();
            if (pageCounts.contains(name)) {
                EXPECT_EQ(decoder->FrameCount(), pageCounts.at(name)) << name;
            }
            for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
                std::unique_ptr<BitmapFrame> frame;
                ASSERT_EQ(decoder->GetFrame(i, frame), S_OK) << name << " page " << i;
                const auto exif = frame->Metadata().exif;
                ASSERT_GE(exif.size(), 4u);
                EXPECT_TRUE(std::memcmp(exif.data(), "II*\0", 4) == 0 ||
                            std::memcmp(exif.data(), "MM\0*", 4) == 0);
                // The large scanned pages only decode; the others match libtiff exactly.
                if (std::uint64_t{frame->Size().width} * frame->Size().height > (4u << 20)) {
                    const std::size_t stride = frame->RowBytes(frame->Size().width);
                    std::vector<std::byte> out(stride * frame->Size().height);
                    EXPECT_EQ(frame->CopyAll(stride, out), S_OK) << name << " page " << i;
                } else {
                    ExpectSameAsLibtiff(entry.path(), i, *frame);
                }
            }
        }
    }
    EXPECT_GT(files, 0);
}

TEST(TiffDecoder, LightroomExportCarriesItsMetadata) {
    const auto path = test::TestDataFolder() / "formats/tiff/Pentax_K-3II_Lightroom_sunrise.tif";
    if (!std::filesystem::exists(path)) {
        GTEST_SKIP() << "no test data";
    }
    std::shared_ptr<const FileBytes> bytes;
    ASSERT_EQ(FileBytes::Read(path, bytes), S_OK);
    Result result;
    const auto frame = FirstFrame(bytes, result);
    ASSERT_EQ(result, S_OK);
    const auto blocks = frame->Metadata();
    const std::string xmp(blocks.xmp.begin(), blocks.xmp.end());
    EXPECT_NE(xmp.find("xmp:Rating"), std::string::npos);
    ASSERT_GE(blocks.icc.size(), 40u);
    EXPECT_EQ(std::memcmp(blocks.icc.data() + 36, "acsp", 4), 0);
    ASSERT_FALSE(blocks.iptc.empty());
    EXPECT_EQ(blocks.iptc[0], 0x1C);
}

}  // namespace
}  // namespace orvanta::imaging::codecs

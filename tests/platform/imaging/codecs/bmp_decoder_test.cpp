#include <array>
#include <cstdlib>
#include <map>

#include "own_codec_test_util.h"
#include "platform/imaging/component_list.h"

namespace orvanta::imaging::test {
namespace {

struct BmpFile {
    std::uint32_t headerSize = 40;
    std::uint32_t claimedHeaderSize = 0;  // written instead of headerSize when not 0
    std::int32_t width = 7;
    std::int32_t height = 3;  // negative: top-down
    std::uint16_t bitCount = 8;
    std::uint32_t compression = 0;
    std::vector<std::uint32_t> masks;    // after a 40-byte header, inside a larger one
    std::vector<std::uint32_t> palette;  // 0x00RRGGBB
    std::uint32_t colorsUsed = 0;
    Bytes pixels;  // stored rows or the RLE stream
};

Bytes DibPart(const BmpFile& f) {
    Bytes b;
    Put32(b, f.claimedHeaderSize != 0 ? f.claimedHeaderSize : f.headerSize);
    if (f.headerSize == 12) {
        Put16(b, static_cast<std::uint32_t>(f.width));
        Put16(b, static_cast<std::uint32_t>(f.height));
        Put16(b, 1);
        Put16(b, f.bitCount);
    } else {
        Put32(b, static_cast<std::uint32_t>(f.width));
        Put32(b, static_cast<std::uint32_t>(f.height));
        Put16(b, 1);
        Put16(b, f.bitCount);
        Put32(b, f.compression);
        Put32(b, static_cast<std::uint32_t>(f.pixels.size()));
        Put32(b, 2835);
        Put32(b, 2835);
        Put32(b, f.colorsUsed);
        Put32(b, 0);
        if (f.headerSize >= 52 && f.headerSize != 64) {
            for (std::size_t i = 0; i < (f.headerSize == 52 ? 3u : 4u); ++i) {
                Put32(b, i < f.masks.size() ? f.masks[i] : 0);
            }
        }
        b.resize(f.headerSize, 0);
        if (f.headerSize == 40) {
            for (std::uint32_t m : f.masks) {
                Put32(b, m);
            }
        }
    }
    for (std::uint32_t c : f.palette) {
        b.push_back(static_cast<std::uint8_t>(c));
        b.push_back(static_cast<std::uint8_t>(c >> 8));
        b.push_back(static_cast<std::uint8_t>(c >> 16));
        if (f.headerSize != 12) {
            b.push_back(0);
        }
    }
    return b;
}

Bytes WriteBmp(const BmpFile& f) {
    const Bytes dib = DibPart(f);
    Bytes b = {'B', 'M'};
    Put32(b, static_cast<std::uint32_t>(14 + dib.size() + f.pixels.size()));
    Put32(b, 0);
    Put32(b, static_cast<std::uint32_t>(14 + dib.size()));
    Append(b, dib);
    Append(b, f.pixels);
    return b;
}

std::vector<std::uint32_t> TestPalette(int n) {
    std::vector<std::uint32_t> p;
    for (int i = 0; i < n; ++i) {
        p.push_back(Argb(0, (i * 10 + 1) & 255, (i * 20 + 2) & 255, 255 - i));
    }
    return p;
}

struct DepthCase {
    std::string name;
    BmpFile file;
    PixelFormat format;
    Pixel expected;  // 0xAARRGGBB; 0 for a pixel the file leaves transparent
};

void PrintTo(const DepthCase& c, std::ostream* os) {
    *os << c.name;
}

unsigned Five(unsigned v) {
    return (v << 3) | (v >> 2);
}

DepthCase PaletteCase(std::string name, std::uint32_t headerSize, std::uint16_t bits,
                      std::uint32_t colorsUsed, bool topDown, PixelFormat format) {
    const int colors = 1 << bits;
    const int stored = colorsUsed != 0 ? static_cast<int>(colorsUsed) : colors;
    auto index = [colors](int x, int y) {
        return static_cast<std::uint32_t>((x + y * 3) % colors);
    };
    BmpFile f;
    f.headerSize = headerSize;
    f.bitCount = bits;
    f.height = topDown ? -3 : 3;
    f.colorsUsed = colorsUsed;
    f.palette = TestPalette(stored);
    f.pixels = StoreRows(7, 3, bits, topDown, index);
    const auto palette = f.palette;
    return {std::move(name), f, format, [=](int x, int y) {
                const std::uint32_t i = index(x, y);
                // Indexes past a short table are opaque black.
                return 0xFF000000u | (i < palette.size() ? palette[i] : 0);
            }};
}

DepthCase MaskCase(std::string name, std::uint32_t headerSize, std::uint16_t bits,
                   std::uint32_t compression, std::vector<std::uint32_t> masks, PixelFormat format,
                   Pixel stored, Pixel expected) {
    BmpFile f;
    f.headerSize = headerSize;
    f.bitCount = bits;
    f.compression = compression;
    f.masks = std::move(masks);
    f.pixels = StoreRows(7, 3, bits, false, stored);
    return {std::move(name), f, format, std::move(expected)};
}

// RLE8, 7x4, bottom-up: a run and an odd literal, a run clipped at the row end, a delta that
// skips a row, and an end-of-bitmap that leaves the rest of the top row transparent.
DepthCase Rle8Case() {
    BmpFile f;
    f.height = 4;
    f.compression = 1;
    f.palette = TestPalette(16);
    f.pixels = {3, 1, 0, 3, 2, 3, 4, 0, 0, 0,  // row 3: 1 1 1 2 3 4 _
                9, 5, 0, 0,                    // row 2: 5 x 7 (clipped)
                0, 2, 2, 1,                    // row 1 skipped, to x=2 of row 0
                0, 4, 6, 7, 8, 9, 0, 1};       // row 0: _ _ 6 7 8 9 _
    const std::vector<std::vector<int>> rows = {{-1, -1, 6, 7, 8, 9, -1},
                                                {-1, -1, -1, -1, -1, -1, -1},
                                                {5, 5, 5, 5, 5, 5, 5},
                                                {1, 1, 1, 2, 3, 4, -1}};
    const auto palette = f.palette;
    return {"Rle8", f, PixelFormat::Bgra32, [=](int x, int y) {
                const int i = rows[y][x];
                return i < 0 ? 0u : 0xFF000000u | palette[i];
            }};
}

// RLE4, 7x3: alternating run, a literal clipped at the row end, a delta along the row.
DepthCase Rle4Case() {
    BmpFile f;
    f.bitCount = 4;
    f.compression = 2;
    f.palette = TestPalette(16);
    f.pixels = {5, 0x12, 0,    3,    0x34, 0x50, 0, 0,   // row 2: 1 2 1 2 1 3 4
                0, 2,    3,    0,    2,    0x66, 0, 0,   // row 1: _ _ _ 6 6 _ _
                0, 7,    0x12, 0x34, 0x56, 0x70, 0, 1};  // row 0: 1..7
    const std::vector<std::vector<int>> rows = {
        {1, 2, 3, 4, 5, 6, 7}, {-1, -1, -1, 6, 6, -1, -1}, {1, 2, 1, 2, 1, 3, 4}};
    const auto palette = f.palette;
    return {"Rle4", f, PixelFormat::Bgra32, [=](int x, int y) {
                const int i = rows[y][x];
                return i < 0 ? 0u : 0xFF000000u | palette[i];
            }};
}

std::vector<DepthCase> DepthCases() {
    std::vector<DepthCase> cases = {
        PaletteCase("Pal1", 40, 1, 0, false, PixelFormat::Indexed1),
        PaletteCase("Pal1Core", 12, 1, 0, false, PixelFormat::Indexed1),
        PaletteCase("Pal2", 40, 2, 0, false, PixelFormat::Indexed2),
        PaletteCase("Pal4ShortTable", 40, 4, 3, false, PixelFormat::Indexed4),
        PaletteCase("Pal8", 40, 8, 0, false, PixelFormat::Indexed8),
        PaletteCase("Pal8TopDown", 124, 8, 0, true, PixelFormat::Indexed8),
        PaletteCase("Pal8Core", 12, 8, 0, false, PixelFormat::Indexed8),
        PaletteCase("Pal4Os2", 64, 4, 0, false, PixelFormat::Indexed4),
    };
    auto rgb = [](int x, int y) {
        return Argb(255, (x * 30) & 255, (y * 70) & 255, (x + y * 5) & 255);
    };
    auto five = [](int x, int y) {
        return std::array<unsigned, 3>{x * 4u % 32, y * 10u % 32, (x + y) % 32u};
    };
    cases.push_back(MaskCase(
        "Rgb555", 40, 16, 0, {}, PixelFormat::Bgr555,
        [=](int x, int y) {
            auto c = five(x, y);
            return c[0] << 10 | c[1] << 5 | c[2];
        },
        [=](int x, int y) {
            auto c = five(x, y);
            return Argb(255, Five(c[0]), Five(c[1]), Five(c[2]));
        }));
    cases.push_back(MaskCase(
        "Rgb565", 40, 16, 3, {0xF800, 0x07E0, 0x001F}, PixelFormat::Bgr565,
        [=](int x, int y) {
            auto c = five(x, y);
            return c[0] << 11 | (c[1] * 2) << 5 | c[2];
        },
        [=](int x, int y) {
            auto c = five(x, y);
            return Argb(255, Five(c[0]), (c[1] * 2) << 2 | (c[1] * 2) >> 4, Five(c[2]));
        }));
    cases.push_back(MaskCase(
        "Argb4444V4", 108, 16, 3, {0x0F00, 0x00F0, 0x000F, 0xF000}, PixelFormat::Bgra32,
        [](int x, int y) {
            return std::uint32_t(x * 2 % 16) << 12 | (y * 5u) << 8 | (x + y) << 4 | 9u;
        },
        [](int x, int y) { return Argb(x * 2 % 16 * 17, y * 5 * 17, (x + y) * 17, 9 * 17); }));
    cases.push_back(MaskCase(
        "Rgb24", 40, 24, 0, {}, PixelFormat::Bgr24,
        [=](int x, int y) { return rgb(x, y) & 0xFFFFFF; }, rgb));
    cases.push_back(MaskCase(
        "Rgb24Os2", 64, 24, 0, {}, PixelFormat::Bgr24,
        [=](int x, int y) { return rgb(x, y) & 0xFFFFFF; }, rgb));
    cases.push_back(MaskCase(
        "Rgb32FourthByteIgnored", 40, 32, 0, {}, PixelFormat::Bgr32,
        [=](int x, int y) { return (rgb(x, y) & 0xFFFFFF) | 0x55000000u; }, rgb));
    cases.push_back(MaskCase(
        "Argb32V5", 124, 32, 3, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}, PixelFormat::Bgra32,
        [=](int x, int y) { return (rgb(x, y) & 0xFFFFFF) | std::uint32_t(x * 40) << 24; },
        [=](int x, int y) { return (rgb(x, y) & 0xFFFFFF) | std::uint32_t(x * 40) << 24; }));
    cases.push_back(MaskCase(
        "Argb32AllZeroAlphaIsOpaque", 124, 32, 3, {0xFF0000, 0xFF00, 0xFF, 0xFF000000},
        PixelFormat::Bgra32, [=](int x, int y) { return rgb(x, y) & 0xFFFFFF; }, rgb));
    cases.push_back(MaskCase(
        "Bgr32ReversedMasksV2", 52, 32, 3, {0xFF, 0xFF00, 0xFF0000}, PixelFormat::Bgr32,
        [=](int x, int y) {
            const std::uint32_t c = rgb(x, y);
            return (c & 0xFF) << 16 | (c & 0xFF00) | (c >> 16 & 0xFF);
        },
        rgb));
    // 10-bit colour and 2-bit alpha, the masks in the order no writer uses by default.
    auto ten = [](unsigned s) { return (s * 1023 + 127) / 255; };
    cases.push_back(MaskCase(
        "OddMasksAlphaBitfields", 40, 32, 6, {0x3FF, 0xFFC00, 0x3FF00000, 0xC0000000},
        PixelFormat::Bgra32,
        [=](int x, int y) {
            const std::uint32_t c = rgb(x, y);
            return ten(c >> 16 & 255) | ten(c >> 8 & 255) << 10 | ten(c & 255) << 20 |
                   std::uint32_t(x % 4) << 30;
        },
        [=](int x, int y) { return (rgb(x, y) & 0xFFFFFF) | std::uint32_t(x % 4 * 85) << 24; }));
    cases.push_back(Rle8Case());
    cases.push_back(Rle4Case());
    return cases;
}

class BmpDepths : public ::testing::TestWithParam<DepthCase> {};

TEST_P(BmpDepths, DecodesEveryPixelAndSubRectangles) {
    const DepthCase& c = GetParam();
    const Bytes file = WriteBmp(c.file);
    const Decoded d = Decode(codecs::BmpDecoderInfo(), file);
    ASSERT_EQ(d.create, S_OK);
    ASSERT_EQ(d.copy, S_OK);
    ASSERT_EQ(d.format, c.format) << Info(d.format).name;
    const int w = c.file.width;
    const int h = std::abs(c.file.height);
    ASSERT_EQ(d.size, (PixelSize{7, static_cast<std::uint32_t>(h)}));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            EXPECT_EQ(d.bgra[y * w + x], c.expected(x, y)) << "x " << x << " y " << y;
        }
    }
    // A rectangle that starts inside a byte of packed pixels.
    const Decoded sub = Decode(codecs::BmpDecoderInfo(), file, PixelRect{1, 1, w - 3, h - 1});
    ASSERT_EQ(sub.copy, S_OK);
    for (int y = 0; y < h - 1; ++y) {
        for (int x = 0; x < w - 3; ++x) {
            EXPECT_EQ(sub.bgra[y * (w - 3) + x], d.bgra[(y + 1) * w + x + 1]) << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Bmp, BmpDepths, ::testing::ValuesIn(DepthCases()),
                         [](const auto& info) { return info.param.name; });

TEST(BmpDecoder, ReadsAHeaderlessDibByContent) {
    const DepthCase c = PaletteCase("", 40, 8, 0, false, PixelFormat::Indexed8);
    const Bytes dib = [&] {
        Bytes b = DibPart(c.file);
        Append(b, c.file.pixels);
        return b;
    }();
    ASSERT_TRUE(codecs::BmpDecoderInfo().matches(dib));
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(ComponentList::Instance().CreateDecoderByContent(FileBytes::FromMemory(dib), decoder),
              S_OK);
    EXPECT_EQ(decoder->Container(), container::Bmp);
    const Decoded d = Decode(codecs::BmpDecoderInfo(), dib);
    ASSERT_EQ(d.copy, S_OK);
    EXPECT_EQ(d.bgra[2 * 7 + 4], c.expected(4, 2));
}

TEST(BmpDecoder, ContentTestTakesBmpsAndLeavesOtherFormats) {
    const auto matches = codecs::BmpDecoderInfo().matches;
    EXPECT_TRUE(matches(WriteBmp(PaletteCase("", 40, 8, 0, false, PixelFormat::Indexed8).file)));
    const std::vector<Bytes> others = {
        {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R', 0, 0, 0, 1},
        {0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0},
        {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0, 8, 0, 24, 0, 0, 0},  // TGA
        {40, 0, 0, 0, 8, 0, 0, 0, 8, 0, 0, 0, 2, 0, 8, 0, 0, 0, 0, 0},  // two planes
        {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0},     // header size 7
    };
    for (const Bytes& head : others) {
        EXPECT_FALSE(matches(head)) << int{head[0]} << " " << int{head[1]};
    }
}

struct Refusal {
    std::string name;
    std::function<void(BmpFile&)> change;
    Result expected;
};

void PrintTo(const Refusal& c, std::ostream* os) {
    *os << c.name;
}

class BmpRefusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(BmpRefusals, FailCleanly) {
    BmpFile f;
    f.palette = TestPalette(256);
    f.pixels = StoreRows(7, 3, 8, false, [](int, int) { return 1u; });
    GetParam().change(f);
    EXPECT_EQ(Decode(codecs::BmpDecoderInfo(), WriteBmp(f)).create, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Bmp, BmpRefusals,
    ::testing::Values(
        Refusal{"OverAGigapixel", [](BmpFile& f) { f.width = 65536, f.height = 16385; },
                E_OUTOFMEMORY},
        Refusal{"EmbeddedJpeg", [](BmpFile& f) { f.compression = 4; }, E_UNSUPPORTED_TYPE},
        Refusal{"EmbeddedPng", [](BmpFile& f) { f.compression = 5; }, E_UNSUPPORTED_TYPE},
        Refusal{"Os2Huffman",
                [](BmpFile& f) { f.headerSize = 64, f.bitCount = 1, f.compression = 3; },
                E_UNSUPPORTED_TYPE},
        Refusal{"TopDownRle", [](BmpFile& f) { f.compression = 1, f.height = -3; }, E_FAIL},
        Refusal{"RleWithWrongDepth", [](BmpFile& f) { f.compression = 2; }, E_FAIL},
        Refusal{"BitfieldsAt24Bits",
                [](BmpFile& f) {
                    f.bitCount = 24, f.compression = 3, f.masks = {1, 2, 4};
                },
                E_FAIL},
        Refusal{"ThreeBits", [](BmpFile& f) { f.bitCount = 3; }, E_FAIL},
        Refusal{"ZeroWidth", [](BmpFile& f) { f.width = 0; }, E_FAIL},
        Refusal{"ZeroHeight", [](BmpFile& f) { f.height = 0; }, E_FAIL},
        Refusal{"HeaderSizeBetweenKinds", [](BmpFile& f) { f.claimedHeaderSize = 100; }, E_FAIL},
        Refusal{"HeaderPastTheEnd", [](BmpFile& f) { f.claimedHeaderSize = 100000; }, E_FAIL}),
    [](const auto& info) { return info.param.name; });

TEST(BmpDecoder, CutFileKeepsTheRowsItHas) {
    for (const std::uint16_t bits : {8, 24}) {
        SCOPED_TRACE(bits);
        BmpFile f;
        f.bitCount = bits;
        f.palette = bits == 8 ? TestPalette(256) : std::vector<std::uint32_t>{};
        f.pixels = StoreRows(7, 3, bits, false, [](int x, int y) { return 0x102030u + x + y * 7; });
        const Bytes whole = WriteBmp(f);
        const Decoded full = Decode(codecs::BmpDecoderInfo(), whole);
        // Keep the bottom row and half of the middle one.
        const std::size_t stride = (7 * bits / 8 + 3) / 4 * 4;
        const Bytes cut(whole.begin(),
                        whole.end() - static_cast<std::ptrdiff_t>(stride + stride / 2));
        const Decoded d = Decode(codecs::BmpDecoderInfo(), cut);
        ASSERT_EQ(d.create, S_OK);
        EXPECT_EQ(d.copy, S_FALSE);
        // Indexes cannot show missing pixels as transparent: the cut palette file is Bgra32.
        EXPECT_EQ(d.format, bits == 8 ? PixelFormat::Bgra32 : PixelFormat::Bgr24);
        const std::uint32_t missing = bits == 8 ? 0u : 0xFF000000u;
        for (int x = 0; x < 7; ++x) {
            EXPECT_EQ(d.bgra[2 * 7 + x], full.bgra[2 * 7 + x]);
            EXPECT_EQ(d.bgra[x], missing);
        }
        EXPECT_EQ(d.bgra[7], full.bgra[7]);  // the middle row's first pixels are there
        EXPECT_EQ(d.bgra[7 + 6], missing);
    }
}

TEST(BmpDecoder, EveryTruncationReturns) {
    const auto cases = DepthCases();
    for (const DepthCase& c : cases) {
        if (c.name == "Pal8" || c.name == "Rle8" || c.name == "OddMasksAlphaBitfields") {
            SCOPED_TRACE(c.name);
            const Bytes file = WriteBmp(c.file);
            EXPECT_GT(DecodeEveryPrefix(codecs::BmpDecoderInfo(), file), 0);
        }
    }
}

TEST(BmpDecoder, GivesTheEmbeddedProfileOfAV5Header) {
    BmpFile f;
    f.headerSize = 124;
    f.bitCount = 24;
    f.pixels = StoreRows(7, 3, 24, false, [](int x, int) { return x * 0x010101u; });
    Bytes file = WriteBmp(f);
    const Bytes profile = {'p', 'r', 'o', 'f', 'i', 'l', 'e', '!'};
    const std::size_t header = 14;
    auto set32 = [&](std::size_t at, std::uint32_t v) {
        for (int k = 0; k < 4; ++k) {
            file[at + k] = static_cast<std::uint8_t>(v >> (8 * k));
        }
    };
    set32(header + 56, 0x4D424544);  // 'MBED'
    set32(header + 112, static_cast<std::uint32_t>(file.size() - header));
    set32(header + 116, static_cast<std::uint32_t>(profile.size()));
    Append(file, profile);
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(codecs::BmpDecoderInfo().create(FileBytes::FromMemory(file), decoder), S_OK);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    const auto icc = frame->Metadata().icc;
    EXPECT_EQ(Bytes(icc.begin(), icc.end()), profile);
    EXPECT_EQ(decoder->GetFrame(1, frame), E_INVALIDARG);
}

TEST(BmpDecoder, DecodesTheSharedSamples) {
    const auto files = TestDataFiles("bmp");
    if (files.empty()) {
        GTEST_SKIP() << "no shared test data";
    }
    const std::map<std::string, PixelSize> sizes = {{"clipboard.dib", {296, 176}},
                                                    {"pal4rle.bmp", {127, 64}},
                                                    {"pal8rle.bmp", {127, 64}},
                                                    {"rgb24.bmp", {127, 64}}};
    for (const auto& path : files) {
        SCOPED_TRACE(path.string());
        const Decoded d = Decode(codecs::BmpDecoderInfo(), ReadAll(path));
        ASSERT_EQ(d.create, S_OK);
        EXPECT_EQ(d.copy, S_OK);
        if (const auto it = sizes.find(path.filename().string()); it != sizes.end()) {
            EXPECT_EQ(d.size, it->second);
        }
        if (path.filename() == "clipboard.dib") {
            // Bitfields masks after the info header; the first stored pixel is gray 0x69.
            EXPECT_EQ(d.format, PixelFormat::Bgr32);
            EXPECT_EQ(d.bgra[175 * 296], 0xFF696969u);
        }
    }
}

}  // namespace
}  // namespace orvanta::imaging::test

#include <map>
#include <optional>

#include "own_codec_test_util.h"

namespace orvanta::imaging::test {
namespace {

constexpr int kWidth = 5;
constexpr int kHeight = 3;

struct TgaFile {
    std::uint8_t imageType = 2;
    std::uint8_t depth = 24;
    std::uint8_t descriptor = 0;  // attribute bits, right-to-left (0x10), top-down (0x20)
    std::uint16_t width = kWidth;
    std::uint16_t height = kHeight;
    Bytes id;
    std::uint16_t mapFirst = 0;
    std::uint16_t mapLength = 0;
    std::uint8_t mapEntrySize = 0;
    Bytes map;
    Bytes pixels;
    std::optional<std::uint8_t> attributes;  // writes an extension area and footer
};

Bytes WriteTga(const TgaFile& f) {
    Bytes b = {static_cast<std::uint8_t>(f.id.size()),
               static_cast<std::uint8_t>(f.mapLength ? 1 : 0), f.imageType};
    Put16(b, f.mapFirst);
    Put16(b, f.mapLength);
    b.push_back(f.mapEntrySize);
    Put32(b, 0);  // origin
    Put16(b, f.width);
    Put16(b, f.height);
    b.push_back(f.depth);
    b.push_back(f.descriptor);
    Append(b, f.id);
    Append(b, f.map);
    Append(b, f.pixels);
    if (f.attributes) {
        const std::size_t extension = b.size();
        Bytes area(495, 0);
        area[0] = 495 & 0xFF;
        area[1] = 495 >> 8;
        area[494] = *f.attributes;
        Append(b, area);
        Put32(b, static_cast<std::uint32_t>(extension));
        Put32(b, 0);
        for (const char c : std::string("TRUEVISION-XFILE.")) {
            b.push_back(static_cast<std::uint8_t>(c));
        }
        b.push_back(0);
    }
    return b;
}

// Bytes of one stored pixel of `depth` bits from a value (index, gray, 0xAARRGGBB or 16-bit).
void PutPixel(Bytes& b, std::uint8_t depth, std::uint32_t v) {
    for (int k = 0; k < (depth + 7) / 8; ++k) {
        b.push_back(static_cast<std::uint8_t>(v >> (8 * k)));
    }
}

// Pixels in the order the file keeps them for the descriptor's origin.
std::vector<std::uint32_t> StoredOrder(std::uint8_t descriptor, const Pixel& value) {
    std::vector<std::uint32_t> out;
    for (int s = 0; s < kHeight; ++s) {
        for (int c = 0; c < kWidth; ++c) {
            const int y = (descriptor & 0x20) ? s : kHeight - 1 - s;
            const int x = (descriptor & 0x10) ? kWidth - 1 - c : c;
            out.push_back(value(x, y));
        }
    }
    return out;
}

Bytes Stored(std::uint8_t depth, const std::vector<std::uint32_t>& pixels) {
    Bytes b;
    for (std::uint32_t v : pixels) {
        PutPixel(b, depth, v);
    }
    return b;
}

// Run packets for repeats, raw packets between them; packets run on across rows.
Bytes StoredRle(std::uint8_t depth, const std::vector<std::uint32_t>& pixels) {
    Bytes b;
    std::size_t i = 0;
    while (i < pixels.size()) {
        std::size_t run = 1;
        while (i + run < pixels.size() && run < 128 && pixels[i + run] == pixels[i]) {
            ++run;
        }
        if (run > 1) {
            b.push_back(static_cast<std::uint8_t>(0x80 | (run - 1)));
            PutPixel(b, depth, pixels[i]);
            i += run;
            continue;
        }
        std::size_t raw = 1;
        while (i + raw < pixels.size() && raw < 128 &&
               (i + raw + 1 >= pixels.size() || pixels[i + raw] != pixels[i + raw + 1])) {
            ++raw;
        }
        b.push_back(static_cast<std::uint8_t>(raw - 1));
        for (std::size_t k = 0; k < raw; ++k) {
            PutPixel(b, depth, pixels[i + k]);
        }
        i += raw;
    }
    return b;
}

struct TypeCase {
    std::string name;
    TgaFile file;
    PixelFormat format;
    Pixel expected;
};

void PrintTo(const TypeCase& c, std::ostream* os) {
    *os << c.name;
}

// Groups of four neighbours in file order, so that RLE runs cross the 5-pixel rows.
std::uint32_t Group(int x, int y) {
    return static_cast<std::uint32_t>((y * kWidth + x) / 4);
}
std::uint32_t Color(int x, int y) {
    return Argb(255, 40 * Group(x, y), 255 - x, 30 * y);
}
unsigned Five(unsigned v) {
    return (v << 3) | (v >> 2);
}

TypeCase Case(std::string name, std::uint8_t type, std::uint8_t depth, std::uint8_t descriptor,
              PixelFormat format, const Pixel& stored, const Pixel& expected,
              std::optional<std::uint8_t> attributes = std::nullopt) {
    TgaFile f;
    f.imageType = type;
    f.depth = depth;
    f.descriptor = descriptor;
    f.attributes = attributes;
    const auto order = StoredOrder(descriptor, stored);
    f.pixels = type >= 8 ? StoredRle(depth, order) : Stored(depth, order);
    return {std::move(name), f, format, expected};
}

TypeCase MappedCase(std::string name, std::uint8_t type, std::uint8_t entrySize) {
    // Entries 2..7, as 24-bit or as 16-bit with the attribute bit clear on odd ones.
    auto entry = [entrySize](std::uint32_t i) -> std::uint32_t {
        if (entrySize == 24) {
            return Argb(255, i * 30, 200 - i * 20, i * 3);
        }
        return Argb((i & 1) ? 0 : 255, Five(i * 3), Five(31 - i), Five(i));
    };
    TgaFile f;
    f.imageType = type;
    f.depth = 8;
    f.descriptor = entrySize == 16 ? 1 : 0;
    f.mapFirst = 2;
    f.mapLength = 6;
    f.mapEntrySize = entrySize;
    for (std::uint32_t i = 2; i < 8; ++i) {
        const std::uint32_t c = entry(i);
        if (entrySize == 24) {
            PutPixel(f.map, 24, c);
        } else {
            PutPixel(f.map, 16, (c >> 24 ? 0x8000u : 0) | (i * 3) << 10 | (31 - i) << 5 | i);
        }
    }
    const Pixel index = [](int x, int y) { return 2 + Group(x, y) % 6; };
    const auto order = StoredOrder(0, index);
    f.pixels = type == 9 ? StoredRle(8, order) : Stored(8, order);
    return {std::move(name), f, PixelFormat::Indexed8,
            [=](int x, int y) { return entry(index(x, y)); }};
}

std::vector<TypeCase> TypeCases() {
    const Pixel bgr = [](int x, int y) { return Color(x, y) & 0xFFFFFF; };
    const Pixel alpha = [](int x, int y) { return (Color(x, y) & 0xFFFFFF) | (x * 50u) << 24; };
    const Pixel gray = [](int x, int y) { return 20 * Group(x, y) + y; };
    const Pixel grayArgb = [=](int x, int y) {
        return Argb(255, gray(x, y), gray(x, y), gray(x, y));
    };
    const Pixel rgb16 = [](int x, int y) {
        return (x & 1u) << 15 | Group(x, y) << 10 | (31u - x) << 5 | y;
    };
    const Pixel rgb16Argb = [](int x, int y) {
        return Argb((x & 1) ? 255 : 0, Five(Group(x, y)), Five(31 - x), Five(y));
    };
    const Pixel rgb15Argb = [=](int x, int y) { return rgb16Argb(x, y) | 0xFF000000u; };
    return {
        MappedCase("Mapped24", 1, 24),
        MappedCase("MappedRle16WithAttribute", 9, 16),
        Case("True24BottomLeft", 2, 24, 0x00, PixelFormat::Bgr24, bgr, Color),
        Case("True24TopLeft", 2, 24, 0x20, PixelFormat::Bgr24, bgr, Color),
        Case("True24TopRight", 2, 24, 0x30, PixelFormat::Bgr24, bgr, Color),
        Case("True24RleBottomRight", 10, 24, 0x10, PixelFormat::Bgr24, bgr, Color),
        Case("True32Alpha", 2, 32, 0x08, PixelFormat::Bgra32, alpha, alpha),
        Case("True32RleTopLeft", 10, 32, 0x28, PixelFormat::Bgra32, alpha, alpha),
        Case("True32AllZeroAlphaIsOpaque", 2, 32, 0x08, PixelFormat::Bgra32, bgr, Color),
        Case("True32ExtensionSaysNoAlpha", 2, 32, 0x08, PixelFormat::Bgr32, alpha, Color, 0),
        Case("True32ExtensionSaysPremultiplied", 10, 32, 0x00, PixelFormat::Pbgra32, alpha, alpha,
             4),
        Case("True16Attribute", 2, 16, 0x01, PixelFormat::Bgra32, rgb16, rgb16Argb),
        Case("True15", 10, 15, 0x00, PixelFormat::Bgr555, rgb16, rgb15Argb),
        Case("Gray8", 3, 8, 0x00, PixelFormat::Gray8, gray, grayArgb),
        Case("Gray8RleTopDown", 11, 8, 0x20, PixelFormat::Gray8, gray, grayArgb),
        Case(
            "GrayAlpha16", 3, 16, 0x08, PixelFormat::GrayAlpha16,
            [=](int x, int y) { return gray(x, y) | (x * 60u) << 8; },
            [=](int x, int y) { return (grayArgb(x, y) & 0xFFFFFF) | (x * 60u) << 24; }),
    };
}

class TgaTypes : public ::testing::TestWithParam<TypeCase> {};

TEST_P(TgaTypes, DecodeEveryPixelAndAreClaimedByContent) {
    const TypeCase& c = GetParam();
    const Bytes file = WriteTga(c.file);
    EXPECT_TRUE(codecs::TgaDecoderInfo().matches(Bytes(file.begin(), file.begin() + 18)));
    const Decoded d = Decode(codecs::TgaDecoderInfo(), file);
    ASSERT_EQ(d.create, S_OK);
    ASSERT_EQ(d.copy, S_OK);
    ASSERT_EQ(d.format, c.format) << Info(d.format).name;
    ASSERT_EQ(d.size, (PixelSize{kWidth, kHeight}));
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            EXPECT_EQ(d.bgra[y * kWidth + x], c.expected(x, y)) << "x " << x << " y " << y;
        }
    }
    const Decoded sub = Decode(codecs::TgaDecoderInfo(), file, PixelRect{2, 1, 3, 2});
    ASSERT_EQ(sub.copy, S_OK);
    EXPECT_EQ(sub.bgra[0], d.bgra[kWidth + 2]);
    EXPECT_EQ(sub.bgra[5], d.bgra[2 * kWidth + 4]);
}

INSTANTIATE_TEST_SUITE_P(Tga, TgaTypes, ::testing::ValuesIn(TypeCases()),
                         [](const auto& info) { return info.param.name; });

TEST(TgaDecoder, ContentTestIsStrict) {
    const auto matches = codecs::TgaDecoderInfo().matches;
    const Bytes good = WriteTga(TypeCases()[2].file);
    ASSERT_TRUE(matches(good));
    // "00 00 02 00" also starts a cursor; the icon test must not take the TGA first.
    EXPECT_FALSE(codecs::IcoDecoderInfo().matches(good));
    auto changed = [&](std::size_t at, std::uint8_t value) {
        Bytes b(good.begin(), good.begin() + 18);
        b[at] = value;
        return b;
    };
    EXPECT_FALSE(matches(changed(1, 2)));      // colour-map type
    EXPECT_FALSE(matches(changed(2, 4)));      // image type
    EXPECT_FALSE(matches(changed(5, 1)));      // a map length without a map
    EXPECT_FALSE(matches(changed(16, 12)));    // depth
    EXPECT_FALSE(matches(changed(17, 0x40)));  // interleaving
    EXPECT_FALSE(matches(changed(17, 0x08)));  // attribute bits a 24-bit pixel cannot have
    EXPECT_FALSE(matches(changed(12, 0)));     // width
    EXPECT_FALSE(matches(Bytes(good.begin(), good.begin() + 17)));
    const std::vector<Bytes> others = {
        {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'E', 'B', 'P', 'V', 'P', '8', ' ', 0, 0},
        {0, 0, 0, 0x18, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c', 0, 0, 0, 0, 'm', 'i'},
        {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0xFF, 0xD8, 0xFF, 0xE1, 0, 16, 'E', 'x', 'i', 'f', 0, 0, 'M', 'M', 0, 42, 0, 0},
        {0xFF, 0x0A, 0xFA, 0x7F, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {'P', 'l', 'a', 'i', 'n', ' ', 't', 'e', 'x', 't', ' ', 'f', 'i', 'l', 'e', '.', '.', '.'},
    };
    for (const Bytes& head : others) {
        EXPECT_FALSE(matches(head)) << int{head[0]};
    }
}

TEST(TgaDecoder, RefusesWhatItCannotDecode) {
    TgaFile f = TypeCases()[0].file;
    f.imageType = 32;
    EXPECT_EQ(Decode(codecs::TgaDecoderInfo(), WriteTga(f)).create, E_UNSUPPORTED_TYPE);
    f = TypeCases()[0].file;
    f.depth = 16;  // 16-bit indexes
    EXPECT_EQ(Decode(codecs::TgaDecoderInfo(), WriteTga(f)).create, E_UNSUPPORTED_TYPE);
    f = TypeCases()[0].file;
    f.map.resize(7);
    f.pixels.clear();  // the file ends inside its colour map
    EXPECT_EQ(Decode(codecs::TgaDecoderInfo(), WriteTga(f)).create, E_FAIL);
    f = TypeCases()[2].file;
    f.height = 0;
    EXPECT_EQ(Decode(codecs::TgaDecoderInfo(), WriteTga(f)).create, E_FAIL);
}

TEST(TgaDecoder, CutFilesKeepThePixelsTheyHave) {
    for (const int which : {1, 7}) {  // colour-mapped RLE, true-colour RLE with alpha
        const TypeCase c = TypeCases()[static_cast<std::size_t>(which)];
        SCOPED_TRACE(c.name);
        const Bytes file = WriteTga(c.file);
        EXPECT_GT(DecodeEveryPrefix(codecs::TgaDecoderInfo(), file), 0);
        const Decoded d = Decode(codecs::TgaDecoderInfo(), Bytes(file.begin(), file.end() - 3));
        ASSERT_EQ(d.copy, S_FALSE);
        // Missing pixels are transparent, so the cut colour-mapped file is Bgra32 too.
        EXPECT_EQ(d.format, PixelFormat::Bgra32);
        const bool topDown = c.file.descriptor & 0x20;
        const int first = topDown ? 0 : kHeight - 1;
        const int last = topDown ? kHeight - 1 : 0;
        EXPECT_EQ(d.bgra[first * kWidth], c.expected(0, first));
        EXPECT_EQ(d.bgra[last * kWidth + kWidth - 1], 0u);
    }
}

TEST(TgaDecoder, AHugeRleHeaderCostsOnlyWhatItsDataCovers) {
    TgaFile f;
    f.imageType = 10;
    f.depth = 32;
    f.width = 65535;
    f.height = 16383;  // just under a gigapixel, from a few bytes
    f.pixels = {0xFF, 1, 2, 3, 255};
    const Bytes file = WriteTga(f);
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(codecs::TgaDecoderInfo().create(FileBytes::FromMemory(file), decoder), S_OK);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    std::array<std::uint8_t, 8> out{};
    ASSERT_EQ(frame->CopyPixels({0, 16382, 2, 1}, 8, std::as_writable_bytes(std::span(out))),
              S_FALSE);
    EXPECT_EQ(out, (std::array<std::uint8_t, 8>{1, 2, 3, 255, 1, 2, 3, 255}));
    ASSERT_EQ(frame->CopyPixels({0, 0, 2, 1}, 8, std::as_writable_bytes(std::span(out))), S_FALSE);
    EXPECT_EQ(out, (std::array<std::uint8_t, 8>{}));
}

TEST(TgaDecoder, DecodesTheSharedSamples) {
    const auto files = TestDataFiles("tga");
    if (files.empty()) {
        GTEST_SKIP() << "no shared test data";
    }
    for (const auto& path : files) {
        SCOPED_TRACE(path.string());
        const Bytes bytes = ReadAll(path);
        EXPECT_TRUE(codecs::TgaDecoderInfo().matches(Bytes(bytes.begin(), bytes.begin() + 64)));
        const Decoded d = Decode(codecs::TgaDecoderInfo(), bytes);
        ASSERT_EQ(d.create, S_OK);
        EXPECT_EQ(d.copy, S_OK);
        EXPECT_EQ(d.size, (PixelSize{200, 32}));  // both samples are 200x32
        EXPECT_EQ(d.format, path.filename().string().find("rgba") != std::string::npos
                                ? PixelFormat::Bgra32
                                : PixelFormat::Bgr24);
    }
}

}  // namespace
}  // namespace orvanta::imaging::test

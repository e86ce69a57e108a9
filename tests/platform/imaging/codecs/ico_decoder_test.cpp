#include <map>

#include "own_codec_test_util.h"
#include "platform/imaging/component_list.h"

#if ORVANTA_HAVE_PNG
#include <png.h>
#endif

namespace orvanta::imaging::test {
namespace {

struct IconImage {
    std::uint8_t dirWidth = 0;  // what the directory claims (0 means 256)
    std::uint8_t dirHeight = 0;
    std::uint16_t planes = 1;  // a cursor's hot spot
    std::uint16_t bitCount = 0;
    Bytes data;
};

Bytes WriteIco(std::uint16_t type, const std::vector<IconImage>& images) {
    Bytes b;
    Put16(b, 0);
    Put16(b, type);
    Put16(b, static_cast<std::uint32_t>(images.size()));
    std::size_t offset = 6 + 16 * images.size();
    for (const IconImage& image : images) {
        b.push_back(image.dirWidth);
        b.push_back(image.dirHeight);
        b.push_back(0);
        b.push_back(0);
        Put16(b, image.planes);
        Put16(b, image.bitCount);
        Put32(b, static_cast<std::uint32_t>(image.data.size()));
        Put32(b, static_cast<std::uint32_t>(offset));
        offset += image.data.size();
    }
    for (const IconImage& image : images) {
        Append(b, image.data);
    }
    return b;
}

// A DIB entry: info header with the doubled height, colour table, colour rows, AND mask.
Bytes IconDib(int size, int bits, const std::vector<std::uint32_t>& palette, const Pixel& color,
              const Pixel& mask) {
    Bytes b;
    Put32(b, 40);
    Put32(b, static_cast<std::uint32_t>(size));
    Put32(b, static_cast<std::uint32_t>(size * 2));
    Put16(b, 1);
    Put16(b, static_cast<std::uint32_t>(bits));
    b.resize(40, 0);
    for (std::uint32_t c : palette) {
        Put32(b, c);
    }
    Append(b, StoreRows(size, size, bits, false, color));
    Append(b, StoreRows(size, size, 1, false, mask));
    return b;
}

const std::vector<std::uint32_t> kPalette16 = [] {
    std::vector<std::uint32_t> p;
    for (std::uint32_t i = 0; i < 16; ++i) {
        p.push_back(i * 0x0F0E0D);
    }
    return p;
}();

// The mask's set bits: a diagonal, and the whole first column.
std::uint32_t Masked(int x, int y) {
    return x == y || x == 0 ? 1u : 0u;
}
std::uint32_t Index(int x, int y) {
    return static_cast<std::uint32_t>((x + 2 * y) % 16);
}
std::uint32_t Rgb(int x, int y) {
    return Argb(0, x * 16, y * 16, 200);
}

Decoded DecodeIco(const Bytes& file) {
    return Decode(codecs::IcoDecoderInfo(), file);
}

TEST(IcoDecoder, ChoosesTheLargestEntryByItsOwnHeaderAndAppliesTheMask) {
    // The 8x8 entry's directory claims 64x64; the 16x16 4-bit entry is the largest.
    const Bytes file = WriteIco(1, {{64, 64, 1, 32,
                                     IconDib(
                                         8, 32, {}, [](int, int) { return 0xFF102030u; }, Masked)},
                                    {16, 16, 1, 4, IconDib(16, 4, kPalette16, Index, Masked)}});
    const Decoded d = DecodeIco(file);
    ASSERT_EQ(d.copy, S_OK);
    ASSERT_EQ(d.size, (PixelSize{16, 16}));
    ASSERT_EQ(d.format, PixelFormat::Bgra32);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            const std::uint32_t expected =
                Masked(x, y) ? 0u : 0xFF000000u | kPalette16[Index(x, y)];
            EXPECT_EQ(d.bgra[y * 16 + x], expected) << x << "," << y;
        }
    }
}

TEST(IcoDecoder, PrefersTheDeeperOfTwoEqualSizesInACursor) {
    // A cursor's directory holds the hot spot where an icon's holds planes and depth.
    const Bytes file = WriteIco(2, {{8, 8, 3, 5, IconDib(8, 4, kPalette16, Index, Masked)},
                                    {8, 8, 3, 5, IconDib(8, 24, {}, Rgb, Masked)}});
    const Decoded d = DecodeIco(file);
    ASSERT_EQ(d.copy, S_OK);
    EXPECT_EQ(d.bgra[1 * 8 + 2], 0xFF000000u | Rgb(2, 1));
    EXPECT_EQ(d.bgra[3 * 8 + 3], 0u);
}

TEST(IcoDecoder, UsesAlphaOfA32BitEntryAndTheMaskOnlyWhenTheAlphaIsEmpty) {
    const Pixel alpha = [](int x, int y) { return Argb(x * 30, 10, 20, 30 + y); };
    const Decoded withAlpha =
        DecodeIco(WriteIco(1, {{8, 8, 1, 32, IconDib(8, 32, {}, alpha, Masked)}}));
    ASSERT_EQ(withAlpha.copy, S_OK);
    EXPECT_EQ(withAlpha.bgra[2 * 8 + 2], alpha(2, 2));  // on the mask's diagonal, yet kept
    EXPECT_EQ(withAlpha.bgra[2 * 8 + 5], alpha(5, 2));

    const Decoded empty = DecodeIco(WriteIco(1, {{8, 8, 1, 32, IconDib(8, 32, {}, Rgb, Masked)}}));
    ASSERT_EQ(empty.copy, S_OK);
    EXPECT_EQ(empty.bgra[2 * 8 + 2], 0u);
    EXPECT_EQ(empty.bgra[2 * 8 + 5], 0xFF000000u | Rgb(5, 2));
}

TEST(IcoDecoder, RefusesIconsWithoutAUsableEntry) {
    IconImage outside{16, 16, 1, 4, IconDib(16, 4, kPalette16, Index, Masked)};
    Bytes file = WriteIco(1, {outside});
    file[21] = 0x10;  // the entry's offset now points far past the end
    EXPECT_EQ(DecodeIco(file).create, E_FAIL);
    Bytes noCount = WriteIco(1, {outside});
    noCount[4] = 0;
    EXPECT_EQ(DecodeIco(noCount).create, E_FAIL);
    Bytes badHeader = WriteIco(1, {outside});
    badHeader[22] = 7;  // header size of the DIB
    EXPECT_EQ(DecodeIco(badHeader).create, E_FAIL);
}

TEST(IcoDecoder, ContentTestTakesIconsAndCursors) {
    const auto matches = codecs::IcoDecoderInfo().matches;
    const IconImage image{16, 16, 1, 4, IconDib(16, 4, kPalette16, Index, Masked)};
    EXPECT_TRUE(matches(WriteIco(1, {image})));
    EXPECT_TRUE(matches(WriteIco(2, {image})));
    EXPECT_FALSE(matches(WriteIco(3, {image})));
    // An ISO box of 256 bytes starts with the same four bytes as an icon.
    const Bytes box = {0, 0, 1, 0, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c',
                       0, 0, 0, 0, 'm', 'i', 'f', '1', 'h', 'e', 'i', 'c'};
    EXPECT_FALSE(matches(box));
}

TEST(IcoDecoder, EveryTruncationReturns) {
    const Bytes file = WriteIco(1, {{8, 8, 1, 32, IconDib(8, 32, {}, Rgb, Masked)},
                                    {16, 16, 1, 4, IconDib(16, 4, kPalette16, Index, Masked)}});
    EXPECT_GT(DecodeEveryPrefix(codecs::IcoDecoderInfo(), file), 0);
    // Cut inside the mask of the chosen entry: the colour rows are all there.
    const Decoded d = DecodeIco(Bytes(file.begin(), file.end() - 20));
    ASSERT_EQ(d.copy, S_FALSE);
    EXPECT_EQ(d.bgra[15 * 16 + 3], 0xFF000000u | kPalette16[Index(3, 15)]);
}

#if ORVANTA_HAVE_PNG
Bytes EncodePng(int size, const Pixel& argb) {
    std::vector<std::uint8_t> rgba;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            const std::uint32_t c = argb(x, y);
            rgba.insert(rgba.end(),
                        {static_cast<std::uint8_t>(c >> 16), static_cast<std::uint8_t>(c >> 8),
                         static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 24)});
        }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(size);
    image.height = static_cast<png_uint_32>(size);
    image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t length = 0;
    EXPECT_TRUE(png_image_write_to_memory(&image, nullptr, &length, 0, rgba.data(), 0, nullptr));
    Bytes png(length);
    EXPECT_TRUE(png_image_write_to_memory(&image, png.data(), &length, 0, rgba.data(), 0, nullptr));
    png.resize(length);
    return png;
}

TEST(IcoDecoder, DecodesAPngEntryThroughThePngComponent) {
    if (ComponentList::Instance().Find(container::Png, vendor::Microsoft) == nullptr) {
        GTEST_SKIP() << "no PNG decoder in this build";
    }
    const Pixel pixel = [](int x, int y) { return Argb(x * 20, 250 - y, x * 7, y * 9); };
    const Bytes file = WriteIco(
        1, {{8, 8, 1, 32, IconDib(8, 32, {}, Rgb, Masked)}, {0, 0, 1, 32, EncodePng(20, pixel)}});
    const Decoded d = DecodeIco(file);
    ASSERT_EQ(d.copy, S_OK);
    ASSERT_EQ(d.size, (PixelSize{20, 20}));
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 20; ++x) {
            EXPECT_EQ(d.bgra[y * 20 + x], pixel(x, y)) << x << "," << y;
        }
    }
}
#endif

TEST(IcoDecoder, DecodesTheSharedSamples) {
    const auto files = TestDataFiles("ico");
    if (files.empty()) {
        GTEST_SKIP() << "no shared test data";
    }
    const std::map<std::string, PixelSize> sizes = {{"deerstalker.cur", {32, 32}},
                                                    {"hopper_256x256.ico", {256, 256}},
                                                    {"python.ico", {48, 48}}};
    for (const auto& path : files) {
        SCOPED_TRACE(path.string());
        const Decoded d = DecodeIco(ReadAll(path));
        ASSERT_EQ(d.create, S_OK);
        EXPECT_EQ(d.copy, S_OK);
        if (const auto it = sizes.find(path.filename().string()); it != sizes.end()) {
            EXPECT_EQ(d.size, it->second);
        }
    }
}

}  // namespace
}  // namespace orvanta::imaging::test

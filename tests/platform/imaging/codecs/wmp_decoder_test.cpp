#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/tiff_structure_internal.h"
#include "platform/imaging/codecs/wmp_container_internal.h"
#include "support/temp_folder.h"

// jxrlib last: its macros must not reach the headers above.
#include <JXRGlue.h>
#undef min
#undef max
#undef Failed

namespace orvanta::imaging::codecs {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Fixture {
    const char* name;
    const GUID* format;  // what jxrlib encodes
    PixelFormat expected;
    COLORFORMAT internal;
};

Bytes ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Source pixels: bytes of a gradient, `rowBytes` to a row.
Bytes SourcePixels(std::size_t rowBytes, std::uint32_t height) {
    Bytes pixels(rowBytes * height);
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::size_t i = 0; i < rowBytes; ++i) {
            pixels[y * rowBytes + i] = static_cast<std::uint8_t>(i * 3 + y * 7);
        }
    }
    return pixels;
}

// Encodes losslessly with jxrlib; metadata blocks go into the container.
Bytes Encode(const GUID& format, COLORFORMAT internal, std::uint32_t width, std::uint32_t height,
             const Bytes& pixels, std::size_t rowBytes, const Bytes& xmp = {},
             const Bytes& icc = {}) {
    test::TempFolder folder;
    const auto path = folder / "fixture.jxr";
    WMPStream* stream = nullptr;
    PKImageEncode* encoder = nullptr;
    EXPECT_EQ(CreateWS_File(&stream, path.c_str(), "wb"), WMP_errSuccess);
    EXPECT_EQ(PKImageEncode_Create_WMP(&encoder), WMP_errSuccess);
    PKPixelInfo info{};
    info.pGUIDPixFmt = &format;
    PixelFormatLookup(&info, LOOKUP_FORWARD);
    CWMIStrCodecParam params{};
    params.cfColorFormat = internal;
    params.bdBitDepth = BD_LONG;
    params.bfBitstreamFormat = SPATIAL;
    params.olOverlap = OL_NONE;
    params.sbSubband = SB_ALL;
    params.uiDefaultQPIndex = 1;
    params.uiDefaultQPIndexAlpha = 1;
    params.uAlphaMode = (info.grBit & PK_pixfmtHasAlpha) != 0 ? 2 : 0;
    params.bBlackWhite = info.bdBitDepth == BD_1;
    EXPECT_EQ(encoder->Initialize(encoder, stream, &params, sizeof(params)), WMP_errSuccess);
    if (params.uAlphaMode == 2) {
        encoder->WMP.wmiSCP_Alpha.uiDefaultQPIndex = 1;
    }
    EXPECT_EQ(encoder->SetPixelFormat(encoder, format), WMP_errSuccess);
    EXPECT_EQ(encoder->SetSize(encoder, static_cast<I32>(width), static_cast<I32>(height)),
              WMP_errSuccess);
    EXPECT_EQ(encoder->SetResolution(encoder, 96.f, 96.f), WMP_errSuccess);
    if (!icc.empty()) {
        EXPECT_EQ(encoder->SetColorContext(encoder, icc.data(), static_cast<U32>(icc.size())),
                  WMP_errSuccess);
    }
    if (!xmp.empty()) {
        EXPECT_EQ(
            PKImageEncode_SetXMPMetadata_WMP(encoder, xmp.data(), static_cast<U32>(xmp.size())),
            WMP_errSuccess);
    }
    Bytes copy = pixels;  // jxrlib takes a non-const pointer
    EXPECT_EQ(encoder->WritePixels(encoder, height, copy.data(), static_cast<U32>(rowBytes)),
              WMP_errSuccess);
    encoder->Release(&encoder);
    return ReadAll(path);
}

std::unique_ptr<BitmapFrame> DecodeFrame(Bytes file, Result& result) {
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    result = WmpDecoderInfo().create(FileBytes::FromMemory(std::move(file)), decoder);
    if (result.Succeeded()) {
        result = decoder->GetFrame(0, frame);
    }
    return frame;
}

class WmpFormats : public testing::TestWithParam<Fixture> {};

TEST_P(WmpFormats, LosslessRoundTrip) {
    const Fixture& fixture = GetParam();
    constexpr std::uint32_t kWidth = 37;
    constexpr std::uint32_t kHeight = 21;
    PKPixelInfo info{};
    info.pGUIDPixFmt = fixture.format;
    ASSERT_EQ(PixelFormatLookup(&info, LOOKUP_FORWARD), WMP_errSuccess);
    const std::size_t sourceRow = (std::size_t{kWidth} * info.cbitUnit + 7) / 8;
    const Bytes source = SourcePixels(sourceRow, kHeight);
    Result result;
    auto frame = DecodeFrame(
        Encode(*fixture.format, fixture.internal, kWidth, kHeight, source, sourceRow), result);
    ASSERT_EQ(result, S_OK);
    ASSERT_EQ(frame->Format(), fixture.expected) << Info(frame->Format()).name;
    ASSERT_EQ(frame->Size(), (PixelSize{kWidth, kHeight}));
    const std::size_t row = frame->RowBytes(kWidth);
    std::vector<std::byte> out(row * kHeight);
    // A part first (the decode happens then), then the whole from the same buffer.
    std::vector<std::byte> part(row * 5);
    ASSERT_EQ(frame->CopyPixels({0, 9, kWidth, 5}, row, part), S_OK);
    ASSERT_EQ(frame->CopyAll(row, out), S_OK);
    EXPECT_EQ(std::memcmp(part.data(), out.data() + 9 * row, part.size()), 0);
    const std::size_t sourcePixel = info.cbitUnit / 8;
    for (std::uint32_t y = 0; y < kHeight; ++y) {
        for (std::size_t i = 0; i < row; ++i) {
            std::size_t from = y * sourceRow + i;
            if (fixture.expected == PixelFormat::Rgb24 && sourcePixel == 4) {
                from = y * sourceRow + i / 3 * 4 + i % 3;  // the fourth byte is dropped
            }
            if (fixture.expected == PixelFormat::BlackWhite && i == row - 1) {
                continue;  // padding bits
            }
            ASSERT_EQ(static_cast<std::uint8_t>(out[y * row + i]), source[from])
                << fixture.name << " row " << y << " byte " << i;
        }
    }
}

const Fixture kFixtures[] = {
    {"Rgb24", &GUID_PKPixelFormat24bppRGB, PixelFormat::Rgb24, YUV_444},
    {"Bgr24", &GUID_PKPixelFormat24bppBGR, PixelFormat::Bgr24, YUV_444},
    {"Bgra32", &GUID_PKPixelFormat32bppBGRA, PixelFormat::Bgra32, YUV_444},
    {"Rgba32", &GUID_PKPixelFormat32bppRGBA, PixelFormat::Rgba32, YUV_444},
    {"Rgbx32", &GUID_PKPixelFormat32bppRGB, PixelFormat::Rgb24, YUV_444},
    {"Gray8", &GUID_PKPixelFormat8bppGray, PixelFormat::Gray8, Y_ONLY},
    {"Gray16", &GUID_PKPixelFormat16bppGray, PixelFormat::Gray16, Y_ONLY},
    {"Rgb48", &GUID_PKPixelFormat48bppRGB, PixelFormat::Rgb48, YUV_444},
    {"Rgba64", &GUID_PKPixelFormat64bppRGBA, PixelFormat::Rgba64, YUV_444},
    {"Cmyk32", &GUID_PKPixelFormat32bppCMYK, PixelFormat::Cmyk32, CMYK},
    {"BlackWhite", &GUID_PKPixelFormatBlackWhite, PixelFormat::BlackWhite, Y_ONLY},
};

INSTANTIATE_TEST_SUITE_P(Wmp, WmpFormats, testing::ValuesIn(kFixtures),
                         [](const auto& info) { return std::string(info.param.name); });

Bytes SmallRgb(const Bytes& xmp = {}, const Bytes& icc = {}) {
    const Bytes source = SourcePixels(16 * 3, 16);
    return Encode(GUID_PKPixelFormat24bppRGB, YUV_444, 16, 16, source, 16 * 3, xmp, icc);
}

TEST(WmpDecoder, MetadataComesFromTheContainer) {
    const std::string text = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
    const Bytes xmp(text.begin(), text.end());
    Bytes icc(200, 0x33);
    std::memcpy(icc.data() + 36, "acsp", 4);
    Result result;
    auto frame = DecodeFrame(SmallRgb(xmp, icc), result);
    ASSERT_EQ(result, S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(Bytes(blocks.xmp.begin(), blocks.xmp.end()), xmp);
    EXPECT_EQ(Bytes(blocks.icc.begin(), blocks.icc.end()), icc);
    EXPECT_TRUE(blocks.exif.empty());  // no EXIF or GPS IFD in this file
}

// Offsets of one directory entry's fields in a jxrlib-written file.
std::size_t EntryOffset(const Bytes& file, std::uint16_t tag) {
    const std::size_t ifd = file[4] | file[5] << 8 | file[6] << 16 | std::size_t{file[7]} << 24;
    const std::size_t count = file[ifd] | file[ifd + 1] << 8;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t entry = ifd + 2 + i * 12;
        if ((file[entry] | file[entry + 1] << 8) == tag) {
            return entry;
        }
    }
    ADD_FAILURE() << "no tag " << tag;
    return 0;
}

void Put32(Bytes& file, std::size_t at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        file[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

struct Damage {
    const char* name;
    void (*apply)(Bytes& file);
};

class WmpDamage : public testing::TestWithParam<Damage> {};

TEST_P(WmpDamage, ContainerIsRefusedBeforeJxrlibSeesIt) {
    Bytes file = SmallRgb();
    GetParam().apply(file);
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(WmpDecoderInfo().create(FileBytes::FromMemory(file), decoder), E_FAIL);
    EXPECT_FALSE(ReadWmpContainer(file).has_value());
}

const Damage kDamages[] = {
    {"DirectoryOutside", [](Bytes& f) { Put32(f, 4, static_cast<std::uint32_t>(f.size())); }},
    {"EntryCountPastEnd",
     [](Bytes& f) {
         const std::size_t ifd = f[4] | f[5] << 8;
         f[ifd] = 0xFF;
         f[ifd + 1] = 0xFF;
     }},
    {"ImageStartsPastEnd",
     [](Bytes& f) { Put32(f, EntryOffset(f, 0xBCC0) + 8, static_cast<std::uint32_t>(f.size())); }},
    {"EmptyImage", [](Bytes& f) { Put32(f, EntryOffset(f, 0xBCC1) + 8, 0); }},
    {"ImageOffsetWraps", [](Bytes& f) { Put32(f, EntryOffset(f, 0xBCC0) + 8, 0xFFFFFFF0u); }},
    {"ImageOverDirectory", [](Bytes& f) { Put32(f, EntryOffset(f, 0xBCC0) + 8, 8); }},
    {"PixelFormatPastEnd", [](Bytes& f) { Put32(f, EntryOffset(f, 0xBC01) + 8, 0xFFFFFFF8u); }},
    {"PixelFormatShort", [](Bytes& f) { Put32(f, EntryOffset(f, 0xBC01) + 4, 15); }},
    {"NoImageByteCount", [](Bytes& f) { f[EntryOffset(f, 0xBCC1)] = 0x77; }},
};

INSTANTIATE_TEST_SUITE_P(Wmp, WmpDamage, testing::ValuesIn(kDamages),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(WmpDecoder, UnknownPixelFormatIsUnsupported) {
    Bytes file = SmallRgb();
    const std::size_t at = EntryOffset(file, 0xBC01);
    const std::size_t guid = file[at + 8] | file[at + 9] << 8;
    file[guid + 15] = 0x7E;  // no such format
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(WmpDecoderInfo().create(FileBytes::FromMemory(file), decoder), E_UNSUPPORTED_TYPE);
}

TEST(WmpDecoder, ContainerThatContradictsTheCodestreamIsRefused) {
    Bytes file = SmallRgb();
    const std::size_t at = EntryOffset(file, 0xBC01);
    const std::size_t guid = file[at + 8] | file[at + 9] << 8;
    file[guid + 15] = 0x08;  // 8bppGray over an RGB codestream
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(WmpDecoderInfo().create(FileBytes::FromMemory(file), decoder), E_FAIL);
}

TEST(WmpDecoder, EveryTruncationFailsCleanly) {
    const Bytes whole = SmallRgb();
    const std::size_t image = EntryOffset(whole, 0xBCC0);
    const std::size_t start = whole[image + 8] | whole[image + 9] << 8;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Result result;
        auto frame = DecodeFrame({whole.begin(), whole.begin() + length}, result);
        if (length <= start) {
            // Nothing of the image plane: refused before jxrlib runs.
            ASSERT_TRUE(result.Failed()) << length;
        } else if (frame) {
            std::vector<std::byte> out(frame->RowBytes(16) * 16);
            (void)frame->CopyAll(frame->RowBytes(16), out);
        }
    }
}

TEST(WmpDecoder, DamagedCodestreamFailsOrDecodes) {
    const Bytes whole = SmallRgb();
    const std::size_t image = EntryOffset(whole, 0xBCC0);
    const std::size_t start = whole[image + 8] | whole[image + 9] << 8;
    int decoded = 0;
    for (std::size_t at = start; at < whole.size(); ++at) {
        Bytes file = whole;
        file[at] ^= 0xA5;
        Result result;
        auto frame = DecodeFrame(file, result);
        if (result.Failed()) {
            continue;
        }
        std::vector<std::byte> out(frame->RowBytes(16) * 16);
        decoded += frame->CopyAll(frame->RowBytes(16), out).Succeeded();
    }
    // Most damage to the coefficients still decodes; none of it may crash.
    EXPECT_GT(decoded, 0);
}

TEST(WmpDecoder, RegistersByContentAndExtension) {
    const DecoderInfo info = WmpDecoderInfo();
    EXPECT_EQ(info.container, container::Wmp);
    EXPECT_EQ(info.vendor, vendor::Microsoft);
    EXPECT_EQ(info.name, "WMP Decoder");
    EXPECT_EQ(info.extensions, ".wdp,.jxr");
    for (const char* head : {"II\xBC\x01", "II\xBC\x00"}) {
        EXPECT_TRUE(info.matches({reinterpret_cast<const std::uint8_t*>(head), 4}));
    }
    for (const char* head : {"II\xBC\x02", "II*\x00", "MM\xBC\x01"}) {
        EXPECT_FALSE(info.matches({reinterpret_cast<const std::uint8_t*>(head), 4}));
    }
    const DecoderInfo* found = ComponentList::Instance().FindByContent(SmallRgb());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->container, container::Wmp);
}

// jxrlib's own file decoder, as its sample program drives it, is the oracle for real files.
Bytes ReferenceDecode(const std::filesystem::path& path, std::size_t rowBytes) {
    PKImageDecode* decoder = nullptr;
    EXPECT_EQ(PKCodecFactory_CreateDecoderFromFile(path.c_str(), &decoder), WMP_errSuccess);
    PKPixelInfo info{};
    info.pGUIDPixFmt = &decoder->guidPixFormat;
    PixelFormatLookup(&info, LOOKUP_FORWARD);
    CWMImageInfo& image = decoder->WMP.wmiI;
    image.cfColorFormat = info.cfColorFormat;
    image.bdBitDepth = info.bdBitDepth;
    image.cBitsPerUnit = info.cbitUnit;
    image.cThumbnailWidth = image.cWidth;
    image.cThumbnailHeight = image.cHeight;
    image.cROIWidth = image.cWidth;
    image.cROIHeight = image.cHeight;
    image.oOrientation = O_NONE;
    decoder->WMP.wmiSCP.uAlphaMode = (info.grBit & PK_pixfmtHasAlpha) != 0 ? 2 : 0;
    const PKRect rect{0, 0, static_cast<I32>(decoder->uWidth), static_cast<I32>(decoder->uHeight)};
    Bytes pixels(rowBytes * decoder->uHeight);
    EXPECT_EQ(decoder->Copy(decoder, &rect, pixels.data(), static_cast<U32>(rowBytes)),
              WMP_errSuccess);
    decoder->Release(&decoder);
    return pixels;
}

TEST(WmpDecoder, RealFilesMatchJxrlib) {
    const auto folder = test::TestDataFolder() / "formats/jxr";
    if (test::TestDataFolder().empty() || !std::filesystem::exists(folder)) {
        GTEST_SKIP() << "no test data";
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++files;
        std::shared_ptr<const FileBytes> bytes;
        ASSERT_EQ(FileBytes::Read(entry.path(), bytes), S_OK);
        std::unique_ptr<Decoder> decoder;
        ASSERT_EQ(WmpDecoderInfo().create(bytes, decoder), S_OK) << entry.path();
        ASSERT_EQ(decoder->FrameCount(), 1u);
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
        const std::size_t row = frame->RowBytes(frame->Size().width);
        std::vector<std::byte> out(row * frame->Size().height);
        ASSERT_EQ(frame->CopyAll(row, out), S_OK);
        const Bytes reference = ReferenceDecode(entry.path(), row);
        EXPECT_EQ(std::memcmp(out.data(), reference.data(), reference.size()), 0) << entry.path();

        const FrameMetadataBlocks blocks = frame->Metadata();
        const std::string xmp(blocks.xmp.begin(), blocks.xmp.end());
        EXPECT_NE(xmp.find("xmpmeta"), std::string::npos) << entry.path();
        ASSERT_GE(blocks.icc.size(), 40u);
        EXPECT_EQ(std::memcmp(blocks.icc.data() + 36, "acsp", 4), 0);
        // The EXIF block is the container read as a TIFF: IFD0 holds the EXIF pointer.
        ASSERT_GE(blocks.exif.size(), 8u);
        EXPECT_EQ(std::memcmp(blocks.exif.data(), "II*\0", 4), 0);
        const auto tiff = ReadTiffStructure(blocks.exif);
        ASSERT_TRUE(tiff.has_value());
        EXPECT_EQ(tiff->pages.size(), 1u);
        const auto pointer = TiffTagData(blocks.exif, *tiff, tiff->pages[0], 0x8769);
        ASSERT_EQ(pointer.size(), 4u);
        const std::uint32_t exifIfd =
            pointer[0] | pointer[1] << 8 | pointer[2] << 16 | std::uint32_t{pointer[3]} << 24;
        const auto taken = TiffTagData(blocks.exif, *tiff, exifIfd, 0x9003);  // DateTimeOriginal
        EXPECT_EQ(taken.size(), 20u) << entry.path();
    }
    EXPECT_EQ(files, 2);
}

}  // namespace
}  // namespace orvanta::imaging::codecs

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/codecs/library_codec_test_helpers.h"
#include "platform/imaging/codecs/upright_frame.h"
#include "platform/imaging/component_list.h"
#include "support/temp_folder.h"

#if ORVANTA_HAVE_JXL
#include <jxl/encode.h>

namespace orvanta::imaging {
namespace {

using test::CopyPicture;
using test::Picture;

struct JxlBox {
    const char* type;
    std::vector<std::uint8_t> content;
    bool compress = false;
};

struct JxlSource {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t channels = 3;  // 1 gray, 2 gray + alpha, 3 RGB, 4 RGBA
    std::uint32_t bits = 8;
    JxlOrientation orientation = JXL_ORIENT_IDENTITY;
    std::vector<std::uint8_t> pixels;  // interleaved, native-endian 16-bit samples
    std::vector<JxlBox> boxes;
};

// Lossless, so the decoded samples must equal the source's.
std::vector<std::uint8_t> EncodeJxl(const JxlSource& source) {
    std::unique_ptr<JxlEncoder, void (*)(JxlEncoder*)> encoder(JxlEncoderCreate(nullptr),
                                                               JxlEncoderDestroy);
    if (!source.boxes.empty()) {
        EXPECT_EQ(JxlEncoderUseBoxes(encoder.get()), JXL_ENC_SUCCESS);
    }
    const bool gray = source.channels <= 2;
    const bool alpha = source.channels % 2 == 0;
    JxlBasicInfo info;
    JxlEncoderInitBasicInfo(&info);
    info.xsize = source.width;
    info.ysize = source.height;
    info.bits_per_sample = source.bits;
    info.num_color_channels = gray ? 1 : 3;
    info.num_extra_channels = alpha ? 1 : 0;
    info.alpha_bits = alpha ? source.bits : 0;
    info.uses_original_profile = JXL_TRUE;
    info.orientation = source.orientation;
    EXPECT_EQ(JxlEncoderSetBasicInfo(encoder.get(), &info), JXL_ENC_SUCCESS);
    JxlColorEncoding color;
    JxlColorEncodingSetToSRGB(&color, gray ? JXL_TRUE : JXL_FALSE);
    EXPECT_EQ(JxlEncoderSetColorEncoding(encoder.get(), &color), JXL_ENC_SUCCESS);
    JxlEncoderFrameSettings* settings = JxlEncoderFrameSettingsCreate(encoder.get(), nullptr);
    EXPECT_EQ(JxlEncoderSetFrameLossless(settings, JXL_TRUE), JXL_ENC_SUCCESS);
    const JxlPixelFormat format{
        source.channels, source.bits == 8 ? JXL_TYPE_UINT8 : JXL_TYPE_UINT16, JXL_NATIVE_ENDIAN, 0};
    EXPECT_EQ(
        JxlEncoderAddImageFrame(settings, &format, source.pixels.data(), source.pixels.size()),
        JXL_ENC_SUCCESS);
    for (const JxlBox& box : source.boxes) {
        EXPECT_EQ(JxlEncoderAddBox(encoder.get(), box.type, box.content.data(), box.content.size(),
                                   box.compress),
                  JXL_ENC_SUCCESS);
    }
    JxlEncoderCloseInput(encoder.get());
    std::vector<std::uint8_t> out(4096);
    std::uint8_t* next = out.data();
    std::size_t left = out.size();
    for (;;) {
        const JxlEncoderStatus status = JxlEncoderProcessOutput(encoder.get(), &next, &left);
        if (status != JXL_ENC_NEED_MORE_OUTPUT) {
            EXPECT_EQ(status, JXL_ENC_SUCCESS);
            break;
        }
        const std::size_t used = next - out.data();
        out.resize(out.size() * 2);
        next = out.data() + used;
        left = out.size() - used;
    }
    out.resize(next - out.data());
    return out;
}

std::vector<std::uint8_t> PatternPixels(const JxlSource& source) {
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(source.width) * source.height *
                                     source.channels * (source.bits / 8));
    std::uint32_t state = 12345;
    for (std::uint8_t& byte : pixels) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<std::uint8_t>(state >> 16);
    }
    return pixels;
}

const DecoderInfo& JxlInfo() {
    const DecoderInfo* info = ComponentList::Instance().Find(container::Jxl, vendor::Orvanta);
    EXPECT_NE(info, nullptr);
    return *info;
}

Result Decode(const std::vector<std::uint8_t>& bytes, std::unique_ptr<BitmapFrame>& frame) {
    std::unique_ptr<Decoder> decoder;
    const Result created = JxlInfo().create(FileBytes::FromMemory(bytes), decoder);
    if (created.Failed()) {
        return created;
    }
    EXPECT_EQ(decoder->Container(), container::Jxl);
    EXPECT_EQ(decoder->FrameCount(), 1u);
    return decoder->GetFrame(0, frame);
}

struct LayoutCase {
    const char* name;
    std::uint32_t channels;
    std::uint32_t bits;
    PixelFormat format;
};

class JxlLayout : public testing::TestWithParam<LayoutCase> {};

TEST_P(JxlLayout, DecodesLosslessSamplesInTheNaturalFormat) {
    const LayoutCase& param = GetParam();
    JxlSource source{13, 7, param.channels, param.bits};
    source.pixels = PatternPixels(source);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(Decode(EncodeJxl(source), frame), S_OK);
    EXPECT_EQ(frame->Format(), param.format);
    EXPECT_EQ(frame->Size(), (PixelSize{13, 7}));
    Picture picture;
    ASSERT_EQ(CopyPicture(*frame, picture), S_OK);
    EXPECT_EQ(picture.pixels, source.pixels);
}

INSTANTIATE_TEST_SUITE_P(Layouts, JxlLayout,
                         testing::Values(LayoutCase{"Gray8", 1, 8, PixelFormat::Gray8},
                                         LayoutCase{"GrayAlpha16", 2, 8, PixelFormat::GrayAlpha16},
                                         LayoutCase{"Rgb24", 3, 8, PixelFormat::Rgb24},
                                         LayoutCase{"Rgba32", 4, 8, PixelFormat::Rgba32},
                                         LayoutCase{"Gray16", 1, 16, PixelFormat::Gray16},
                                         LayoutCase{"Rgb48", 3, 16, PixelFormat::Rgb48},
                                         LayoutCase{"Rgba64", 4, 16, PixelFormat::Rgba64}),
                         [](const testing::TestParamInfo<LayoutCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(JxlDecoder, ServesRectanglesWithPaddedStride) {
    JxlSource source{9, 6, 3, 8};
    source.pixels = PatternPixels(source);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(Decode(EncodeJxl(source), frame), S_OK);
    const PixelRect rect{2, 3, 5, 2};
    const std::size_t stride = 5 * 3 + 4;
    std::vector<std::uint8_t> out(stride * 2, 0xEE);
    ASSERT_EQ(frame->CopyPixels(rect, stride, std::as_writable_bytes(std::span(out))), S_OK);
    for (int row = 0; row < rect.height; ++row) {
        const std::uint8_t* expected = source.pixels.data() + ((rect.y + row) * 9 + rect.x) * 3;
        EXPECT_EQ(std::memcmp(out.data() + row * stride, expected, 15), 0) << row;
        EXPECT_EQ(out[row * stride + 15], 0xEE) << "padding written in row " << row;
    }
}

TEST(JxlDecoder, AppliesTheCodestreamOrientation) {
    // Stored 3 wide and 2 high; rotating 90 degrees clockwise shows it 2 wide, 3 high, with
    // the stored bottom-left pixel at the top left.
    JxlSource source{3, 2, 1, 8, JXL_ORIENT_ROTATE_90_CW, {1, 2, 3, 4, 5, 6}};
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(Decode(EncodeJxl(source), frame), S_OK);
    auto* upright = dynamic_cast<codecs::UprightFrame*>(frame.get());
    ASSERT_NE(upright, nullptr);
    EXPECT_TRUE(upright->TransformsApplied());
    EXPECT_EQ(frame->Size(), (PixelSize{2, 3}));
    Picture picture;
    ASSERT_EQ(CopyPicture(*frame, picture), S_OK);
    EXPECT_EQ(picture.pixels, (std::vector<std::uint8_t>{4, 1, 5, 2, 6, 3}));
}

TEST(JxlDecoder, ReadsExifXmpAndColourProfile) {
    const std::vector<std::uint8_t> tiff = {'M', 'M', 0, 42, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0};
    std::vector<std::uint8_t> exifBox = {0, 0, 0, 0};
    exifBox.insert(exifBox.end(), tiff.begin(), tiff.end());
    const std::string packet = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF/></x:xmpmeta>";
    JxlSource source{4, 4, 3, 8};
    source.pixels = PatternPixels(source);
    source.boxes = {{"Exif", exifBox}, {"xml ", {packet.begin(), packet.end()}, true}};
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(Decode(EncodeJxl(source), frame), S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(std::vector<std::uint8_t>(blocks.exif.begin(), blocks.exif.end()), tiff);
    EXPECT_EQ(std::string(blocks.xmp.begin(), blocks.xmp.end()), packet);
    // libjxl describes an sRGB codestream with a generated profile: a real ICC header.
    ASSERT_GT(blocks.icc.size(), 40u);
    EXPECT_EQ(std::memcmp(blocks.icc.data() + 36, "acsp", 4), 0);
}

TEST(JxlDecoder, CutShortFilesFailCleanly) {
    JxlSource bare{40, 24, 4, 8};
    bare.pixels = PatternPixels(bare);
    const std::vector<std::uint8_t> codestream = EncodeJxl(bare);
    ASSERT_TRUE(test::DecodeEverything(JxlInfo(), codestream));
    EXPECT_EQ(test::DecodeTruncations(JxlInfo(), codestream, 3), 0);

    JxlSource boxed{40, 24, 3, 16};
    boxed.pixels = PatternPixels(boxed);
    boxed.boxes = {{"Exif", {0, 0, 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0}}};
    const std::vector<std::uint8_t> container = EncodeJxl(boxed);
    ASSERT_TRUE(test::DecodeEverything(JxlInfo(), container));
    // Cuts inside the trailing box may still give the whole picture; cuts in the
    // codestream may not.
    EXPECT_LT(test::DecodeTruncations(JxlInfo(), container, 5), 10);
}

struct MagicCase {
    const char* name;
    std::vector<std::uint8_t> head;
    bool jxl;
};

class JxlMagic : public testing::TestWithParam<MagicCase> {};

TEST_P(JxlMagic, ClaimsOnlyJpegXl) {
    EXPECT_EQ(JxlInfo().matches(GetParam().head), GetParam().jxl);
}

INSTANTIATE_TEST_SUITE_P(
    Heads, JxlMagic,
    testing::Values(
        MagicCase{"Codestream", {0xFF, 0x0A, 0xFA}, true},
        MagicCase{"Container", {0, 0, 0, 12, 'J', 'X', 'L', ' ', 0x0D, 0x0A, 0x87, 0x0A, 0}, true},
        MagicCase{"ContainerCut", {0, 0, 0, 12, 'J', 'X', 'L', ' ', 0x0D, 0x0A}, false},
        MagicCase{"Jpeg", {0xFF, 0xD8, 0xFF}, false},
        MagicCase{"Png", {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A}, false},
        MagicCase{"OneByte", {0xFF}, false}),
    [](const testing::TestParamInfo<MagicCase>& info) { return std::string(info.param.name); });

struct RealCase {
    const char* file;
    PixelFormat format;
    bool exif;
};

class JxlRealFile : public testing::TestWithParam<RealCase> {};

TEST_P(JxlRealFile, DecodesWithMetadata) {
    const std::filesystem::path folder = orvanta::test::TestDataFolder();
    if (folder.empty()) {
        GTEST_SKIP() << "no test data";
    }
    const auto bytes = test::ReadFileBytes(folder / "formats/jxl" / GetParam().file);
    ASSERT_FALSE(bytes.empty());
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(Decode(bytes, frame), S_OK);
    EXPECT_EQ(frame->Format(), GetParam().format);
    Picture picture;
    ASSERT_EQ(CopyPicture(*frame, picture), S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_FALSE(blocks.icc.empty());
    EXPECT_EQ(blocks.exif.size() >= 8 && (blocks.exif[0] == 'I' || blocks.exif[0] == 'M'),
              GetParam().exif);
    EXPECT_EQ(!blocks.xmp.empty(), GetParam().exif);
}

INSTANTIATE_TEST_SUITE_P(Files, JxlRealFile,
                         testing::Values(RealCase{"8bit-sRGB.jxl", PixelFormat::Rgb24, false},
                                         RealCase{"gimp_exif.jxl", PixelFormat::Rgba32, true}));

}  // namespace
}  // namespace orvanta::imaging

#endif  // ORVANTA_HAVE_JXL

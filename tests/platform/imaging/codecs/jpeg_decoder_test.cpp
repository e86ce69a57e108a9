#include <gtest/gtest.h>

#if ORVANTA_HAVE_JPEG && ORVANTA_HAVE_TURBOJPEG

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <turbojpeg.h>

#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/jpeg_frame.h"
#include "support/temp_folder.h"

namespace orvanta::imaging::codecs {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr Result kBadHeader{0x88982F61u};
constexpr Result kSizeOutOfRange{0x88982F51u};

// A picture with detail in both directions, so that scaling and colour errors show.
Bytes Pattern(int width, int height, int channels) {
    Bytes pixels(static_cast<std::size_t>(width) * height * channels);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (int c = 0; c < channels; ++c) {
                pixels[(static_cast<std::size_t>(y) * width + x) * channels + c] =
                    static_cast<std::uint8_t>((x * 7 + y * 3 + c * 80 + (x / 9) * (y / 5)) & 0xFF);
            }
        }
    }
    return pixels;
}

Bytes Encode(const Bytes& pixels, int width, int height, int format, int subsampling,
             int flags = 0) {
    tjhandle handle = tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(handle, pixels.data(), width, 0, height, format, &buffer, &size,
                                   subsampling, 90, flags);
    Bytes jpeg;
    if (result == 0) {
        jpeg.assign(buffer, buffer + size);
    }
    tjFree(buffer);
    tjDestroy(handle);
    EXPECT_EQ(result, 0) << tjGetErrorStr();
    return jpeg;
}

// What libjpeg-turbo's own one-call decoder makes of the file, for comparison.
Bytes Reference(const Bytes& jpeg, int format, int scaleNum = 8) {
    tjhandle handle = tjInitDecompress();
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colorspace = 0;
    tjDecompressHeader3(handle, jpeg.data(), jpeg.size(), &width, &height, &subsampling,
                        &colorspace);
    width = TJSCALED(width, (tjscalingfactor{scaleNum, 8}));
    height = TJSCALED(height, (tjscalingfactor{scaleNum, 8}));
    Bytes pixels(static_cast<std::size_t>(width) * height * tjPixelSize[format]);
    EXPECT_EQ(
        tjDecompress2(handle, jpeg.data(), jpeg.size(), pixels.data(), width, 0, height, format, 0),
        0)
        << tjGetErrorStr();
    tjDestroy(handle);
    return pixels;
}

Bytes Segment(std::uint8_t marker, const std::string& id, const Bytes& body) {
    Bytes segment = {0xFF, marker, 0, 0};
    segment.insert(segment.end(), id.begin(), id.end());
    segment.insert(segment.end(), body.begin(), body.end());
    const std::size_t length = segment.size() - 2;
    segment[2] = static_cast<std::uint8_t>(length >> 8);
    segment[3] = static_cast<std::uint8_t>(length);
    return segment;
}

Bytes InsertAfterSoi(Bytes jpeg, const Bytes& segments) {
    jpeg.insert(jpeg.begin() + 2, segments.begin(), segments.end());
    return jpeg;
}

std::unique_ptr<Decoder> Open(const Bytes& jpeg, Result expected = S_OK) {
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(JpegDecoderInfo().create(FileBytes::FromMemory(jpeg), decoder), expected);
    return decoder;
}

std::unique_ptr<BitmapFrame> FrameOf(const Bytes& jpeg) {
    auto decoder = Open(jpeg);
    std::unique_ptr<BitmapFrame> frame;
    if (decoder) {
        EXPECT_EQ(decoder->GetFrame(0, frame), S_OK);
    }
    return frame;
}

Bytes CopyAll(BitmapSource& source, Result expected = S_OK) {
    const std::size_t stride = source.RowBytes(source.Size().width);
    Bytes pixels(stride * source.Size().height);
    EXPECT_EQ(source.CopyAll(stride, std::as_writable_bytes(std::span(pixels))), expected);
    return pixels;
}

// --- direct output formats -------------------------------------------------------------

struct FormatCase {
    int subsampling;
    PixelFormat format;
    int reference;  // the TurboJPEG pixel format that matches `format`
};

class JpegFormats : public testing::TestWithParam<FormatCase> {};

TEST_P(JpegFormats, MatchOneCallDecoder) {
    const FormatCase& c = GetParam();
    const bool gray = c.subsampling == TJSAMP_GRAY;
    const Bytes jpeg =
        Encode(Pattern(67, 45, gray ? 1 : 3), 67, 45, gray ? TJPF_GRAY : TJPF_RGB, c.subsampling);
    auto frame = FrameOf(jpeg);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->Format(), gray ? PixelFormat::Gray8 : PixelFormat::Bgr24);
    EXPECT_EQ(frame->GetAccess(), Access::Sequential);
    std::unique_ptr<BitmapSource> variant = frame->CreateVariant({0, 0}, c.format);
    BitmapSource& source = variant ? *variant : *frame;
    ASSERT_EQ(source.Format(), c.format);
    ASSERT_EQ(source.Size(), (PixelSize{67, 45}));
    Bytes expected = Reference(jpeg, c.reference);
    if (c.reference == TJPF_BGRA || c.reference == TJPF_RGBA) {
        // TurboJPEG leaves the fourth byte of an opaque picture at 0xFF as well.
        for (std::size_t i = 3; i < expected.size(); i += 4) {
            expected[i] = 0xFF;
        }
    }
    EXPECT_EQ(CopyAll(source), expected);
}

INSTANTIATE_TEST_SUITE_P(Jpeg, JpegFormats,
                         testing::Values(FormatCase{TJSAMP_420, PixelFormat::Bgr24, TJPF_BGR},
                                         FormatCase{TJSAMP_444, PixelFormat::Bgr24, TJPF_BGR},
                                         FormatCase{TJSAMP_422, PixelFormat::Rgb24, TJPF_RGB},
                                         FormatCase{TJSAMP_420, PixelFormat::Pbgra32, TJPF_BGRA},
                                         FormatCase{TJSAMP_420, PixelFormat::Bgra32, TJPF_BGRA},
                                         FormatCase{TJSAMP_440, PixelFormat::Rgba32, TJPF_RGBA},
                                         FormatCase{TJSAMP_420, PixelFormat::Gray8, TJPF_GRAY},
                                         FormatCase{TJSAMP_GRAY, PixelFormat::Gray8, TJPF_GRAY},
                                         FormatCase{TJSAMP_GRAY, PixelFormat::Bgr24, TJPF_BGR},
                                         FormatCase{TJSAMP_GRAY, PixelFormat::Pbgra32, TJPF_BGRA}));

TEST(JpegDecoder, BgrxVariantEqualsBgrOutput) {
    const Bytes jpeg = Encode(Pattern(50, 31, 3), 50, 31, TJPF_RGB, TJSAMP_420);
    auto frame = FrameOf(jpeg);
    ASSERT_TRUE(frame);
    auto variant = frame->CreateVariant({0, 0}, PixelFormat::Bgr32);
    ASSERT_TRUE(variant);
    const Bytes bgr = CopyAll(*frame);
    const Bytes bgrx = CopyAll(*variant);
    ASSERT_EQ(bgrx.size() / 4, bgr.size() / 3);
    for (std::size_t i = 0; i < bgr.size() / 3; ++i) {
        ASSERT_EQ(0, std::memcmp(&bgr[i * 3], &bgrx[i * 4], 3)) << "pixel " << i;
    }
}

TEST(JpegDecoder, VariantThatChangesNothingIsNull) {
    auto frame = FrameOf(Encode(Pattern(16, 16, 3), 16, 16, TJPF_RGB, TJSAMP_420));
    ASSERT_TRUE(frame);
    EXPECT_FALSE(frame->CreateVariant({0, 0}, PixelFormat::Unknown));
    EXPECT_FALSE(frame->CreateVariant({16, 16}, PixelFormat::Bgr24));
    EXPECT_FALSE(frame->CreateVariant({0, 0}, PixelFormat::Rgba64));  // libjpeg cannot
}

// --- DCT scaling -------------------------------------------------------------------------

struct ScaleCase {
    PixelSize minimum;
    std::uint32_t scale;
    PixelSize size;
};

class JpegScaling : public testing::TestWithParam<ScaleCase> {};

TEST_P(JpegScaling, ChoosesSmallestScaleThatCoversMinimum) {
    const ScaleCase& c = GetParam();
    const Bytes jpeg = Encode(Pattern(803, 601, 3), 803, 601, TJPF_RGB, TJSAMP_420);
    auto frame = FrameOf(jpeg);
    ASSERT_TRUE(frame);
    auto variant = frame->CreateVariant(c.minimum, PixelFormat::Pbgra32);
    ASSERT_TRUE(variant);
    EXPECT_EQ(static_cast<JpegFrame&>(*variant).Scale(), c.scale);
    ASSERT_EQ(variant->Size(), c.size);
    Bytes expected = Reference(jpeg, TJPF_BGRA, static_cast<int>(c.scale));
    EXPECT_EQ(CopyAll(*variant), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Jpeg, JpegScaling,
    testing::Values(ScaleCase{{1, 1}, 1, {101, 76}}, ScaleCase{{101, 76}, 1, {101, 76}},
                    ScaleCase{{102, 10}, 2, {201, 151}}, ScaleCase{{10, 300}, 4, {402, 301}},
                    ScaleCase{{450, 300}, 5, {502, 376}}, ScaleCase{{700, 1}, 7, {703, 526}},
                    ScaleCase{{704, 1}, 8, {803, 601}}, ScaleCase{{5000, 5000}, 8, {803, 601}}));

// --- sequential access ---------------------------------------------------------------------

TEST(JpegDecoder, RectanglesInAnyOrderMatchWholeDecode) {
    const Bytes jpeg = Encode(Pattern(90, 70, 3), 90, 70, TJPF_RGB, TJSAMP_420);
    auto frame = FrameOf(jpeg);
    ASSERT_TRUE(frame);
    const Bytes whole = CopyAll(*frame);
    // Forward with a skip, a narrow band, then back to the top (a restart).
    for (const PixelRect rect : {PixelRect{0, 20, 90, 10}, PixelRect{13, 40, 21, 25},
                                 PixelRect{5, 0, 80, 3}, PixelRect{89, 69, 1, 1}}) {
        const std::size_t stride = 3 * rect.width + 5;
        Bytes part(stride * rect.height);
        ASSERT_EQ(frame->CopyPixels(rect, stride, std::as_writable_bytes(std::span(part))), S_OK);
        for (int y = 0; y < rect.height; ++y) {
            ASSERT_EQ(0, std::memcmp(&part[y * stride], &whole[((rect.y + y) * 90 + rect.x) * 3],
                                     3 * rect.width))
                << "rect at " << rect.x << "," << rect.y << " row " << y;
        }
    }
}

// --- CMYK ------------------------------------------------------------------------------------

Bytes WithoutAdobeSegment(Bytes jpeg) {
    for (std::size_t i = 2; i + 4 < jpeg.size() && jpeg[i] == 0xFF && jpeg[i + 1] != 0xDA;) {
        const std::size_t length = jpeg[i + 2] << 8 | jpeg[i + 3];
        if (jpeg[i + 1] == 0xEE) {
            jpeg.erase(jpeg.begin() + i, jpeg.begin() + i + 2 + length);
            continue;
        }
        i += 2 + length;
    }
    return jpeg;
}

class JpegCmyk : public testing::TestWithParam<bool> {};

TEST_P(JpegCmyk, AdobeInvertedDataComesOutUpright) {
    const bool adobe = GetParam();
    Bytes jpeg = Encode(Pattern(40, 24, 4), 40, 24, TJPF_CMYK, TJSAMP_444);
    if (!adobe) {
        jpeg = WithoutAdobeSegment(jpeg);
    }
    auto frame = FrameOf(jpeg);
    ASSERT_TRUE(frame);
    ASSERT_EQ(frame->Format(), PixelFormat::Cmyk32);
    EXPECT_FALSE(frame->CreateVariant({0, 0}, PixelFormat::Bgr32));
    Bytes expected = Reference(jpeg, TJPF_CMYK);
    if (adobe) {
        for (std::uint8_t& sample : expected) {
            sample = static_cast<std::uint8_t>(255 - sample);
        }
    }
    EXPECT_EQ(CopyAll(*frame), expected);
    // A partial rectangle is inverted exactly once.
    Bytes part(4 * 10);
    ASSERT_EQ(frame->CopyPixels({7, 3, 10, 1}, 40, std::as_writable_bytes(std::span(part))), S_OK);
    EXPECT_EQ(0, std::memcmp(part.data(), &expected[(3 * 40 + 7) * 4], part.size()));
}

INSTANTIATE_TEST_SUITE_P(Jpeg, JpegCmyk, testing::Bool());

// --- metadata --------------------------------------------------------------------------------

Bytes Text(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

Bytes IccChunk(std::uint8_t sequence, std::uint8_t count, const std::string& part) {
    Bytes body = {sequence, count};
    body.insert(body.end(), part.begin(), part.end());
    return Segment(0xE2, std::string("ICC_PROFILE\0", 12), body);
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::string AsString(std::span<const std::uint8_t> bytes) {
    return std::string(bytes.begin(), bytes.end());
}

TEST(JpegDecoder, MetadataBlocks) {
    const std::string exif("II*\0\x08\0\0\0\0\0\0\0\0\0", 14);
    const std::string xmp = "<x:xmpmeta>rating</x:xmpmeta>";
    const Bytes iptc = {0x1C, 0x02, 0x05, 0x00, 0x03, 'A', 'B', 'C'};
    // A resource before the IPTC one, with an odd-length name and body to exercise padding.
    Bytes irb = Text(std::string("8BIM\x03\xED\x01x\0\0\0\x03zzz\0", 16));
    irb.insert(irb.end(), {'8', 'B', 'I', 'M', 0x04, 0x04, 0, 0, 0, 0, 0, 8});
    irb.insert(irb.end(), iptc.begin(), iptc.end());
    const Bytes segments = Concat({
        Segment(0xE1, std::string("Exif\0\0", 6), Text(exif)),
        IccChunk(2, 3, "middle-"),
        Segment(0xE1, std::string("http://ns.adobe.com/xap/1.0/\0", 29), Text(xmp)),
        IccChunk(3, 3, "end"),
        Segment(0xED, std::string("Photoshop 3.0\0", 14), irb),
        IccChunk(1, 3, "start-"),
    });
    auto frame =
        FrameOf(InsertAfterSoi(Encode(Pattern(8, 8, 3), 8, 8, TJPF_RGB, TJSAMP_420), segments));
    ASSERT_TRUE(frame);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(AsString(blocks.exif), exif);
    EXPECT_EQ(AsString(blocks.xmp), xmp);
    EXPECT_EQ(Bytes(blocks.iptc.begin(), blocks.iptc.end()), iptc);
    EXPECT_EQ(AsString(blocks.icc), "start-middle-end");
}

class JpegBrokenIcc : public testing::TestWithParam<Bytes> {};

TEST_P(JpegBrokenIcc, IsDropped) {
    auto frame =
        FrameOf(InsertAfterSoi(Encode(Pattern(8, 8, 3), 8, 8, TJPF_RGB, TJSAMP_420), GetParam()));
    ASSERT_TRUE(frame);
    EXPECT_TRUE(frame->Metadata().icc.empty());
}

INSTANTIATE_TEST_SUITE_P(Jpeg, JpegBrokenIcc,
                         testing::Values(Concat({IccChunk(1, 3, "a"), IccChunk(3, 3, "c")}),
                                         Concat({IccChunk(1, 2, "a"), IccChunk(1, 2, "b")}),
                                         Concat({IccChunk(1, 2, "a"), IccChunk(2, 3, "b")}),
                                         IccChunk(0, 1, "a")));

// --- embedded preview --------------------------------------------------------------------

void Put32(Bytes& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
}

// A main image with an MPF segment listing `secondary`, which is appended after it.
Bytes WithMpfPreview(const Bytes& primary, const Bytes& secondary) {
    // Little-endian TIFF: header, a directory of one MP-entry tag, then two 16-byte entries.
    Bytes tiff = {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x02, 0xB0, 7, 0};
    Put32(tiff, 32);
    Put32(tiff, 26);  // where the entries start
    Put32(tiff, 0);   // no next directory
    const std::size_t primarySize = primary.size() + 4 + 4 + tiff.size() + 32;
    const std::size_t tiffStart = 2 + 4 + 4;  // SOI, segment header, "MPF\0"
    Put32(tiff, 0x030000);
    Put32(tiff, static_cast<std::uint32_t>(primarySize));
    Put32(tiff, 0);
    Put32(tiff, 0);
    Put32(tiff, 0x010001);
    Put32(tiff, static_cast<std::uint32_t>(secondary.size()));
    Put32(tiff, static_cast<std::uint32_t>(primarySize - tiffStart));
    Put32(tiff, 0);
    Bytes file = InsertAfterSoi(primary, Segment(0xE2, std::string("MPF\0", 4), tiff));
    EXPECT_EQ(file.size(), primarySize);
    file.insert(file.end(), secondary.begin(), secondary.end());
    return file;
}

TEST(JpegDecoder, PreviewIsLargestMpfImage) {
    const Bytes primary = Encode(Pattern(64, 48, 3), 64, 48, TJPF_RGB, TJSAMP_420);
    const Bytes secondary = Encode(Pattern(40, 30, 3), 40, 30, TJPF_RGB, TJSAMP_444);
    auto decoder = Open(WithMpfPreview(primary, secondary));
    ASSERT_TRUE(decoder);
    std::unique_ptr<BitmapFrame> preview;
    ASSERT_EQ(decoder->GetPreview(preview), S_OK);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->Size(), (PixelSize{40, 30}));
    EXPECT_EQ(CopyAll(*preview), Reference(secondary, TJPF_BGR));

    auto plain = Open(primary);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->GetPreview(preview), S_FALSE);
    EXPECT_FALSE(preview);
}

std::size_t FindMarker(const Bytes& jpeg, std::uint8_t marker) {
    const std::uint8_t pattern[] = {0xFF, marker};
    return static_cast<std::size_t>(
        std::search(jpeg.begin(), jpeg.end(), std::begin(pattern), std::end(pattern)) -
        jpeg.begin());
}

// --- bad files ------------------------------------------------------------------------------

TEST(JpegDecoder, TruncatedFilesDecodeWhatTheyHave) {
    const Bytes jpeg = Encode(Pattern(120, 90, 3), 120, 90, TJPF_RGB, TJSAMP_420);
    const std::size_t scanStart = FindMarker(jpeg, 0xDA) + 14;
    auto whole = FrameOf(jpeg);
    ASSERT_TRUE(whole);
    CopyAll(*whole);
    EXPECT_FALSE(static_cast<JpegFrame&>(*whole).Truncated());
    for (std::size_t length = 0; length < jpeg.size() - 2; length += 7) {
        const Bytes cut(jpeg.begin(), jpeg.begin() + length);
        std::unique_ptr<Decoder> decoder;
        const Result created = JpegDecoderInfo().create(FileBytes::FromMemory(cut), decoder);
        if (length < scanStart) {
            EXPECT_TRUE(created.Failed()) << length;
            continue;
        }
        ASSERT_EQ(created, S_OK) << length;
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
        const std::size_t stride = 3 * 120;
        Bytes pixels(stride * 90);
        EXPECT_EQ(frame->CopyAll(stride, std::as_writable_bytes(std::span(pixels))), S_FALSE)
            << length;
        EXPECT_TRUE(static_cast<JpegFrame&>(*frame).Truncated()) << length;
    }
}

TEST(JpegDecoder, CorruptHeadersFailCleanly) {
    const Bytes jpeg = Encode(Pattern(32, 32, 3), 32, 32, TJPF_RGB, TJSAMP_420);
    const std::size_t sof = FindMarker(jpeg, 0xC0);

    Bytes huge = jpeg;  // 65000 x 65000: past a gigapixel
    huge[sof + 5] = huge[sof + 7] = 0xFD;
    huge[sof + 6] = huge[sof + 8] = 0xE8;
    Open(huge, kSizeOutOfRange);

    Bytes zeroHeight = jpeg;
    zeroHeight[sof + 5] = zeroHeight[sof + 6] = 0;
    Open(zeroHeight, kBadHeader);

    Bytes longSegment = jpeg;
    longSegment[sof + 2] = 0xFF;
    Open(longSegment, kBadHeader);

    Open(Bytes{0xFF, 0xD8, 0xFF, 0xD9}, kBadHeader);
    Open(Bytes{0x89, 'P', 'N', 'G'}, kBadHeader);

    // A Huffman table libjpeg refuses, behind segments that look fine.
    Bytes badTable = jpeg;
    const std::size_t dht = FindMarker(badTable, 0xC4);
    std::fill(badTable.begin() + dht + 5, badTable.begin() + dht + 21, 0xFF);
    auto frame = FrameOf(badTable);
    ASSERT_TRUE(frame);
    Bytes pixels(32 * 32 * 3);
    EXPECT_TRUE(frame->CopyAll(96, std::as_writable_bytes(std::span(pixels))).Failed());
}

TEST(JpegDecoder, RegistersAndMatchesContent) {
    const DecoderInfo info = JpegDecoderInfo();
    EXPECT_EQ(info.name, "JPEG Decoder");
    EXPECT_EQ(info.extensions, ".jpeg,.jpe,.jpg,.jfif,.exif");
    EXPECT_EQ(info.container, container::Jpeg);
    const Bytes head = {0xFF, 0xD8, 0xFF, 0xE0};
    EXPECT_TRUE(info.matches(head));
    EXPECT_FALSE(info.matches(std::span(head).first(2)));
}

// --- real files --------------------------------------------------------------------------------

TEST(JpegDecoder, DecodesEveryTestFile) {
    const auto folder = test::TestDataFolder();
    if (folder.empty() || !std::filesystem::exists(folder / "formats/jpeg")) {
        GTEST_SKIP() << "no test data";
    }
    int files = 0;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(folder / "formats/jpeg")) {
        if (!entry.is_regular_file()) {
            continue;
        }
        SCOPED_TRACE(entry.path().string());
        std::shared_ptr<const FileBytes> bytes;
        ASSERT_EQ(FileBytes::Read(entry.path(), bytes), S_OK);
        std::unique_ptr<Decoder> decoder;
        ASSERT_EQ(JpegDecoderInfo().create(bytes, decoder), S_OK);
        ASSERT_EQ(decoder->FrameCount(), 1u);
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
        CopyAll(*frame);
        EXPECT_FALSE(static_cast<JpegFrame&>(*frame).Truncated());
        ++files;
    }
    EXPECT_GT(files, 0);
}

TEST(JpegDecoder, LightroomExportCarriesAllBlocks) {
    const auto path = test::TestDataFolder() / "formats/jpeg/Pentax_K-3II_Lightroom_sunrise.jpg";
    if (test::TestDataFolder().empty() || !std::filesystem::exists(path)) {
        GTEST_SKIP() << "no test data";
    }
    std::shared_ptr<const FileBytes> bytes;
    ASSERT_EQ(FileBytes::Read(path, bytes), S_OK);
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(JpegDecoderInfo().create(bytes, decoder), S_OK);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(AsString(blocks.exif.first(4)), std::string("II*\0", 4));
    EXPECT_NE(AsString(blocks.xmp).find("xmp:Rating"), std::string::npos);
    EXPECT_FALSE(blocks.iptc.empty());
    ASSERT_GE(blocks.icc.size(), 40u);
    EXPECT_EQ(AsString(blocks.icc.subspan(36, 4)), "acsp");
}

}  // namespace
}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_JPEG && ORVANTA_HAVE_TURBOJPEG

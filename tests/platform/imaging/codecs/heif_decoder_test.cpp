#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/codecs/heif_family_internal.h"
#include "platform/imaging/codecs/library_codec_test_helpers.h"
#include "platform/imaging/codecs/upright_frame.h"
#include "platform/imaging/component_list.h"
#include "support/temp_folder.h"

#if ORVANTA_HAVE_HEIF
#include <libheif/heif.h>

// x265 leaks a few kilobytes per encoded picture; only the fixtures use it, and the leak
// checker would otherwise fail the whole test program at exit.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\n";
}

namespace orvanta::imaging {
namespace {

using codecs::ClassifyHeifBrands;
using codecs::HeifBrand;
using test::CopyPicture;
using test::Picture;

std::vector<std::uint8_t> Ftyp(std::string major, std::vector<std::string> compatible) {
    const std::uint32_t size = 16 + 4 * static_cast<std::uint32_t>(compatible.size());
    std::vector<std::uint8_t> box = {
        0,   0,  static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size), 'f', 't',
        'y', 'p'};
    box.insert(box.end(), major.begin(), major.end());
    box.insert(box.end(), 4, 0);
    for (const std::string& brand : compatible) {
        box.insert(box.end(), brand.begin(), brand.end());
    }
    return box;
}

struct BrandCase {
    const char* name;
    std::vector<std::uint8_t> head;
    HeifBrand brand;
};

class HeifBrands : public testing::TestWithParam<BrandCase> {};

TEST_P(HeifBrands, ClassifyTheFtypBox) {
    EXPECT_EQ(ClassifyHeifBrands(GetParam().head), GetParam().brand);
}

std::vector<std::uint8_t> WithBoxSize(std::vector<std::uint8_t> box, std::uint8_t size) {
    box[3] = size;
    return box;
}

INSTANTIATE_TEST_SUITE_P(
    Heads, HeifBrands,
    testing::Values(
        BrandCase{"HeicMajor", Ftyp("heic", {"mif1", "heic"}), HeifBrand::Heif},
        BrandCase{"TenBitCanon", Ftyp("heix", {"mif1", "heix", "miaf"}), HeifBrand::Heif},
        BrandCase{"GenericImage", Ftyp("mif1", {"miaf"}), HeifBrand::Heif},
        BrandCase{"AvifMajor", Ftyp("avif", {"mif1", "miaf"}), HeifBrand::Avif},
        BrandCase{"AvifCompatible", Ftyp("mif1", {"miaf", "avif"}), HeifBrand::Avif},
        BrandCase{"AvifSequence", Ftyp("avis", {"msf1"}), HeifBrand::Avif},
        BrandCase{"CanonCr3", Ftyp("crx ", {"crx ", "isom"}), HeifBrand::None},
        BrandCase{"QuickTime", Ftyp("qt  ", {"qt  "}), HeifBrand::None},
        // The minor version is not a brand, and brands past the box's end do not count.
        BrandCase{"MinorVersion",
                  [] {
                      auto box = Ftyp("isom", {});
                      std::memcpy(box.data() + 12, "heic", 4);
                      return box;
                  }(),
                  HeifBrand::None},
        BrandCase{"PastTheBox", WithBoxSize(Ftyp("isom", {"isom", "heic"}), 20), HeifBrand::None},
        BrandCase{"BoxTooSmall", WithBoxSize(Ftyp("heic", {}), 8), HeifBrand::None},
        BrandCase{"Cut", {0, 0, 0, 24, 'f', 't', 'y', 'p', 'h', 'e'}, HeifBrand::None},
        BrandCase{"NotFtyp",
                  {0, 0, 0, 24, 'm', 'o', 'o', 'v', 'h', 'e', 'i', 'c', 0, 0, 0, 0},
                  HeifBrand::None}),
    [](const testing::TestParamInfo<BrandCase>& info) { return std::string(info.param.name); });

// --- fixtures encoded with libheif -----------------------------------------------------

struct HeifSource {
    heif_compression_format compression = heif_compression_HEVC;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool alpha = false;
    int bits = 8;
    std::vector<std::uint8_t> pixels;  // interleaved; little-endian 16-bit words when deep
    std::vector<std::uint8_t> exif;    // a TIFF structure
    std::string xmp;
    std::vector<std::uint8_t> icc;
};

heif_error WriteToVector(heif_context*, const void* data, size_t size, void* target) {
    auto* out = static_cast<std::vector<std::uint8_t>*>(target);
    out->insert(out->end(), static_cast<const std::uint8_t*>(data),
                static_cast<const std::uint8_t*>(data) + size);
    return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

// Empty when this machine's libheif has no encoder for the compression.
std::vector<std::uint8_t> EncodeHeif(const HeifSource& source) {
    std::unique_ptr<heif_context, void (*)(heif_context*)> context(heif_context_alloc(),
                                                                   heif_context_free);
    heif_encoder* rawEncoder = nullptr;
    if (heif_context_get_encoder_for_format(context.get(), source.compression, &rawEncoder).code !=
        heif_error_Ok) {
        return {};
    }
    std::unique_ptr<heif_encoder, void (*)(heif_encoder*)> encoder(rawEncoder,
                                                                   heif_encoder_release);
    heif_encoder_set_lossy_quality(encoder.get(), 95);
    const heif_chroma chroma = source.bits > 8 ? (source.alpha ? heif_chroma_interleaved_RRGGBBAA_LE
                                                               : heif_chroma_interleaved_RRGGBB_LE)
                                               : (source.alpha ? heif_chroma_interleaved_RGBA
                                                               : heif_chroma_interleaved_RGB);
    heif_image* rawImage = nullptr;
    EXPECT_EQ(heif_image_create(static_cast<int>(source.width), static_cast<int>(source.height),
                                heif_colorspace_RGB, chroma, &rawImage)
                  .code,
              heif_error_Ok);
    std::unique_ptr<heif_image, void (*)(const heif_image*)> image(rawImage, heif_image_release);
    EXPECT_EQ(
        heif_image_add_plane(image.get(), heif_channel_interleaved, static_cast<int>(source.width),
                             static_cast<int>(source.height), source.bits)
            .code,
        heif_error_Ok);
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image.get(), heif_channel_interleaved, &stride);
    const std::size_t rowBytes = source.width * (source.alpha ? 4 : 3) * (source.bits > 8 ? 2 : 1);
    for (std::uint32_t y = 0; y < source.height; ++y) {
        std::memcpy(plane + y * stride, source.pixels.data() + y * rowBytes, rowBytes);
    }
    if (!source.icc.empty()) {
        heif_image_set_raw_color_profile(image.get(), "prof", source.icc.data(), source.icc.size());
    }
    heif_image_handle* rawHandle = nullptr;
    EXPECT_EQ(
        heif_context_encode_image(context.get(), image.get(), encoder.get(), nullptr, &rawHandle)
            .code,
        heif_error_Ok);
    std::unique_ptr<heif_image_handle, void (*)(const heif_image_handle*)> handle(
        rawHandle, heif_image_handle_release);
    if (!source.exif.empty()) {
        heif_context_add_exif_metadata(context.get(), handle.get(), source.exif.data(),
                                       static_cast<int>(source.exif.size()));
    }
    if (!source.xmp.empty()) {
        heif_context_add_XMP_metadata(context.get(), handle.get(), source.xmp.data(),
                                      static_cast<int>(source.xmp.size()));
    }
    std::vector<std::uint8_t> out;
    heif_writer writer{1, WriteToVector};
    EXPECT_EQ(heif_context_write(context.get(), &writer, &out).code, heif_error_Ok);
    return out;
}

struct Rgb {
    std::uint16_t r, g, b;
};

// Four flat quadrants (red, green, blue, white at 8 bits; the same at full scale for
// deeper sources), so that lossy coding keeps the colour at each quadrant's centre; alpha
// runs along x.
HeifSource Quadrants(heif_compression_format compression, bool alpha, int bits) {
    HeifSource source{compression, 64, 64, alpha, bits};
    const std::uint16_t top = static_cast<std::uint16_t>((1u << bits) - 1);
    const Rgb colours[4] = {{top, 0, 0}, {0, top, 0}, {0, 0, top}, {top, top, top}};
    for (std::uint32_t y = 0; y < source.height; ++y) {
        for (std::uint32_t x = 0; x < source.width; ++x) {
            const Rgb& colour = colours[(y >= 32) * 2 + (x >= 32)];
            std::vector<std::uint16_t> samples = {colour.r, colour.g, colour.b};
            if (alpha) {
                samples.push_back(static_cast<std::uint16_t>(x * top / 63));
            }
            for (const std::uint16_t sample : samples) {
                source.pixels.push_back(static_cast<std::uint8_t>(sample));
                if (bits > 8) {
                    source.pixels.push_back(static_cast<std::uint8_t>(sample >> 8));
                }
            }
        }
    }
    return source;
}

Result DecodeBytes(const std::vector<std::uint8_t>& bytes, std::unique_ptr<Decoder>& decoder,
                   std::unique_ptr<BitmapFrame>& frame) {
    Result result =
        ComponentList::Instance().CreateDecoderByContent(FileBytes::FromMemory(bytes), decoder);
    if (result.Succeeded()) {
        result = decoder->GetFrame(0, frame);
    }
    return result;
}

struct EncodedCase {
    const char* name;
    heif_compression_format compression;
    bool alpha;
    int bits;
    PixelFormat format;
};

class HeifEncoded : public testing::TestWithParam<EncodedCase> {};

TEST_P(HeifEncoded, DecodesUprightColoursAtFullScale) {
    const EncodedCase& param = GetParam();
    const std::vector<std::uint8_t> bytes =
        EncodeHeif(Quadrants(param.compression, param.alpha, param.bits));
    if (bytes.empty()) {
        GTEST_SKIP() << "libheif has no encoder for this compression here";
    }
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(DecodeBytes(bytes, decoder, frame), S_OK);
    EXPECT_EQ(decoder->Container(),
              param.compression == heif_compression_AV1 ? container::Avif : container::Heif);
    EXPECT_EQ(decoder->FrameCount(), 1u);
    EXPECT_EQ(frame->Format(), param.format);
    EXPECT_EQ(frame->Size(), (PixelSize{64, 64}));
    auto* upright = dynamic_cast<codecs::UprightFrame*>(frame.get());
    ASSERT_NE(upright, nullptr);
    EXPECT_TRUE(upright->TransformsApplied());
    Picture picture;
    ASSERT_EQ(CopyPicture(*frame, picture), S_OK);
    const bool deep = Info(param.format).bitsPerChannel == 16;
    const int top = deep ? 65535 : 255;
    const int tolerance = deep ? 12 * 257 : 12;
    const Rgb expected[4] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        const std::uint32_t x = quadrant % 2 ? 48 : 16;
        const std::uint32_t y = quadrant / 2 ? 48 : 16;
        const std::uint16_t want[3] = {expected[quadrant].r, expected[quadrant].g,
                                       expected[quadrant].b};
        for (std::uint32_t channel = 0; channel < 3; ++channel) {
            const int got = deep ? picture.Sample16(x, y, channel) : picture.At(x, y)[channel];
            EXPECT_NEAR(got, want[channel] * top, tolerance)
                << "quadrant " << quadrant << " channel " << channel;
        }
    }
    if (param.alpha) {
        const int left = deep ? picture.Sample16(0, 16, 3) : picture.At(0, 16)[3];
        const int right = deep ? picture.Sample16(63, 16, 3) : picture.At(63, 16)[3];
        EXPECT_NEAR(left, 0, tolerance);
        EXPECT_NEAR(right, top, tolerance);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Fixtures, HeifEncoded,
    testing::Values(
        EncodedCase{"HevcRgb", heif_compression_HEVC, false, 8, PixelFormat::Rgb24},
        EncodedCase{"HevcRgba", heif_compression_HEVC, true, 8, PixelFormat::Rgba32},
        EncodedCase{"HevcTenBit", heif_compression_HEVC, false, 10, PixelFormat::Rgb48},
        EncodedCase{"HevcTenBitAlpha", heif_compression_HEVC, true, 10, PixelFormat::Rgba64},
        EncodedCase{"Av1Rgb", heif_compression_AV1, false, 8, PixelFormat::Rgb24},
        // Debian's libaom fails to encode deep pictures through libheif, so AVIF is 8-bit.
        EncodedCase{"Av1Rgba", heif_compression_AV1, true, 8, PixelFormat::Rgba32}),
    [](const testing::TestParamInfo<EncodedCase>& info) { return std::string(info.param.name); });

TEST(HeifDecoder, ReadsExifXmpAndIcc) {
    HeifSource source = Quadrants(heif_compression_HEVC, false, 8);
    source.exif = {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    source.xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF/></x:xmpmeta>";
    source.icc.assign(200, 0);
    std::memcpy(source.icc.data() + 36, "acsp", 4);
    const std::vector<std::uint8_t> bytes = EncodeHeif(source);
    if (bytes.empty()) {
        GTEST_SKIP() << "no HEVC encoder";
    }
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(DecodeBytes(bytes, decoder, frame), S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(std::vector<std::uint8_t>(blocks.exif.begin(), blocks.exif.end()), source.exif);
    EXPECT_EQ(std::string(blocks.xmp.begin(), blocks.xmp.end()), source.xmp);
    EXPECT_EQ(std::vector<std::uint8_t>(blocks.icc.begin(), blocks.icc.end()), source.icc);
    EXPECT_EQ(frame->File().Size(), bytes.size());
}

TEST(HeifDecoder, CutShortFilesFailCleanly) {
    for (const heif_compression_format compression :
         {heif_compression_HEVC, heif_compression_AV1}) {
        const std::vector<std::uint8_t> bytes = EncodeHeif(Quadrants(compression, true, 8));
        if (bytes.empty()) {
            continue;
        }
        const DecoderInfo* info = ComponentList::Instance().Find(
            compression == heif_compression_AV1 ? container::Avif : container::Heif,
            vendor::Orvanta);
        ASSERT_NE(info, nullptr);
        ASSERT_TRUE(test::DecodeEverything(*info, bytes));
        // The coded image comes last in libheif's files: no strict prefix holds all of it.
        EXPECT_EQ(test::DecodeTruncations(*info, bytes, bytes.size() / 97 + 1), 0);
    }
}

TEST(HeifDecoder, RefusesWhatIsNotHeif) {
    const DecoderInfo* info = ComponentList::Instance().Find(container::Heif, vendor::Orvanta);
    ASSERT_NE(info, nullptr);
    std::unique_ptr<Decoder> decoder;
    EXPECT_TRUE(info->create(FileBytes::FromMemory({}), decoder).Failed());
    EXPECT_EQ(decoder, nullptr);
    EXPECT_TRUE(info->create(FileBytes::FromMemory(Ftyp("heic", {"mif1"})), decoder).Failed());
    EXPECT_TRUE(info->create(nullptr, decoder).Failed());
}

// --- real files --------------------------------------------------------------------------

struct RealCase {
    const char* path;
    Guid container;
    PixelFormat format;
    PixelSize size;
    bool xmp;
    bool icc;
};

class HeifRealFile : public testing::TestWithParam<RealCase> {};

TEST_P(HeifRealFile, DecodesThePrimaryImage) {
    const RealCase& param = GetParam();
    const std::filesystem::path folder = orvanta::test::TestDataFolder();
    if (folder.empty()) {
        GTEST_SKIP() << "no test data";
    }
    const auto bytes = test::ReadFileBytes(folder / "formats" / param.path);
    ASSERT_FALSE(bytes.empty());
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(DecodeBytes(bytes, decoder, frame), S_OK);
    EXPECT_EQ(decoder->Container(), param.container);
    EXPECT_EQ(frame->Format(), param.format);
    EXPECT_EQ(frame->Size(), param.size);
    const FrameMetadataBlocks blocks = frame->Metadata();
    ASSERT_GE(blocks.exif.size(), 8u);
    EXPECT_TRUE(blocks.exif[0] == 'I' || blocks.exif[0] == 'M');
    EXPECT_EQ(!blocks.xmp.empty(), param.xmp);
    EXPECT_EQ(!blocks.icc.empty(), param.icc);
    Picture picture;
    ASSERT_EQ(CopyPicture(*frame, picture), S_OK);
    if (Info(param.format).bitsPerChannel == 16) {
        // 10-bit samples are widened to the 16-bit range: every sample is one of the 1024
        // widened levels, and this dark (PQ-coded) picture still has some above 1023.
        std::uint16_t brightest = 0;
        int offLattice = 0;
        for (std::uint32_t y = 0; y < param.size.height; y += 7) {
            for (std::uint32_t x = 0; x < param.size.width; x += 7) {
                const std::uint32_t sample = picture.Sample16(x, y, 1);
                const std::uint32_t level = (sample * 1023 + 32767) / 65535;
                offLattice += (level * 65535 + 511) / 1023 != sample;
                brightest = std::max<std::uint16_t>(brightest, sample);
            }
        }
        EXPECT_GT(brightest, 1023);
        EXPECT_EQ(offLattice, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, HeifRealFile,
    testing::Values(RealCase{"heif/Apple_iPhoneXR_IMG_3578.heic",
                             container::Heif,
                             PixelFormat::Rgb24,
                             {4032, 3024},
                             false,
                             true},
                    RealCase{"heif/Canon_EOS_R5.HIF",
                             container::Heif,
                             PixelFormat::Rgb48,
                             {2400, 1600},
                             true,
                             false},
                    RealCase{"avif/Pentax_K-3II_Lightroom_sunrise.avif",
                             container::Avif,
                             PixelFormat::Rgb24,
                             {1024, 640},
                             true,
                             true},
                    // Stored landscape with a rotation item: it arrives portrait.
                    RealCase{"avif/avif-orientation-6.avif",
                             container::Avif,
                             PixelFormat::Rgb24,
                             {3024, 4032},
                             false,
                             true}));

}  // namespace
}  // namespace orvanta::imaging

#endif  // ORVANTA_HAVE_HEIF

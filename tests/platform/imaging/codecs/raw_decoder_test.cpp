#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/codecs/library_codec_test_helpers.h"
#include "platform/imaging/codecs/raw_frame.h"
#include "platform/imaging/component_list.h"
#include "support/temp_folder.h"

#if ORVANTA_HAVE_RAW

namespace orvanta::imaging {
namespace {

using test::CopyPicture;
using test::Picture;

const std::array kRawContainers = {container::Nef, container::Cr2, container::Pef, container::Orf,
                                   container::Arw, container::Dng, container::Rw2, container::Raw};

const DecoderInfo& RawInfo(const Guid& container) {
    const DecoderInfo* info = ComponentList::Instance().Find(container, vendor::Orvanta);
    EXPECT_NE(info, nullptr);
    return *info;
}

// --- content tests ---------------------------------------------------------------------

struct MagicCase {
    const char* name;
    std::string head;
    std::optional<Guid> claimedBy;
};

class RawMagic : public testing::TestWithParam<MagicCase> {};

TEST_P(RawMagic, OnlyRawsWithTheirOwnMagicAreClaimed) {
    const std::string& head = GetParam().head;
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(head.data()), head.size());
    std::vector<Guid> claimants;
    for (const Guid& container : kRawContainers) {
        const DecoderInfo& info = RawInfo(container);
        if (info.matches != nullptr && info.matches(bytes)) {
            claimants.push_back(container);
        }
    }
    if (GetParam().claimedBy) {
        EXPECT_EQ(claimants, std::vector<Guid>{*GetParam().claimedBy});
    } else {
        EXPECT_TRUE(claimants.empty());
    }
}

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Heads, RawMagic,
    testing::Values(MagicCase{"Crw", "II\x1a\0\0\0HEAPCCDR\x01\x00"s, container::Cr2},
                    MagicCase{"OrfIntel", "IIRO\x08\0\0\0"s, container::Orf},
                    MagicCase{"OrfSecond", "IIRS\x08\0\0\0"s, container::Orf},
                    MagicCase{"OrfMotorola", "MMOR\0\0\0\x08"s, container::Orf},
                    MagicCase{"Rw2", "IIU\0\x08\0\0\0"s, container::Rw2},
                    MagicCase{"Raf", "FUJIFILMCCD-RAW 0201FF383501"s, container::Raw},
                    MagicCase{"Mrw", "\0MRM\0\0\0\x10"s, container::Raw},
                    MagicCase{"Cr3",
                              "\0\0\0\x18"
                              "ftypcrx \0\0\0\x01"
                              "crx isom"s,
                              container::Raw},
                    // TIFF-based raws are the TIFF decoder's to claim by content.
                    MagicCase{"TiffIntel", "II*\0\x08\0\0\0"s, std::nullopt},
                    MagicCase{"TiffMotorola", "MM\0*\0\0\0\x08"s, std::nullopt},
                    MagicCase{"Heic",
                              "\0\0\0\x18"
                              "ftypheic\0\0\0\0"
                              "mif1heic"s,
                              std::nullopt},
                    MagicCase{"CrwCut", "II\x1a\0\0\0HEAP"s, std::nullopt},
                    MagicCase{"Empty", ""s, std::nullopt}),
    [](const testing::TestParamInfo<MagicCase>& info) { return std::string(info.param.name); });

TEST(RawDecoder, NoExtensionBelongsToTwoRawComponents) {
    std::set<std::string> seen;
    for (const Guid& container : kRawContainers) {
        std::stringstream list(RawInfo(container).extensions);
        for (std::string extension; std::getline(list, extension, ',');) {
            EXPECT_EQ(extension.front(), '.');
            EXPECT_TRUE(seen.insert(extension).second) << extension;
        }
    }
    EXPECT_TRUE(seen.contains(".cr3"));
    EXPECT_FALSE(seen.contains(".x3f")) << "Debian's LibRaw reads no Sigma files";
}

// --- real files ------------------------------------------------------------------------

// The JPEG decoder is another component. Where it is missing, this stand-in takes its place
// so that the handing over of embedded JPEG previews is still exercised: it reads the size
// from the JPEG's frame header and serves mid-gray.
class StandInJpegFrame final : public BitmapFrame {
public:
    StandInJpegFrame(std::shared_ptr<const FileBytes> bytes, PixelSize size)
        : BitmapFrame(size, PixelFormat::Gray8, Access::Random), bytes_(std::move(bytes)) {}
    const FileBytes& File() const override { return *bytes_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        for (std::int32_t row = 0; row < rect.height; ++row) {
            std::memset(out.data() + row * stride, 0x80, static_cast<std::size_t>(rect.width));
        }
        return S_OK;
    }
    std::shared_ptr<const FileBytes> bytes_;
};

class StandInJpegDecoder final : public Decoder {
public:
    StandInJpegDecoder(std::shared_ptr<const FileBytes> bytes, PixelSize size)
        : bytes_(std::move(bytes)), size_(size) {}
    Guid Container() const override { return container::Jpeg; }
    std::uint32_t FrameCount() const override { return 1; }
    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        if (index != 0) {
            return E_INVALIDARG;
        }
        frame = std::make_unique<StandInJpegFrame>(bytes_, size_);
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> bytes_;
    PixelSize size_;
};

Result CreateStandInJpeg(std::shared_ptr<const FileBytes> bytes,
                         std::unique_ptr<Decoder>& decoder) {
    const auto data = bytes->Bytes();
    if (data.size() < 4 || data[0] != 0xFF || data[1] != 0xD8) {
        return E_FAIL;
    }
    for (std::size_t at = 2; at + 9 <= data.size() && data[at] == 0xFF;) {
        const std::uint8_t marker = data[at + 1];
        if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
            marker != 0xCC) {
            const PixelSize size{static_cast<std::uint32_t>(data[at + 7] << 8 | data[at + 8]),
                                 static_cast<std::uint32_t>(data[at + 5] << 8 | data[at + 6])};
            decoder = std::make_unique<StandInJpegDecoder>(std::move(bytes), size);
            return S_OK;
        }
        at += 2 + (data[at + 2] << 8 | data[at + 3]);
    }
    return E_FAIL;
}

void EnsureJpegComponent() {
    if (ComponentList::Instance().Find(container::Jpeg, vendor::Microsoft) == nullptr) {
        ComponentList::Instance().Register({container::Jpeg, vendor::Microsoft, "Stand-in JPEG",
                                            ".jpg", nullptr, CreateStandInJpeg});
    }
}

enum class PreviewKind { None, Jpeg, Bitmap, Unreadable };

struct RealCase {
    const char* file;
    Guid container;
    bool opens;
    bool develops;
    PreviewKind preview;
    PixelSize previewSize;
    // LibRaw notices the stripped raw data of some samples only in some builds (it reads
    // past what the file holds differently with and without the sanitizers).
    bool developsInEveryBuild = true;
};

std::filesystem::path RawFolder() {
    const std::filesystem::path folder = orvanta::test::TestDataFolder();
    return folder.empty() ? folder : folder / "raw";
}

class RawRealFile : public testing::TestWithParam<RealCase> {};

TEST_P(RawRealFile, OpensOrFailsCleanlyAndServesItsPreview) {
    const RealCase& param = GetParam();
    if (RawFolder().empty()) {
        GTEST_SKIP() << "no test data";
    }
    const auto bytes = test::ReadFileBytes(RawFolder() / param.file);
    ASSERT_FALSE(bytes.empty());
    std::unique_ptr<Decoder> decoder;
    const Result created = RawInfo(param.container).create(FileBytes::FromMemory(bytes), decoder);
    ASSERT_EQ(created.Succeeded(), param.opens) << created.Hex();
    if (!param.opens) {
        EXPECT_EQ(decoder, nullptr);
        return;
    }
    EXPECT_EQ(decoder->Container(), param.container);
    ASSERT_EQ(decoder->FrameCount(), 1u);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    EXPECT_EQ(frame->GetAccess(), Access::Random);
    // A TIFF-based raw is its own EXIF block; a CIFF one has none to give.
    const bool tiff = bytes[0] == bytes[1] && (bytes[2] == 42 || bytes[3] == 42);
    EXPECT_EQ(frame->Metadata().exif.data(), tiff ? frame->File().Bytes().data() : nullptr);
    Picture picture;
    const bool developed = CopyPicture(*frame, picture).Succeeded();
    if (!param.developsInEveryBuild) {
        // Whatever happened the first time happens again: a failure is not retried.
        EXPECT_EQ(CopyPicture(*frame, picture).Succeeded(), developed);
    } else {
        EXPECT_EQ(developed, param.develops);
        // A failed development stays failed without trying again.
        EXPECT_EQ(CopyPicture(*frame, picture).Succeeded(), param.develops);
    }

    EnsureJpegComponent();
    std::unique_ptr<BitmapFrame> preview;
    const Result previewed = decoder->GetPreview(preview);
    switch (param.preview) {
        case PreviewKind::None:
            EXPECT_EQ(previewed, S_FALSE);
            return;
        case PreviewKind::Unreadable:
            EXPECT_TRUE(previewed.Failed());
            return;
        case PreviewKind::Bitmap:
            ASSERT_EQ(previewed, S_OK);
            break;
        case PreviewKind::Jpeg:
            ASSERT_EQ(previewed, S_OK);
            break;
    }
    EXPECT_EQ(preview->Size(), param.previewSize);
    ASSERT_NE(dynamic_cast<codecs::RawFrame*>(preview.get()), nullptr);
    if (param.preview == PreviewKind::Jpeg) {
        // The preview decodes from the embedded JPEG's own bytes, not from the raw file.
        const auto jpeg = preview->File().Bytes();
        ASSERT_GE(jpeg.size(), 2u);
        EXPECT_EQ(jpeg[0], 0xFF);
        EXPECT_EQ(jpeg[1], 0xD8);
        EXPECT_LT(jpeg.size(), bytes.size());
    }
    ASSERT_EQ(CopyPicture(*preview, picture), S_OK);
    EXPECT_NE(std::count(picture.pixels.begin(), picture.pixels.end(), 0),
              static_cast<std::ptrdiff_t>(picture.pixels.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Files, RawRealFile,
    testing::Values(
        RealCase{"Canon_EOS300D_exiftool.crw", container::Cr2, true, false,
                 PreviewKind::Unreadable},
        RealCase{"Canon_EOS350D_exiftool.cr2", container::Cr2, false},
        // Its lossy tiles were stripped to a stub, and LibRaw's JPEG path reports no error:
        // it develops, to nothing useful, but cleanly.
        RealCase{"Canon_EOS350D_exiftool.dng", container::Dng, true, true, PreviewKind::Unreadable},
        RealCase{"Canon_EOS550D_MagicLantern_colorchart.dng", container::Dng, true, true,
                 PreviewKind::None},
        RealCase{"Canon_PowerShot_S90_head.cr2", container::Cr2, false},
        RealCase{"Nikon_D1_head.nef", container::Nef, true, false, PreviewKind::Bitmap, {160, 120}},
        RealCase{"Nikon_D70_exiftool.nef", container::Nef, true, false, PreviewKind::Unreadable},
        // Its raw data was stripped: when LibRaw reports running out of data the
        // development fails instead of showing whatever the buffers held.
        RealCase{"Panasonic_DMC-LX3_exiftool.rw2",
                 container::Rw2,
                 true,
                 false,
                 PreviewKind::Jpeg,
                 {8, 8},
                 false},
        RealCase{"Pentax_K-3II_jolstravatnet_head.pef",
                 container::Pef,
                 true,
                 false,
                 PreviewKind::Jpeg,
                 {160, 120}},
        RealCase{
            "Sony_DSLR-A330_head.arw", container::Arw, true, false, PreviewKind::Jpeg, {160, 120}}),
    [](const testing::TestParamInfo<RealCase>& info) {
        std::string name = info.param.file;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
        return name;
    });

// --- development -----------------------------------------------------------------------

struct ChannelMeans {
    double r = 0, g = 0, b = 0;
};

ChannelMeans Means(const Picture& picture) {
    const bool deep = Info(picture.format).bitsPerChannel == 16;
    ChannelMeans sum;
    for (std::uint32_t y = 0; y < picture.size.height; ++y) {
        for (std::uint32_t x = 0; x < picture.size.width; ++x) {
            const auto sample = [&](std::uint32_t c) -> double {
                return deep ? picture.Sample16(x, y, c) / 257.0 : picture.At(x, y)[c];
            };
            sum.r += sample(0);
            sum.g += sample(1);
            sum.b += sample(2);
        }
    }
    const double count = static_cast<double>(picture.size.width) * picture.size.height;
    return {sum.r / count, sum.g / count, sum.b / count};
}

class RawDevelopment : public testing::Test {
protected:
    void SetUp() override {
        if (RawFolder().empty()) {
            GTEST_SKIP() << "no test data";
        }
        const auto bytes =
            test::ReadFileBytes(RawFolder() / "Canon_EOS550D_MagicLantern_colorchart.dng");
        ASSERT_EQ(RawInfo(container::Dng).create(FileBytes::FromMemory(bytes), decoder_), S_OK);
        ASSERT_EQ(decoder_->GetFrame(0, frame_), S_OK);
    }

    std::unique_ptr<Decoder> decoder_;
    std::unique_ptr<BitmapFrame> frame_;
};

TEST_F(RawDevelopment, DevelopsTheFullPictureInSensorOrientation) {
    EXPECT_EQ(frame_->Size(), (PixelSize{1734, 1156}));
    EXPECT_EQ(frame_->Format(), PixelFormat::Rgb24);
    auto* raw = dynamic_cast<codecs::RawFrame*>(frame_.get());
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(raw->RawFlip(), 0);
    Picture picture;
    ASSERT_EQ(CopyPicture(*frame_, picture), S_OK);
    // With the camera's white balance no channel dominates the chart the way green does
    // in an unbalanced development.
    const ChannelMeans means = Means(picture);
    EXPECT_GT(means.g, 10.0);
    EXPECT_LT(means.g, 245.0);
    EXPECT_NEAR(means.r / means.g, 1.0, 0.35);
    EXPECT_NEAR(means.b / means.g, 1.0, 0.35);
}

TEST_F(RawDevelopment, HalfSizeAndDeepVariantsMatchTheFullDevelopment) {
    Picture full;
    ASSERT_EQ(CopyPicture(*frame_, full), S_OK);
    const ChannelMeans fullMeans = Means(full);

    std::unique_ptr<BitmapSource> half = frame_->CreateVariant({800, 500}, PixelFormat::Unknown);
    ASSERT_NE(half, nullptr);
    EXPECT_EQ(half->Size(), (PixelSize{867, 578}));
    EXPECT_EQ(half->Format(), PixelFormat::Rgb24);
    Picture halfPicture;
    ASSERT_EQ(CopyPicture(*half, halfPicture), S_OK);
    const ChannelMeans halfMeans = Means(halfPicture);
    EXPECT_NEAR(halfMeans.g, fullMeans.g, fullMeans.g * 0.05);
    EXPECT_NEAR(halfMeans.r, fullMeans.r, fullMeans.r * 0.05);

    std::unique_ptr<BitmapSource> deep = frame_->CreateVariant({0, 0}, PixelFormat::Rgb48);
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(deep->Size(), frame_->Size());
    EXPECT_EQ(deep->Format(), PixelFormat::Rgb48);
    Picture deepPicture;
    ASSERT_EQ(CopyPicture(*deep, deepPicture), S_OK);
    const ChannelMeans deepMeans = Means(deepPicture);
    EXPECT_NEAR(deepMeans.g, fullMeans.g, 1.0);
    EXPECT_NEAR(deepMeans.b, fullMeans.b, 1.0);
}

TEST_F(RawDevelopment, OffersNoVariantItCannotMakeCheaper) {
    EXPECT_EQ(frame_->CreateVariant({0, 0}, PixelFormat::Unknown), nullptr);
    EXPECT_EQ(frame_->CreateVariant({0, 0}, PixelFormat::Rgb24), nullptr);
    // Half of 1734 is 867: a wider minimum leaves nothing to gain.
    EXPECT_EQ(frame_->CreateVariant({900, 100}, PixelFormat::Unknown), nullptr);
    EXPECT_EQ(frame_->CreateVariant({1734, 1156}, PixelFormat::Bgra32), nullptr);
}

struct CutCase {
    const char* file;
    Guid container;
    std::size_t step;
};

class RawCutShort : public testing::TestWithParam<CutCase> {};

TEST_P(RawCutShort, NoPrefixDecodesAndNoneCrashes) {
    if (RawFolder().empty()) {
        GTEST_SKIP() << "no test data";
    }
    const auto bytes = test::ReadFileBytes(RawFolder() / GetParam().file);
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(test::DecodeTruncations(RawInfo(GetParam().container), bytes, GetParam().step), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Files, RawCutShort,
    testing::Values(CutCase{"Nikon_D70_exiftool.nef", container::Nef, 127},
                    CutCase{"Canon_EOS300D_exiftool.crw", container::Cr2, 61},
                    CutCase{"Panasonic_DMC-LX3_exiftool.rw2", container::Rw2, 127},
                    // A decodable raw cut inside its pixel data must not develop.
                    CutCase{"Canon_EOS550D_MagicLantern_colorchart.dng", container::Dng,
                            3906864 / 5}),
    [](const testing::TestParamInfo<CutCase>& info) {
        return std::string(info.param.file).substr(0, std::string(info.param.file).find('_', 6));
    });

}  // namespace
}  // namespace orvanta::imaging

#endif  // ORVANTA_HAVE_RAW

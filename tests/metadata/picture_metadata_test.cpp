#include "metadata/picture_metadata.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "metadata/metadata_values.h"
#include "metadata/sidecar_marks.h"
#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/metadata_query_reader.h"
#include "settings/settings.h"
#include "support/picture_fixtures.h"

namespace orvanta::metadata {
namespace {

using test::MetadataEdits;

// A decoder and frame over fixture bytes, standing in for a codec's.
class FakeFrame final : public imaging::BitmapFrame {
public:
    FakeFrame(std::shared_ptr<const imaging::FileBytes> bytes, imaging::PixelSize size)
        : BitmapFrame(size, imaging::PixelFormat::Rgb24, imaging::Access::Random),
          bytes_(std::move(bytes)) {}
    const imaging::FileBytes& File() const override { return *bytes_; }

private:
    Result DoCopyPixels(const imaging::PixelRect&, std::size_t, std::span<std::byte>) override {
        return E_NOTIMPL;
    }
    std::shared_ptr<const imaging::FileBytes> bytes_;
};

class FakeDecoder final : public imaging::Decoder {
public:
    FakeDecoder(imaging::Guid container, std::uint32_t frames)
        : container_(container), frames_(frames) {}
    imaging::Guid Container() const override { return container_; }
    std::uint32_t FrameCount() const override { return frames_; }
    Result GetFrame(std::uint32_t, std::unique_ptr<imaging::BitmapFrame>&) override {
        return E_NOTIMPL;
    }

private:
    imaging::Guid container_;
    std::uint32_t frames_;
};

// Marks a sidecar reader stand-in reports: only the label, or nothing.
Result SidecarWithLabel(const std::filesystem::path&, SidecarMarks& marks) {
    marks.label = 4;
    return S_OK;
}
Result NoSidecar(const std::filesystem::path&, SidecarMarks&) {
    return S_FALSE;
}

class ReadMetadata : public testing::Test {
protected:
    void SetUp() override { imaging::InitialiseMetadata(); }
    void TearDown() override {
        SetSidecarMarksReader(nullptr);
        settings::CreateSidecarFiles.ResetToDefault();
        settings::LabellingConvention.ResetToDefault();
    }

    Result Read(const test::Bytes& file, const imaging::Guid& container, PictureMetadata& record,
                std::string_view profile = "", std::uint32_t frames = 1, std::uint16_t index = 0) {
        const auto bytes = imaging::FileBytes::FromMemory(file, "/pictures/IMG_1.jpg");
        FakeFrame frame(bytes, {640, 480});
        FakeDecoder decoder(container, frames);
        return ReadPictureMetadata("/pictures/IMG_1.jpg", &record, &frame, &decoder, index,
                                   profile);
    }
};

TEST_F(ReadMetadata, FillsShootingDataFromExif) {
    const MetadataEdits edits{{{"Exif.Image.Model", "  NIKON D300 "},
                               {"Exif.Image.Orientation", "8"},
                               {"Exif.Photo.DateTimeOriginal", "2009:03:14 15:09:26"},
                               {"Exif.Photo.ExposureTime", "10/5000"},
                               {"Exif.Photo.ExposureBiasValue", "-1/3"},
                               {"Exif.Photo.FNumber", "56/10"},
                               {"Exif.Photo.FocalLength", "1050/10"},
                               {"Exif.Photo.FocalLengthIn35mmFilm", "157"},
                               {"Exif.Photo.ISOSpeedRatings", "200"},
                               {"Exif.Photo.Flash", "16"},
                               {"Exif.Photo.MeteringMode", "5"},
                               {"Exif.Photo.ExposureProgram", "3"},
                               {"Exif.Photo.SubjectDistance", "35/10"},
                               {"Exif.Photo.WhiteBalance", "1"},
                               {"Exif.Photo.LightSource", "4"},
                               {"Exif.Photo.LensModel", "\t"}},
                              {},
                              {{"Xmp.photoshop.Urgency", "3"}},
                              {}};
    PictureMetadata r;
    ASSERT_EQ(
        Read(test::WithMetadata(test::MakeJpeg(8, 8), edits), imaging::container::Jpeg, r, "opRGB"),
        S_OK);
    EXPECT_EQ(r.width, 640u);
    EXPECT_EQ(r.height, 480u);
    // Every field but the histogram's and the lens model, which is only white space.
    EXPECT_EQ(r.validFields, 0x37FFFu);
    EXPECT_EQ(r.dateTaken, imaging::FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0}));
    EXPECT_DOUBLE_EQ(r.exposureTime, 0.002);
    EXPECT_EQ(r.exposureTimeNumerator, 1);
    EXPECT_EQ(r.exposureTimeDenominator, 500);
    EXPECT_NEAR(r.exposureBias, -1.0 / 3, 1e-9);
    EXPECT_DOUBLE_EQ(r.fNumber, 5.6);
    EXPECT_DOUBLE_EQ(r.focalLength, 105);
    EXPECT_EQ(r.focalLengthIn35mm, 157);
    EXPECT_EQ(r.isoSpeed, 200);
    EXPECT_EQ(r.flash, 16);
    EXPECT_EQ(r.meteringMode, 5);
    EXPECT_EQ(r.orientation, 8);
    EXPECT_EQ(r.programMode, 3);
    EXPECT_DOUBLE_EQ(r.subjectDistance, 3.5);
    EXPECT_EQ(r.whiteBalance, 1);
    EXPECT_EQ(r.lightSource, 4);
    EXPECT_EQ(r.colourProfileName, "Adobe RGB");
    EXPECT_EQ(r.cameraModel, "NIKON D300");
    EXPECT_EQ(r.urgency, 3);
    EXPECT_EQ(r.rating, -1);
    EXPECT_EQ(r.label, -1);
}

// XMP values, which come as text: exposure time as "n/d", APEX fall-backs, dates.
struct XmpCase {
    const char* name;
    MetadataEdits edits;
    std::uint32_t bit;
    double value;  // the double field the bit stands for
    Fraction fraction;
};

class ReadMetadataXmp : public ReadMetadata, public testing::WithParamInterface<XmpCase> {};

TEST_P(ReadMetadataXmp, StoresTheValue) {
    PictureMetadata r;
    ASSERT_EQ(Read(test::WithMetadata(test::MakeJpeg(8, 8), GetParam().edits),
                   imaging::container::Jpeg, r),
              S_OK);
    ASSERT_EQ(r.validFields & GetParam().bit, GetParam().bit);
    const double field = GetParam().bit == ValidField::kExposureTime ? r.exposureTime : r.fNumber;
    EXPECT_NEAR(field, GetParam().value, 0.005);
    if (GetParam().bit == ValidField::kExposureTime) {
        EXPECT_EQ(r.exposureTimeNumerator, GetParam().fraction.numerator);
        EXPECT_EQ(r.exposureTimeDenominator, GetParam().fraction.denominator);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Values, ReadMetadataXmp,
    testing::Values(
        XmpCase{"ReducedTime",
                {{}, {}, {{"Xmp.exif.ExposureTime", "10/1250"}}, {}},
                ValidField::kExposureTime,
                0.008,
                {1, 125}},
        XmpCase{"LongTime",
                {{}, {}, {{"Xmp.exif.ExposureTime", "5/2"}}, {}},
                ValidField::kExposureTime,
                2.5,
                {5, 2}},
        XmpCase{"ShutterSpeed",
                {{}, {}, {{"Xmp.exif.ShutterSpeedValue", "7/1"}}, {}},
                ValidField::kExposureTime,
                1.0 / 128,
                {1, 128}},
        XmpCase{"IfdShutterSpeed",
                {{{"Exif.Photo.ShutterSpeedValue", "7/1"}}, {}, {}, {}},
                ValidField::kExposureTime,
                1.0 / 128,
                {1, 128}},
        XmpCase{"Aperture",
                {{}, {}, {{"Xmp.exif.ApertureValue", "5/1"}}, {}},
                ValidField::kFNumber,
                5.66,
                {}},
        XmpCase{"FNumberBeforeAperture",
                {{{"Exif.Photo.FNumber", "8/1"}, {"Exif.Photo.ApertureValue", "5/1"}}, {}, {}, {}},
                ValidField::kFNumber,
                8,
                {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ReadMetadata, ExifAndXmpDateFormsGiveTheSameTime) {
    PictureMetadata fromExif, fromXmp, fromDigitized;
    ASSERT_EQ(Read(test::WithMetadata(
                       test::MakeJpeg(8, 8),
                       {{{"Exif.Photo.DateTimeOriginal", "2009:03:14 15:09:26"}}, {}, {}, {}}),
                   imaging::container::Jpeg, fromExif),
              S_OK);
    ASSERT_EQ(Read(test::WithMetadata(
                       test::MakeJpeg(8, 8),
                       {{}, {}, {{"Xmp.exif.DateTimeOriginal", "2009-03-14T15:09:26+01:00"}}, {}}),
                   imaging::container::Jpeg, fromXmp),
              S_OK);
    ASSERT_EQ(Read(test::WithMetadata(
                       test::MakeJpeg(8, 8),
                       {{{"Exif.Photo.DateTimeDigitized", "2009:03:14 15:09:26"}}, {}, {}, {}}),
                   imaging::container::Jpeg, fromDigitized),
              S_OK);
    EXPECT_TRUE(fromExif.validFields & ValidField::kDateTaken);
    EXPECT_EQ(fromExif.dateTaken, fromXmp.dateTaken);
    EXPECT_EQ(fromExif.dateTaken, fromDigitized.dateTaken);
}

// A big-endian Nikon note whose only entry is tag 0x0025 with the ISO byte 84.
test::Bytes NikonNoteIso400() {
    test::Bytes note = {'N', 'i', 'k',  'o', 'n', 0, 2, 0x10, 0, 0, 'M', 'M', 0,  42, 0, 0, 0, 8, 0,
                        1,   0,   0x25, 0,   7,   0, 0, 0,    1, 0, 0,   0,   26, 0,  0, 0, 0, 84};
    return note;
}

TEST_F(ReadMetadata, IsoFallsBackToTheNikonMakerNote) {
    PictureMetadata r;
    const MetadataEdits edits{{}, {{"Exif.Photo.MakerNote", NikonNoteIso400()}}, {}, {}};
    ASSERT_EQ(Read(test::WithMetadata(test::MakeJpeg(8, 8), edits), imaging::container::Jpeg, r),
              S_OK);
    EXPECT_TRUE(r.validFields & ValidField::kIsoSpeed);
    EXPECT_EQ(r.isoSpeed, 400);
}

TEST_F(ReadMetadata, TiffXmpIsReadUnderIfdPaths) {
    settings::LabellingConvention.Set(1);
    const MetadataEdits edits{{},
                              {},
                              {{"Xmp.xmp.Label", "Orange"},
                               {"Xmp.photoshop.Urgency", "7"},
                               {"Xmp.xmp.Rating", "3"},
                               {"Xmp.tiff.Orientation", "6"}},
                              {}};
    PictureMetadata r;
    ASSERT_EQ(Read(test::WithMetadata(test::MakeTiff(8, 8), edits), imaging::container::Tiff, r),
              S_OK);
    EXPECT_EQ(r.label, 2);
    EXPECT_EQ(r.urgency, 7);
    EXPECT_EQ(r.rating, 3);
    EXPECT_EQ(r.ratingPercent, 50);
    EXPECT_EQ(r.orientation, 6);
    EXPECT_TRUE(r.validFields & ValidField::kMarks);
}

TEST_F(ReadMetadata, PngGetsOnlySidecarMarks) {
    const auto png = test::MakePng(8, 8);
    SetSidecarMarksReader(SidecarWithLabel);
    PictureMetadata off;
    EXPECT_EQ(Read(png, imaging::container::Png, off), S_FALSE);
    EXPECT_EQ(off.validFields, 0u);
    EXPECT_EQ(off.label, -1);
    EXPECT_EQ(off.width, 640u);

    settings::CreateSidecarFiles.Set(1);
    PictureMetadata on;
    EXPECT_EQ(Read(png, imaging::container::Png, on), S_FALSE);
    EXPECT_EQ(on.validFields, ValidField::kMarks);
    EXPECT_EQ(on.label, 4);
    EXPECT_EQ(on.rating, -1);

    SetSidecarMarksReader(NoSidecar);
    PictureMetadata none;
    EXPECT_EQ(Read(png, imaging::container::Png, none), S_FALSE);
    EXPECT_EQ(none.validFields, 0u);
}

TEST_F(ReadMetadata, SidecarLabelReplacesOnlyTheEmbeddedLabel) {
    settings::CreateSidecarFiles.Set(1);
    SetSidecarMarksReader(SidecarWithLabel);
    const MetadataEdits edits{{}, {}, {{"Xmp.xmp.Rating", "2"}, {"Xmp.xmp.Label", "Red"}}, {}};
    PictureMetadata r;
    ASSERT_EQ(Read(test::WithMetadata(test::MakeJpeg(8, 8), edits), imaging::container::Jpeg, r),
              S_OK);
    EXPECT_EQ(r.rating, 2);
    EXPECT_EQ(r.label, 4);
}

TEST_F(ReadMetadata, RefusesMissingPartsAndAbsentFrames) {
    const auto jpeg = test::MakeJpeg(8, 8);
    PictureMetadata r;
    EXPECT_EQ(ReadPictureMetadata("x.jpg", nullptr, nullptr, nullptr, 0, ""), E_INVALIDARG);
    EXPECT_EQ(Read(jpeg, imaging::container::Jpeg, r, "", 1, 1), S_FALSE);
    EXPECT_EQ(Read(jpeg, imaging::container::Jpeg, r, "", 0, 0), S_FALSE);
    EXPECT_EQ(r.width, 640u);
    EXPECT_EQ(r.validFields, 0u);
    EXPECT_EQ(Read(jpeg, imaging::container::Jpeg, r, "sRGB IEC61966-2.1"), S_OK);
    EXPECT_EQ(r.validFields, ValidField::kColourProfileName);
    EXPECT_EQ(r.colourProfileName, "sRGB IEC61966-2.1");
}

TEST_F(ReadMetadata, DamagedFileGivesAFailureCode) {
    auto jpeg = test::WithMetadata(test::MakeJpeg(8, 8), {{{"Exif.Image.Model", "X"}}, {}, {}, {}});
    jpeg.resize(30);
    PictureMetadata r;
    EXPECT_TRUE(Read(jpeg, imaging::container::Jpeg, r).Failed());
    // Bytes of no known format, whatever container the caller names.
    for (const imaging::Guid& container :
         {imaging::container::Jpeg, imaging::container::Tiff, imaging::container::Wmp,
          imaging::container::Cr2, imaging::container::Nef}) {
        const test::Bytes noise(64, 0xA5);
        EXPECT_TRUE(Read(noise, container, r).Failed()) << container.ToString();
    }
}

// One damaged segment must not cost a picture its shooting data: a JPEG whose ICC
// segment is garbage still gives its EXIF values through the blocks its decoder found.
TEST_F(ReadMetadata, GarbageIccSegmentKeepsTheExifValues) {
    test::Bytes jpeg = test::WithMetadata(
        test::MakeJpeg(64, 48),
        {{{"Exif.Photo.DateTimeOriginal", "2021:06:01 12:30:00"}, {"Exif.Image.Model", "Cam"}},
         {},
         {},
         {}});
    const std::string id = "ICC_PROFILE";
    test::Bytes segment = {0xFF, 0xE2, 0, 0};
    segment.insert(segment.end(), id.begin(), id.end());
    segment.insert(segment.end(), {0, 1, 1});
    segment.insert(segment.end(), 200, 0x11);
    segment[2] = static_cast<std::uint8_t>((segment.size() - 2) >> 8);
    segment[3] = static_cast<std::uint8_t>(segment.size() - 2);
    jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());

    std::unique_ptr<imaging::Decoder> decoder;
    ASSERT_EQ(imaging::codecs::JpegDecoderInfo().create(
                  imaging::FileBytes::FromMemory(jpeg, "/pictures/IMG_2.jpg"), decoder),
              S_OK);
    std::unique_ptr<imaging::BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    PictureMetadata record;
    EXPECT_TRUE(
        ReadPictureMetadata("/pictures/IMG_2.jpg", &record, frame.get(), decoder.get(), 0, "")
            .Succeeded());
    EXPECT_TRUE(record.validFields & ValidField::kDateTaken);
}

}  // namespace
}  // namespace orvanta::metadata

namespace orvanta::metadata {
namespace {

// Decode workers read metadata on several threads at once; XMP packets go through the
// toolkit under its lock. Run under the address sanitizer, a race that corrupts the toolkit
// shows as a crash or a wrong value.
TEST(ReadMetadataThreads, WorkersReadAtOnce) {
    imaging::InitialiseMetadata();
    const auto jpeg = test::WithMetadata(test::MakeJpeg(8, 8),
                                         {{{"Exif.Photo.ISOSpeedRatings", "640"}},
                                          {},
                                          {{"Xmp.xmp.Rating", "5"}, {"Xmp.xmp.Label", "Red"}},
                                          {}});
    const auto bytes = imaging::FileBytes::FromMemory(jpeg, "a.jpg");
    std::atomic<int> good{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < 25; ++i) {
                PictureMetadata r;
                const MetadataFrame frame{bytes.get(), imaging::container::Jpeg, 1, 0, {8, 8}, {}};
                if (ReadPictureMetadata("a.jpg", r, frame, "") == S_OK && r.rating == 5 &&
                    r.label == 1 && r.isoSpeed == 640) {
                    ++good;
                }
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(good.load(), 100);
}

}  // namespace
}  // namespace orvanta::metadata

#include "metadata/date_taken.h"

#include <gtest/gtest.h>

#include "metadata/orientation_transform.h"
#include "platform/imaging/metadata_query_reader.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::metadata {
namespace {

using test::MetadataEdits;

constexpr imaging::FileTime kDefault{42};

class DateTaken : public testing::Test {
protected:
    void SetUp() override { imaging::InitialiseMetadata(); }
    test::TempFolder folder_;
};

const MetadataEdits kDates{{{"Exif.Photo.DateTimeOriginal", "2009:03:14 15:09:26"},
                            {"Exif.GPSInfo.GPSDateStamp", "2009:03:14"},
                            {"Exif.GPSInfo.GPSTimeStamp", "14/1 9/1 30/1"}},
                           {},
                           {},
                           {}};

TEST_F(DateTaken, ReadsTheDateTakenOrTheSatelliteClockFirst) {
    const auto path = folder_ / "a.JPG";
    test::WriteFile(path, test::WithMetadata(test::MakeJpeg(64, 64), kDates));
    EXPECT_EQ(ReadDateTaken(path, kDefault, false),
              imaging::FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0}));
    EXPECT_EQ(ReadDateTaken(path, kDefault, true),
              imaging::FileTimeFromCivil({2009, 3, 14, 14, 9, 30, 0}));
}

TEST_F(DateTaken, FallsBackToTheDateDigitised) {
    const auto path = folder_ / "b.tif";
    test::WriteFile(path,
                    test::WithMetadata(
                        test::MakeTiff(8, 8),
                        {{{"Exif.Photo.DateTimeDigitized", "2001:02:03 04:05:06"}}, {}, {}, {}}));
    EXPECT_EQ(ReadDateTaken(path, kDefault, true),
              imaging::FileTimeFromCivil({2001, 2, 3, 4, 5, 6, 0}));
}

TEST_F(DateTaken, ReadsAJpegWhoseMetadataOutgrowsTheFirstRead) {
    // A comment segment pushes the EXIF block past the first 64 KiB read.
    test::Bytes jpeg = test::WithMetadata(test::MakeJpeg(64, 64), kDates);
    test::Bytes comment = {0xFF, 0xFE, 0xFF, 0xF0};
    comment.resize(2 + 0xFFF0, 'c');
    for (int i = 0; i < 3; ++i) {
        jpeg.insert(jpeg.begin() + 2, comment.begin(), comment.end());
    }
    const auto path = folder_ / "c.jpg";
    test::WriteFile(path, jpeg);
    EXPECT_EQ(ReadDateTaken(path, kDefault, false),
              imaging::FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0}));
}

TEST_F(DateTaken, GivesTheDefaultWhenThereIsNoDate) {
    const auto dated = test::WithMetadata(test::MakeJpeg(64, 64), kDates);
    test::WriteFile(folder_ / "plain.jpg", test::MakeJpeg(8, 8));
    test::WriteFile(folder_ / "d.png", test::MakePng(8, 8));
    test::WriteFile(folder_ / "d.xyz", dated);
    test::WriteFile(folder_ / "empty.jpg", {});
    test::WriteFile(folder_ / "cut.jpg", test::Bytes(dated.begin(), dated.begin() + 60));
    for (const char* name :
         {"plain.jpg", "d.png", "d.xyz", "empty.jpg", "cut.jpg", "missing.jpg"}) {
        EXPECT_EQ(ReadDateTaken(folder_ / name, kDefault, false), kDefault) << name;
    }
}

struct OrientationCase {
    const char* exif;  // EXIF orientation, or nullptr
    const char* xmp;   // XMP tiff:Orientation, or nullptr
    std::uint32_t transform;
};

void PrintTo(const OrientationCase& c, std::ostream* os) {
    *os << "exif " << (c.exif ? c.exif : "-") << " xmp " << (c.xmp ? c.xmp : "-");
}

class OrientationTransform : public testing::TestWithParam<OrientationCase> {};

TEST_P(OrientationTransform, MapsTheEightOrientations) {
    imaging::InitialiseMetadata();
    MetadataEdits edits;
    if (GetParam().exif != nullptr) {
        edits.exif.emplace_back("Exif.Image.Orientation", GetParam().exif);
    }
    if (GetParam().xmp != nullptr) {
        edits.xmp.emplace_back("Xmp.tiff.Orientation", GetParam().xmp);
    }
    for (const bool tiff : {false, true}) {
        const auto file =
            test::WithMetadata(tiff ? test::MakeTiff(8, 8) : test::MakeJpeg(8, 8), edits);
        std::unique_ptr<imaging::MetadataQueryReader> reader;
        ASSERT_EQ(
            imaging::MetadataQueryReader::Create(
                file, tiff ? imaging::container::Tiff : imaging::container::Jpeg, 0, {}, reader),
            S_OK);
        EXPECT_EQ(ReadOrientationTransform(*reader), GetParam().transform)
            << (tiff ? "TIFF" : "JPEG");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Orientations, OrientationTransform,
    testing::Values(OrientationCase{"1", nullptr, 0}, OrientationCase{"2", nullptr, 8},
                    OrientationCase{"3", nullptr, 24}, OrientationCase{"4", nullptr, 16},
                    OrientationCase{"5", nullptr, 9}, OrientationCase{"6", nullptr, 1},
                    OrientationCase{"7", nullptr, 11}, OrientationCase{"8", nullptr, 3},
                    OrientationCase{"9", nullptr, 0}, OrientationCase{nullptr, "6", 1},
                    OrientationCase{nullptr, nullptr, 0}));

}  // namespace
}  // namespace orvanta::metadata

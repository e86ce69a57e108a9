#include "platform/imaging/metadata_query_reader.h"

#include <gtest/gtest.h>

#include "support/picture_fixtures.h"

namespace orvanta::imaging {
namespace {

using test::MetadataEdits;

class QueryReader : public testing::Test {
protected:
    void SetUp() override { InitialiseMetadata(); }

    std::unique_ptr<MetadataQueryReader> Open(const test::Bytes& file, const Guid& container,
                                              const FrameMetadataBlocks& blocks = {}) {
        std::unique_ptr<MetadataQueryReader> reader;
        EXPECT_EQ(MetadataQueryReader::Create(file, container, 0, blocks, reader), S_OK);
        return reader;
    }

    static MetadataValue Query(const MetadataQueryReader& reader, std::string_view name) {
        MetadataValue value;
        const Result result = reader.GetMetadataByName(name, value);
        EXPECT_TRUE(result == S_OK || result == WINCODEC_ERR_PROPERTYNOTFOUND) << name;
        return value;
    }
};

const MetadataEdits kShootingData{
    {{"Exif.Image.Model", "Test Camera  "},
     {"Exif.Image.Orientation", "6"},
     {"Exif.Photo.ExposureTime", "10/1250"},
     {"Exif.Photo.ExposureBiasValue", "-2/3"},
     {"Exif.Photo.DateTimeOriginal", "2009:03:14 15:09:26"},
     {"Exif.Photo.ISOSpeedRatings", "400"},
     {"Exif.GPSInfo.GPSDateStamp", "2009:03:14"},
     {"Exif.GPSInfo.GPSTimeStamp", "14/1 9/1 2650/100"}},
    {{"Exif.Photo.MakerNote", {1, 2, 3, 4}}},
    {{"Xmp.exif.ISOSpeedRatings", "400"}, {"Xmp.xmp.Label", "Yellow"}, {"Xmp.dc.subject", "one"}},
    {{"Iptc.Application2.Keywords", "alpha"}, {"Iptc.Application2.Keywords", "beta"}},
};

TEST_F(QueryReader, AnswersJpegPathsWithTheirTypes) {
    const auto reader =
        Open(test::WithMetadata(test::MakeJpeg(16, 8), kShootingData), container::Jpeg);
    ASSERT_TRUE(reader);
    EXPECT_FALSE(reader->TiffStructured());
    EXPECT_EQ(reader->ReportedSize(), (PixelSize{16, 8}));
    EXPECT_EQ(Query(*reader, "/app1/ifd/exif/{ushort=33434}"),
              MetadataValue(PackedRational::From(10, 1250)));
    EXPECT_EQ(std::get<PackedRational>(Query(*reader, "/app1/ifd/exif/{ushort=37380}")).Numerator(),
              -2);
    EXPECT_EQ(Query(*reader, "/app1/ifd/{ushort=274}"), MetadataValue(std::int64_t{6}));
    EXPECT_EQ(Query(*reader, "/app1/ifd/{ushort=272}"),
              MetadataValue(std::string("Test Camera  ")));
    EXPECT_EQ(Query(*reader, "/app1/ifd/{ushort=34665}/{ushort=36867}"),
              MetadataValue(std::string("2009:03:14 15:09:26")));
    EXPECT_EQ(Query(*reader, "/app1/ifd/exif/{ushort=37500}"),
              MetadataValue(MetadataBlob{1, 2, 3, 4}));
    EXPECT_EQ(Query(*reader, "/xmp/exif:ISOSpeedRatings/"), MetadataValue(std::string("400")));
    EXPECT_EQ(Query(*reader, "/xmp/exif:ISOSpeedRatings/{ulong=0}"),
              MetadataValue(std::string("400")));
    EXPECT_EQ(Query(*reader, "/xmp/exif:ISOSpeedRatings"),
              MetadataValue(std::vector<std::string>{"400"}));
    EXPECT_EQ(Query(*reader, "/xmp/xmp:Label"), MetadataValue(std::string("Yellow")));
    EXPECT_EQ(Query(*reader, "/app13/irb/8bimiptc/iptc/{str=Keywords}"),
              MetadataValue(std::vector<std::string>{"alpha", "beta"}));
    EXPECT_EQ(Query(*reader, "/app13/irb/8bimiptc/iptc/{ushort=25}"),
              MetadataValue(std::vector<std::string>{"alpha", "beta"}));
}

TEST_F(QueryReader, AnswersPhotoPropertiesInTheirTypes) {
    const auto reader =
        Open(test::WithMetadata(test::MakeJpeg(16, 8), kShootingData), container::Jpeg);
    ASSERT_TRUE(reader);
    const auto taken = FileTimeFromCivil({2009, 3, 14, 15, 9, 26, 0});
    EXPECT_EQ(Query(*reader, "System.Photo.DateTaken"), MetadataValue(*taken));
    EXPECT_EQ(Query(*reader, "System.GPS.Date"),
              MetadataValue(*FileTimeFromCivil({2009, 3, 14, 14, 9, 26, 500})));
    EXPECT_EQ(Query(*reader, "System.Photo.ISOSpeed"), MetadataValue(std::int64_t{400}));
    EXPECT_EQ(Query(*reader, "System.Photo.Orientation"), MetadataValue(std::int64_t{6}));
    EXPECT_EQ(Query(*reader, "System.Photo.CameraModel"),
              MetadataValue(std::string("Test Camera  ")));
    EXPECT_EQ(Query(*reader, "System.Photo.MakerNote"), MetadataValue(MetadataBlob{1, 2, 3, 4}));
    EXPECT_EQ(Query(*reader, "System.Photo.Flash"), MetadataValue{});
    EXPECT_EQ(Query(*reader, "System.Photo.NoSuchThing"), MetadataValue{});
}

// Ratings: each of System.Rating (percent) and System.SimpleRating (stars) falls back to the
// other's property, converted as the platform converts them.
struct RatingCase {
    MetadataEdits edits;
    std::int64_t percent;
    std::int64_t stars;
};

void PrintTo(const RatingCase& c, std::ostream* os) {
    *os << c.percent << "% " << c.stars << " stars";
}

class QueryReaderRating : public QueryReader, public testing::WithParamInterface<RatingCase> {};

TEST_P(QueryReaderRating, ConvertsBetweenPercentAndStars) {
    const auto reader =
        Open(test::WithMetadata(test::MakeJpeg(8, 8), GetParam().edits), container::Jpeg);
    ASSERT_TRUE(reader);
    EXPECT_EQ(Query(*reader, "System.Rating"), MetadataValue(GetParam().percent));
    EXPECT_EQ(Query(*reader, "System.SimpleRating"), MetadataValue(GetParam().stars));
}

INSTANTIATE_TEST_SUITE_P(
    Forms, QueryReaderRating,
    testing::Values(
        RatingCase{{{}, {}, {{"Xmp.xmp.Rating", "4"}}, {}}, 75, 4},
        RatingCase{{{}, {}, {{"Xmp.MicrosoftPhoto.Rating", "50"}}, {}}, 50, 3},
        RatingCase{
            {{}, {}, {{"Xmp.MicrosoftPhoto.Rating", "99"}, {"Xmp.xmp.Rating", "2"}}, {}}, 99, 2},
        RatingCase{{{{"Exif.Image.RatingPercent", "1"}}, {}, {}, {}}, 1, 1},
        RatingCase{{{{"Exif.Image.Rating", "5"}}, {}, {}, {}}, 99, 5}));

TEST_F(QueryReader, TiffUsesIfdRootsOnly) {
    const MetadataEdits edits{
        {{"Exif.Photo.FNumber", "28/10"}}, {}, {{"Xmp.xmp.Label", "Red"}}, {}};
    const auto reader = Open(test::WithMetadata(test::MakeTiff(8, 8), edits), container::Tiff);
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->TiffStructured());
    EXPECT_EQ(reader->ReportedSize(), (PixelSize{8, 8}));
    EXPECT_EQ(Query(*reader, "/ifd/xmp/xmp:Label"), MetadataValue(std::string("Red")));
    EXPECT_EQ(Query(*reader, "/ifd/{ushort=700}/xmp:Label"), MetadataValue(std::string("Red")));
    EXPECT_EQ(Query(*reader, "/ifd/exif/{ushort=33437}"),
              MetadataValue(PackedRational::From(28, 10)));
    EXPECT_EQ(Query(*reader, "/xmp/xmp:Label"), MetadataValue{});
    EXPECT_EQ(Query(*reader, "/app1/ifd/exif/{ushort=33437}"), MetadataValue{});
}

// Paths that do not name an item find nothing, without an exception or a crash.
class QueryReaderPath : public QueryReader, public testing::WithParamInterface<const char*> {};

TEST_P(QueryReaderPath, FindsNothing) {
    const auto reader =
        Open(test::WithMetadata(test::MakeJpeg(8, 8), kShootingData), container::Jpeg);
    ASSERT_TRUE(reader);
    MetadataValue value;
    EXPECT_EQ(reader->GetMetadataByName(GetParam(), value), WINCODEC_ERR_PROPERTYNOTFOUND);
}

INSTANTIATE_TEST_SUITE_P(
    Malformed, QueryReaderPath,
    testing::Values("", "/", "xmp/xmp:Label", "/xmp", "/xmp/", "/xmp/Label", "/xmp/:Label",
                    "/xmp/nosuchprefix:Label", "/xmp/xmp:Label/",
                    "/xmp/exif:ISOSpeedRatings/{ulong=1}", "/xmp/exif:ISOSpeedRatings/{ulong=x}",
                    "/ifd/{ushort=274}", "/app1/ifd", "/app1/ifd/exif", "/app1/ifd/{ushort=65536}",
                    "/app1/ifd/{ushort=-1}", "/app1/ifd/{ushort=274}/{ushort=1}",
                    "/app1/ifd/{ulong=274}", "/app1/ifd/{ushort=}",
                    "/app13/irb/8bimiptc/iptc/{str=}", "/app13/irb/8bimiptc/iptc/NoSuchSet",
                    "/app13/irb/8bimiptc/iptc", "System.", "System.Photo."));

TEST_F(QueryReader, ReadsFrameBlocksOfContainersTheLibraryDoesNotParse) {
    // The EXIF block of a JPEG made here, as a HEIF or WebP decoder would hand it over.
    const auto jpeg = test::WithMetadata(test::MakeJpeg(8, 8), kShootingData);
    const std::uint8_t exifHeader[] = {'E', 'x', 'i', 'f', 0, 0};
    const auto start =
        std::search(jpeg.begin(), jpeg.end(), std::begin(exifHeader), std::end(exifHeader));
    ASSERT_NE(start, jpeg.end());
    const std::string xmp =
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" xmlns:xmp="http://ns.adobe.com/xap/1.0/" xmp:Rating="3"/></rdf:RDF></x:xmpmeta>)";
    FrameMetadataBlocks blocks;
    blocks.exif = std::span<const std::uint8_t>(&*(start + 6),
                                                static_cast<std::size_t>(jpeg.end() - start - 6));
    blocks.xmp = std::span(reinterpret_cast<const std::uint8_t*>(xmp.data()), xmp.size());
    const test::Bytes notParsed = {0, 0, 0, 0x1C, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c'};
    const auto reader = Open(notParsed, container::Heif, blocks);
    ASSERT_TRUE(reader);
    EXPECT_EQ(Query(*reader, "/app1/ifd/exif/{ushort=33434}"),
              MetadataValue(PackedRational::From(10, 1250)));
    EXPECT_EQ(Query(*reader, "System.SimpleRating"), MetadataValue(std::int64_t{3}));
}

TEST_F(QueryReader, RefusesDamagedMetadataOfAKnownContainer) {
    auto jpeg = test::WithMetadata(test::MakeJpeg(8, 8), kShootingData);
    std::unique_ptr<MetadataQueryReader> reader;
    // Cut inside the EXIF segment, as a file still being written is.
    jpeg.resize(40);
    const Result cut = MetadataQueryReader::Create(jpeg, container::Jpeg, 0, {}, reader);
    EXPECT_TRUE(cut.Failed()) << cut.Hex();
    const test::Bytes noise(300, 0x5A);
    EXPECT_EQ(MetadataQueryReader::Create(noise, container::Jpeg, 0, {}, reader),
              WINCODEC_ERR_UNKNOWNIMAGEFORMAT);
    EXPECT_FALSE(reader);
}

}  // namespace
}  // namespace orvanta::imaging

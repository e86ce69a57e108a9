// orvanta-cli info as a script sees it: golden JSON of a picture made here, and the exit
// code and message of a file that cannot be read.
#include <gtest/gtest.h>

#include "support/cli_runner.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta {
namespace {

test::CliRun Info(std::vector<std::string> args) {
    args.insert(args.begin(), "info");
    return test::RunCli(args, {{}, true});
}

TEST(InfoCommand, JsonIsGolden) {
    test::TempFolder folder;
    const auto path = folder / "shot.jpg";
    const std::vector<std::uint8_t> nikonNote = {'N', 'i', 'k', 'o', 'n', 0, 2, 0x10, 0, 0, 'M',
                                                 'M', 0,   42,  0,   0,   0, 8, 0,    1, 0, 0x1E,
                                                 0,   3,   0,   0,   0,   1, 0, 2,    0, 0};
    test::WriteFile(path,
                    test::WithMetadata(test::MakeJpeg(24, 16),
                                       {{{"Exif.Image.Model", "Camera "},
                                         {"Exif.Photo.DateTimeOriginal", "2009:03:14 15:09:26"},
                                         {"Exif.Photo.ExposureTime", "10/1250"},
                                         {"Exif.Photo.FNumber", "28/10"},
                                         {"Exif.Photo.ISOSpeedRatings", "800"}},
                                        {{"Exif.Photo.MakerNote", nikonNote}},
                                        {{"Xmp.xmp.Rating", "4"}},
                                        {}}));
    const auto run = Info({"--json", "--makernote", path.string()});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(
        run.out,
        R"([{"file":")" + path.string() +
            R"(","result":"0x00000000","validFields":196757,)"
            R"("fields":{"dateTaken":"2009-03-14T15:09:26","exposureTime":0.008,)"
            R"("exposureTimeNumerator":1,"exposureTimeDenominator":125,"fNumber":2.8,)"
            R"("isoSpeed":800,"width":24,"height":16,"ratingPercent":75,"rating":4,"label":-1,)"
            R"("urgency":-1,"cameraModel":"Camera"},"dateTakenForSort":"2009-03-14T15:09:26",)"
            R"("makerNote":{"nikonIso":0,"nikonColourSpace":2,"canonColourSpace":-1,)"
            R"("olympusColourSpace":-1}}])"
            "\n");
}

TEST(InfoCommand, UnreadableFileFailsWithItsCode) {
    test::TempFolder folder;
    const auto run = Info({"--json", (folder / "missing.jpg").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.out.find("0x80070002 file not found"), std::string::npos) << run.out;
    EXPECT_EQ(Info({"--frame", "x", "a.jpg"}).exitCode, 2);
    EXPECT_EQ(Info({}).exitCode, 2);
}

}  // namespace
}  // namespace orvanta

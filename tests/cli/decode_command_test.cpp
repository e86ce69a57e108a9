// orvanta-cli decode as a script sees it: golden JSON of pictures made here through the
// decode pipeline, the colour and histogram options, and the written pixels.
#include <cstring>
#include <regex>

#include <gtest/gtest.h>

#include "decode/colour_profiles.h"
#include "decode/decode_entry.h"
#include "metadata/picture_metadata.h"
#include "support/cli_runner.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta {
namespace {

test::CliRun Decode(std::vector<std::string> args) {
    args.insert(args.begin(), "decode");
    return test::RunCli(args, {{}, true});
}

// The run's time varies; everything else is golden.
std::string WithoutTime(const std::string& json) {
    return std::regex_replace(json, std::regex(R"(,"milliseconds":[0-9.]+)"), "");
}

class DecodeCommand : public testing::Test {
protected:
    void SetUp() override {
        // 1200 x 900 stored, to be shown turned a quarter clockwise.
        test::WriteFile(turned_, test::WithMetadata(test::MakeJpeg(1200, 900),
                                                    {.exif = {{"Exif.Image.Orientation", "6"}}}));
    }
    test::TempFolder folder_;
    const std::filesystem::path turned_ = folder_ / "turned.jpg";
};

TEST_F(DecodeCommand, JsonIsGolden) {
    // 2 MB at four bytes a pixel: 848 x 636 is just over, 832 x 624 fits.
    const auto run = Decode({turned_.string(), "--json", "--downscale", "0x2"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(WithoutTime(run.out),
              R"({"file":")" + turned_.string() +
                  R"(","container":"{19e4a5aa-5662-4fc5-a0c0-1758028e1057}","frameCount":1,)"
                  R"("frame":0,"preview":false,"width":1200,"height":900,)"
                  R"("sourcePixelFormat":"24bppBGR","sourceBitsPerPixel":24,)"
                  R"("outputPixelFormat":"32bppPBGRA","truncated":false,"decodedWidth":624,)"
                  R"("decodedHeight":832,"rotated":true,"downscaled":true,)"
                  R"("colourTransformed":false,"profileDescription":"","result":"0x00000000"})"
                  "\n");

    const auto upright = Decode({turned_.string(), "--json", "--no-rotate", "--downscale", "2"});
    EXPECT_NE(upright.out.find(R"("decodedWidth":832,"decodedHeight":624,"rotated":false)"),
              std::string::npos)
        << upright.out;

    EXPECT_EQ(Decode({turned_.string(), "--downscale", "0xZZ"}).exitCode, 2);
    EXPECT_EQ(Decode({turned_.string(), "--downscale", "4294967296"}).exitCode, 2);
    EXPECT_EQ(Decode({turned_.string(), "--target-profile"}).exitCode, 2);
}

TEST_F(DecodeCommand, ColourOptionsReachThePipeline) {
    const test::Bytes jpeg = test::MakeJpeg(32, 24);
    const auto adobe = folder_ / "adobe.jpg";
    test::WriteFile(adobe,
                    test::WithIccProfile(jpeg, decode::ProfileBytes(decode::AdobeRgbProfile())));
    const auto plain = folder_ / "plain.jpg";
    test::WriteFile(plain, jpeg);
    const auto monitor = folder_ / "monitor.icc";
    test::WriteFile(monitor, decode::ProfileBytes(decode::AdobeRgbProfile()));

    const auto managed = Decode({adobe.string(), "--json", "--icc"}).out;
    EXPECT_NE(managed.find(R"x("colourTransformed":true,"profileDescription":"Adobe RGB (1998)")x"),
              std::string::npos)
        << managed;
    // Without --icc colours are left alone.
    EXPECT_NE(Decode({adobe.string(), "--json"}).out.find(R"("colourTransformed":false)"),
              std::string::npos);
    // A picture without a profile goes to the monitor's profile only as a custom target.
    EXPECT_NE(Decode({plain.string(), "--json", "--icc"}).out.find(R"("colourTransformed":false)"),
              std::string::npos);
    const auto toMonitor = Decode({plain.string(), "--json", "--icc", "--target-profile", "auto",
                                   "--monitor-profile", monitor.string()});
    EXPECT_NE(toMonitor.out.find(R"("colourTransformed":true)"), std::string::npos)
        << toMonitor.out;
}

TEST_F(DecodeCommand, WritesThePixelsTheViewerDrawsAndTheirHistogram) {
    const auto out = folder_ / "out.png";
    const auto run = Decode({turned_.string(), "--json", "--histogram", "-o", out.string()});
    ASSERT_EQ(run.exitCode, 0) << run.out;
    EXPECT_NE(run.out.find(R"("histogram":{"valid":true,"red":[)"), std::string::npos);

    // The written picture, decoded again, is the pipeline's picture pixel for pixel, and the
    // printed counts are the pipeline's.
    const std::atomic<std::uint32_t> abortFlag{0};
    decode::DecodedPicture viewer;
    metadata::PictureMetadata record;
    ASSERT_EQ(decode::DecodePicture(turned_, 0, {}, abortFlag, viewer, record), S_OK);
    decode::DecodedPicture written;
    metadata::PictureMetadata writtenRecord;
    ASSERT_EQ(decode::DecodePicture(out, 0, {}, abortFlag, written, writtenRecord), S_OK);
    ASSERT_EQ(written.pixels.Size(), viewer.pixels.Size());
    for (std::uint32_t y = 0; y < viewer.height; ++y) {
        ASSERT_EQ(std::memcmp(written.pixels.Row(y), viewer.pixels.Row(y), viewer.width * 4), 0)
            << "row " << y;
    }
    std::string green = R"("green":[)";
    for (std::size_t i = 0; i < 256; ++i) {
        green += (i == 0 ? "" : ",") + std::to_string(record.histogram.green[i]);
    }
    EXPECT_NE(run.out.find(green + "]"), std::string::npos);

    const auto uncounted = Decode({turned_.string(), "--json", "--histogram", "--format", "bgr24"});
    EXPECT_NE(uncounted.out.find(R"("histogram":{"valid":false})"), std::string::npos);
}

}  // namespace
}  // namespace orvanta

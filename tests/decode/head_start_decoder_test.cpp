#include "decode/head_start_decoder.h"

#include <thread>

#include <gtest/gtest.h>

#include "list/picture_entry.h"
#include "metadata/picture_metadata.h"
#include "one_entry.h"
#include "settings/settings.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::decode {
namespace {

class HeadStart : public testing::Test {
protected:
    void SetUp() override { settings::EnableExifAutoRotate.Set(1); }
    void TearDown() override { settings::EnableExifAutoRotate.Set(1); }

    test::TempFolder folder_;
    PipelineDecoder pipeline_{imaging::PixelFormat::Pbgra32, false};
    std::atomic<int> decodes_{0};  // files decoded, ahead or not
    HeadStartDecoder decoder_{
        pipeline_, [this](const std::filesystem::path& path, std::uint16_t frameIndex,
                          const DecodeOptions& options, const std::atomic<std::uint32_t>& abortFlag,
                          DecodedPicture& picture, metadata::PictureMetadata& record) {
            ++decodes_;
            return DecodePicture(path, frameIndex, options, abortFlag, picture, record);
        }};
};

TEST_F(HeadStart, TheNamedFileTakesThePictureAndOtherFilesDecodeAsBefore) {
    test::WriteFile(folder_ / "first.jpg", test::MakeJpeg(40, 20));
    test::WriteFile(folder_ / "second.jpg", test::MakeJpeg(24, 36));
    // Named as on a command line, reached by the list through another spelling.
    decoder_.Begin(folder_ / "." / "first.jpg");
    EXPECT_TRUE(decoder_.Pending());

    OneEntry first(folder_ / "first");
    ASSERT_EQ(decoder_.Decode(first.entry, "jpg", false), S_OK);
    EXPECT_FALSE(decoder_.Pending());
    ASSERT_NE(first.entry.decodedPicture, nullptr);
    EXPECT_EQ(first.entry.decodedPicture->pixels.Size(), (imaging::PixelSize{40, 20}));
    EXPECT_EQ(first.entry.width, 40u);
    EXPECT_NE(first.entry.metadata, nullptr);
    EXPECT_FALSE(first.entry.decoding);
    EXPECT_EQ(decodes_, 1);

    // Taken once: the same file decodes on its own the next time.
    first.entry.decodedPicture.reset();
    ASSERT_EQ(decoder_.Decode(first.entry, "jpg", false), S_OK);
    EXPECT_EQ(first.entry.decodedPicture->pixels.Size(), (imaging::PixelSize{40, 20}));
    EXPECT_EQ(decodes_, 2);

    OneEntry second(folder_ / "second");
    ASSERT_EQ(decoder_.Decode(second.entry, "jpg", false), S_OK);
    EXPECT_EQ(second.entry.decodedPicture->pixels.Size(), (imaging::PixelSize{24, 36}));
}

TEST_F(HeadStart, AnotherFileFirstOrChangedSettingsLetTheHeadStartGo) {
    test::WriteFile(
        folder_ / "turned.jpg",
        test::WithMetadata(test::MakeJpeg(40, 20), {.exif = {{"Exif.Image.Orientation", "6"}}}));
    test::WriteFile(folder_ / "other.jpg", test::MakeJpeg(24, 36));

    decoder_.Begin(folder_ / "turned.jpg");
    OneEntry other(folder_ / "other");
    ASSERT_EQ(decoder_.Decode(other.entry, "jpg", false), S_OK);
    EXPECT_EQ(other.entry.decodedPicture->pixels.Size(), (imaging::PixelSize{24, 36}));
    EXPECT_FALSE(decoder_.Pending());

    // Made upright ahead, then the orientation setting goes off: the entry decodes with the
    // options in force when it is reached.
    decoder_.Begin(folder_ / "turned.jpg");
    settings::EnableExifAutoRotate.Set(0);
    OneEntry turned(folder_ / "turned");
    ASSERT_EQ(decoder_.Decode(turned.entry, "jpg", false), S_OK);
    EXPECT_FALSE(turned.entry.decodedPicture->rotated);
    EXPECT_EQ(turned.entry.decodedPicture->pixels.Size(), (imaging::PixelSize{40, 20}));
}

TEST_F(HeadStart, AbortWhileWaitingEndsWithoutAPictureAndAFailedFileStaysFailed) {
    // Large enough that the wait sees the abort before the decode ends on most machines; the
    // outcome is checked either way.
    test::WriteFile(folder_ / "big.jpg", test::MakeJpeg(3000, 2000));
    decoder_.Begin(folder_ / "big.jpg");
    OneEntry big(folder_ / "big");
    std::jthread aborter([&] { big.entry.abortFlag = 1; });
    const Result result = decoder_.Decode(big.entry, "jpg", false);
    aborter.join();
    if (result == E_ABORT) {
        // An entry aborted before its decode began never asks for the head start, which then
        // waits for the next decode to take it or let it go.
        EXPECT_EQ(big.entry.decodedPicture, nullptr);
    } else {
        EXPECT_EQ(result, S_OK);
        EXPECT_NE(big.entry.decodedPicture, nullptr);
        EXPECT_FALSE(decoder_.Pending());
    }

    test::WriteFile(folder_ / "broken.jpg", test::Bytes{0xFF, 0xD8});
    decoder_.Begin(folder_ / "broken.jpg");
    OneEntry broken(folder_ / "broken");
    EXPECT_TRUE(decoder_.Decode(broken.entry, "jpg", false).Failed());
    EXPECT_EQ(broken.entry.decodedPicture, nullptr);
}

TEST_F(HeadStart, ALeftHeadStartEndsWithTheDecoder) {
    test::WriteFile(folder_ / "big.jpg", test::MakeJpeg(3000, 2000));
    auto decoder = std::make_unique<HeadStartDecoder>(pipeline_);
    decoder->Begin(folder_ / "big.jpg");
    decoder->Begin(folder_ / "big.jpg");  // the first one is let go
    decoder.reset();                      // aborts and joins; sanitizers see any leak
}

}  // namespace
}  // namespace orvanta::decode

#include "decode/decode_entry.h"

#include <array>
#include <vector>

#include <gtest/gtest.h>

#include "decode/colour_profiles.h"
#include "decode/downscale.h"
#include "list/picture_entry.h"
#include "metadata/picture_metadata.h"
#include "one_entry.h"
#include "platform/imaging/png_writer.h"
#include "support/histogram_count.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::decode {
namespace {

using imaging::PixelFormat;
using imaging::PixelSize;
using metadata::PictureMetadata;
using metadata::ValidField;

struct Decoded {
    Result result;
    DecodedPicture picture;
    PictureMetadata record;
    DecodeReport report;
};

Decoded Decode(const std::filesystem::path& path, const DecodeOptions& options = {},
               std::uint16_t frameIndex = 0) {
    Decoded d;
    const std::atomic<std::uint32_t> abortFlag{0};
    d.result = DecodePicture(path, frameIndex, options, abortFlag, d.picture, d.record, &d.report);
    return d;
}

std::array<std::uint8_t, 4> PixelAt(const DecodedPicture& picture, std::uint32_t x,
                                    std::uint32_t y) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(picture.pixels.Row(y)) + 4 * x;
    return {p[0], p[1], p[2], p[3]};
}

metadata::HistogramBlock CountPixels(const DecodedPicture& picture) {
    return test::CountBgrxPlainly(picture.pixels.Bytes().data(), picture.pixels.Stride(),
                                  picture.width, picture.height);
}

// A PNG of straight B, G, R, A pixels made by `pixel(x, y)`.
template <typename Pixel>
std::filesystem::path WritePixels(const test::TempFolder& folder, const char* name, PixelSize size,
                                  Pixel pixel) {
    std::vector<std::byte> bytes(std::size_t{size.width} * size.height * 4);
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            const std::array<std::uint8_t, 4> p = pixel(x, y);
            for (int c = 0; c < 4; ++c) {
                bytes[(std::size_t{y} * size.width + x) * 4 + c] = std::byte{p[c]};
            }
        }
    }
    const auto path = folder / name;
    EXPECT_EQ(imaging::WritePng(path, size, PixelFormat::Bgra32, size.width * 4, bytes), S_OK);
    return path;
}

TEST(DecodePicture, FramePastTheFileFrameCountGivesSFalseAndNoPicture) {
    test::TempFolder folder;
    const auto path = folder / "two.tif";
    test::WriteFile(path, test::MakeMultiPageTiff(2, 40, 30));

    const Decoded second = Decode(path, {}, 1);
    ASSERT_EQ(second.result, S_OK);
    EXPECT_EQ(second.report.frameCount, 2u);
    EXPECT_EQ(second.picture.pixels.Size(), (PixelSize{40, 30}));

    const Decoded third = Decode(path, {}, 2);
    EXPECT_EQ(third.result, S_FALSE);
    EXPECT_TRUE(third.picture.pixels.Empty());
    EXPECT_EQ(third.picture.width, 0u);
}

TEST(DecodePicture, DownscaleLandsAtTheFirstWidthThatFits) {
    test::TempFolder folder;
    const auto large = folder / "large.jpg";
    test::WriteFile(large, test::MakeJpeg(6000, 4000));
    DecodeOptions options;
    options.downscale = 0x10;  // 16 MB, linear

    const Decoded d = Decode(large, options);
    ASSERT_EQ(d.result, S_OK);
    EXPECT_TRUE(d.picture.downscaled);
    // 6000 - 16k: 2512 x 1675 is still 16.05 MB at four bytes a pixel, 2496 x 1664 fits.
    EXPECT_EQ(d.picture.pixels.Size(), (PixelSize{2496, 1664}));
    EXPECT_EQ(d.picture.pixels.Size(), PlanDownscale({6000, 4000}, 0x10, 32).size);
    EXPECT_EQ(d.record.decodedSize, (PixelSize{2496, 1664}));
    EXPECT_EQ(d.record.width, 6000u);  // the frame's own size stays in the record

    const auto small = folder / "small.jpg";
    test::WriteFile(small, test::MakeJpeg(1000, 800));
    const Decoded fits = Decode(small, options);
    ASSERT_EQ(fits.result, S_OK);
    EXPECT_FALSE(fits.picture.downscaled);
    EXPECT_EQ(fits.picture.pixels.Size(), (PixelSize{1000, 800}));
}

TEST(DecodePicture, RawPreviewBelow768IsPassedOverForTheFullFrame) {
    const auto data = test::TestDataFolder();
    if (data.empty()) {
        GTEST_SKIP() << "no test data";
    }
    // The file's embedded preview is 160 x 120 and decodes; its raw data was cut off, so
    // only a decode of the full frame fails, and fails as it does without the raw flag.
    const auto nef = data / "raw" / "Nikon_D1_head.nef";
    DecodeOptions framesOnly;
    framesOnly.raw = false;
    const Decoded frame = Decode(nef, framesOnly);
    DecodeOptions raw;
    raw.raw = true;
    const Decoded d = Decode(nef, raw);
    EXPECT_FALSE(d.report.fromPreview);
    EXPECT_EQ(d.result, frame.result);
    EXPECT_NE(d.picture.pixels.Size(), (PixelSize{160, 120}));

    // A raw without a preview is developed in full.
    const Decoded full = Decode(data / "raw" / "Canon_EOS550D_MagicLantern_colorchart.dng", raw);
    ASSERT_EQ(full.result, S_OK) << full.result.Hex();
    EXPECT_FALSE(full.report.fromPreview);
    EXPECT_EQ(full.picture.pixels.Size(), (PixelSize{full.record.width, full.record.height}));
}

// The JPEG with `preview` appended after it and listed as its second image in an MPF
// segment, as cameras store their large previews.
test::Bytes WithMpfPreview(const test::Bytes& jpeg, const test::Bytes& preview) {
    test::Bytes tiff = {'I', 'I', 42, 0, 8, 0, 0, 0, 3, 0};
    const auto put16 = [&](std::uint32_t v) {
        tiff.push_back(static_cast<std::uint8_t>(v));
        tiff.push_back(static_cast<std::uint8_t>(v >> 8));
    };
    const auto put32 = [&](std::uint32_t v) {
        put16(v & 0xFFFF);
        put16(v >> 16);
    };
    constexpr std::uint32_t kEntries = 8 + 2 + 3 * 12 + 4;
    put16(0xB000), put16(7), put32(4), tiff.insert(tiff.end(), {'0', '1', '0', '0'});
    put16(0xB001), put16(4), put32(1), put32(2);
    put16(0xB002), put16(7), put32(32), put32(kEntries);
    put32(0);  // no next directory
    // Segment: marker, length, "MPF\0", then the block; offsets count from the block.
    const std::size_t segment = 2 + 2 + 4 + tiff.size() + 32;
    const std::size_t blockAt = 2 + 2 + 2 + 4;
    const std::size_t previewAt = 2 + segment + jpeg.size() - 2;
    put32(0x030000), put32(static_cast<std::uint32_t>(previewAt)), put32(0), put32(0);
    put32(0x010002), put32(static_cast<std::uint32_t>(preview.size())),
        put32(static_cast<std::uint32_t>(previewAt - blockAt)), put32(0);
    test::Bytes out = {0xFF,
                       0xD8,
                       0xFF,
                       0xE2,
                       static_cast<std::uint8_t>((segment - 2) >> 8),
                       static_cast<std::uint8_t>(segment - 2),
                       'M',
                       'P',
                       'F',
                       0};
    out.insert(out.end(), tiff.begin(), tiff.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    out.insert(out.end(), preview.begin(), preview.end());
    return out;
}

TEST(DecodePicture, LargePreviewStandsInAndIsTurnedOnlyBesideALandscapeFrame) {
    test::TempFolder folder;
    // Stored 1000 x 800, to be shown turned a quarter clockwise.
    const test::Bytes frame =
        test::WithMetadata(test::MakeJpeg(1000, 800), {.exif = {{"Exif.Image.Orientation", "6"}}});
    struct Case {
        PixelSize preview;
        bool raw;
        bool fromPreview;
        PixelSize shown;
    };
    for (const Case& c : {
             Case{{960, 768}, true, true, {768, 960}},    // landscape beside landscape: turned
             Case{{768, 960}, true, true, {768, 960}},    // already upright
             Case{{960, 700}, true, false, {800, 1000}},  // too small: the frame, turned
             Case{{960, 768}, false, false, {800, 1000}},
         }) {
        SCOPED_TRACE(testing::Message()
                     << c.preview.width << "x" << c.preview.height << (c.raw ? " raw" : ""));
        const auto path = folder / "shot.jpg";
        test::WriteFile(path,
                        WithMpfPreview(frame, test::MakeJpeg(c.preview.width, c.preview.height)));
        DecodeOptions options;
        options.raw = c.raw;
        const Decoded d = Decode(path, options);
        ASSERT_EQ(d.result, S_OK);
        EXPECT_EQ(d.report.fromPreview, c.fromPreview);
        EXPECT_EQ(d.picture.pixels.Size(), c.shown);
        EXPECT_EQ(d.record.width, 1000u);  // the metadata is the frame's
    }
}

// Where the pixel shown at the top left of the upright picture sits in the stored one
// (w x h), per EXIF orientation.
struct OrientationCase {
    int orientation;
    bool turned;  // width and height swap
    // The stored pixel for upright (x, y).
    std::pair<std::uint32_t, std::uint32_t> (*stored)(std::uint32_t x, std::uint32_t y,
                                                      std::uint32_t w, std::uint32_t h);
};

class Orientation : public testing::TestWithParam<OrientationCase> {};

TEST_P(Orientation, TurnsThePictureUprightAndOnlyWhenAsked) {
    const OrientationCase& c = GetParam();
    constexpr std::uint32_t w = 48;
    constexpr std::uint32_t h = 32;
    test::TempFolder folder;
    const auto plain = folder / "plain.jpg";
    const test::Bytes jpeg = test::MakeJpeg(w, h);
    test::WriteFile(plain, jpeg);
    const auto tagged = folder / "tagged.jpg";
    test::WriteFile(
        tagged, test::WithMetadata(
                    jpeg, {.exif = {{"Exif.Image.Orientation", std::to_string(c.orientation)}}}));

    const Decoded stored = Decode(plain);
    const Decoded upright = Decode(tagged);
    ASSERT_EQ(stored.result, S_OK);
    ASSERT_EQ(upright.result, S_OK);
    EXPECT_EQ(upright.picture.rotated, c.orientation != 1);
    EXPECT_EQ(upright.picture.pixels.Size(), c.turned ? (PixelSize{h, w}) : (PixelSize{w, h}));
    for (std::uint32_t y = 0; y < upright.picture.height; ++y) {
        for (std::uint32_t x = 0; x < upright.picture.width; ++x) {
            const auto [sx, sy] = c.stored(x, y, w, h);
            ASSERT_EQ(PixelAt(upright.picture, x, y), PixelAt(stored.picture, sx, sy))
                << "at " << x << "," << y;
        }
    }
    // The histogram counts each pixel once, whichever way the picture was turned.
    test::ExpectSameHistogram(upright.record.histogram, stored.record.histogram);

    DecodeOptions off;
    off.autoRotate = false;
    const Decoded asStored = Decode(tagged, off);
    ASSERT_EQ(asStored.result, S_OK);
    EXPECT_FALSE(asStored.picture.rotated);
    EXPECT_EQ(asStored.picture.pixels.Size(), (PixelSize{w, h}));
}

using P = std::pair<std::uint32_t, std::uint32_t>;
INSTANTIATE_TEST_SUITE_P(DecodePicture, Orientation,
                         testing::Values(OrientationCase{1, false,
                                                         [](auto x, auto y, auto, auto) {
                                                             return P{x, y};
                                                         }},
                                         OrientationCase{2, false,
                                                         [](auto x, auto y, auto w, auto) {
                                                             return P{w - 1 - x, y};
                                                         }},
                                         OrientationCase{3, false,
                                                         [](auto x, auto y, auto w, auto h) {
                                                             return P{w - 1 - x, h - 1 - y};
                                                         }},
                                         OrientationCase{4, false,
                                                         [](auto x, auto y, auto, auto h) {
                                                             return P{x, h - 1 - y};
                                                         }},
                                         OrientationCase{5, true,
                                                         [](auto x, auto y, auto, auto) {
                                                             return P{y, x};
                                                         }},
                                         OrientationCase{6, true,
                                                         [](auto x, auto y, auto, auto h) {
                                                             return P{y, h - 1 - x};
                                                         }},
                                         OrientationCase{7, true,
                                                         [](auto x, auto y, auto w, auto h) {
                                                             return P{w - 1 - y, h - 1 - x};
                                                         }},
                                         OrientationCase{8, true,
                                                         [](auto x, auto y, auto w, auto) {
                                                             return P{w - 1 - y, x};
                                                         }}),
                         [](const testing::TestParamInfo<OrientationCase>& info) {
                             return "Orientation" + std::to_string(info.param.orientation);
                         });

TEST(DecodePicture, EmbeddedNonSrgbProfileIsConvertedAndNamed) {
    test::TempFolder folder;
    const test::Bytes jpeg = test::MakeJpeg(64, 48);
    const auto adobe = folder / "adobe.jpg";
    test::WriteFile(adobe, test::WithIccProfile(jpeg, ProfileBytes(AdobeRgbProfile())));
    const auto srgb = folder / "srgb.jpg";
    test::WriteFile(srgb, test::WithIccProfile(jpeg, ProfileBytes(SrgbProfile())));
    const auto plain = folder / "plain.jpg";
    test::WriteFile(plain, jpeg);

    const Decoded a = Decode(adobe);
    ASSERT_EQ(a.result, S_OK);
    EXPECT_TRUE(a.report.colourTransformed);
    EXPECT_EQ(a.picture.profileDescription, "Adobe RGB (1998)");
    EXPECT_EQ(a.record.colourProfileName, "Adobe RGB (1998)");
    EXPECT_TRUE(a.record.validFields & ValidField::kColourProfileName);

    const Decoded s = Decode(srgb);
    const Decoded p = Decode(plain);
    ASSERT_EQ(s.result, S_OK);
    ASSERT_EQ(p.result, S_OK);
    EXPECT_FALSE(s.report.colourTransformed);
    EXPECT_NE(s.picture.profileDescription.find("sRGB"), std::string::npos);
    // Converted pixels differ from the stored ones; untouched ones do not.
    EXPECT_NE(PixelAt(a.picture, 40, 30), PixelAt(p.picture, 40, 30));
    EXPECT_EQ(PixelAt(s.picture, 40, 30), PixelAt(p.picture, 40, 30));

    DecodeOptions off;
    off.enableIcc = false;
    const Decoded unmanaged = Decode(adobe, off);
    ASSERT_EQ(unmanaged.result, S_OK);
    EXPECT_FALSE(unmanaged.report.colourTransformed);
    EXPECT_TRUE(unmanaged.picture.profileDescription.empty());
}

TEST(DecodePicture, HistogramCountsTheOutputPixels) {
    test::TempFolder folder;
    const auto gradient = folder / "gradient.jpg";
    test::WriteFile(gradient, test::MakeJpeg(300, 700));
    const Decoded g = Decode(gradient);
    ASSERT_EQ(g.result, S_OK);
    EXPECT_TRUE(g.record.validFields & ValidField::kHistogram);
    test::ExpectSameHistogram(g.record.histogram, CountPixels(g.picture));

    // Half pure white: bin 255 holds half the pixels but is drawn no higher than the
    // tallest of bins 1..254.
    const PixelSize size{256, 100};
    const auto half = WritePixels(folder, "half.png", size, [](std::uint32_t x, std::uint32_t y) {
        const auto v = static_cast<std::uint8_t>(x < 128 ? 255 : (x * 2 + y) % 255);
        return std::array<std::uint8_t, 4>{v, v, v, 255};
    });
    const Decoded h = Decode(half);
    ASSERT_EQ(h.result, S_OK);
    test::ExpectSameHistogram(h.record.histogram, CountPixels(h.picture));
    EXPECT_EQ(h.record.histogram.red[255], h.record.histogram.maxima[0]);
    EXPECT_LT(h.record.histogram.red[255], 128u * 100u);
    EXPECT_GT(h.record.histogram.maxima[0], 0u);

    // A display format that is not counted leaves the block invalid.
    DecodeOptions bgr24;
    bgr24.outputFormat = PixelFormat::Bgr24;
    const Decoded n = Decode(gradient, bgr24);
    ASSERT_EQ(n.result, S_OK);
    EXPECT_FALSE(n.record.validFields & ValidField::kHistogram);
}

TEST(DecodePicture, RasterPathDrawsTransparentPngOverTheBackground) {
    test::TempFolder folder;
    const auto path = folder / "clear.png";
    WritePixels(folder, "clear.png", {4, 2}, [](std::uint32_t x, std::uint32_t) {
        return x < 2 ? std::array<std::uint8_t, 4>{0, 0, 0, 0}
                     : std::array<std::uint8_t, 4>{200, 100, 50, 128};
    });
    DecodeOptions options;
    options.composeOverBackground = true;
    options.background = 0xFF204060;
    const Decoded d = Decode(path, options);
    ASSERT_EQ(d.result, S_OK);
    EXPECT_EQ(PixelAt(d.picture, 0, 0), (std::array<std::uint8_t, 4>{0x60, 0x40, 0x20, 255}));
    // Half-covered: the colour (premultiplied 100, 50, 25) plus half the background.
    const auto blended = PixelAt(d.picture, 3, 1);
    EXPECT_NEAR(blended[0], 100 + 0x60 / 2, 1);
    EXPECT_NEAR(blended[2], 25 + 0x20 / 2, 1);
    EXPECT_EQ(blended[3], 255);

    options.composeOverBackground = false;
    EXPECT_EQ(PixelAt(Decode(path, options).picture, 0, 0)[3], 0);
}

TEST(DecodeEntry, AbortDuringTheCopyLeavesNoPicture) {
    test::TempFolder folder;
    test::WriteFile(folder / "tall.jpg", test::MakeJpeg(64, 2048));  // four bands
    OneEntry one(folder / "tall");
    std::vector<std::uint32_t> heard;
    DecodeOptions options;
    options.progress = [&](std::uint32_t percent) {
        heard.push_back(percent);
        if (percent > 0) {
            one.entry.abortFlag = 1;
        }
    };
    EXPECT_EQ(DecodeEntry(one.entry, "jpg", options), E_ABORT);
    EXPECT_EQ(heard, (std::vector<std::uint32_t>{0, 25}));
    EXPECT_EQ(one.entry.decodedPicture, nullptr);
    EXPECT_EQ(one.entry.metadata, nullptr);
    EXPECT_EQ(one.entry.width, 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(one.entry.decodeResult), E_ABORT.Code());
    EXPECT_FALSE(one.entry.decoding);

    // A flag already set: nothing is touched, not even the result.
    one.entry.decodeResult = 0;
    one.entry.decoding = true;
    EXPECT_EQ(DecodeEntry(one.entry, "jpg", {}), E_ABORT);
    EXPECT_EQ(one.entry.decodeResult, 0);
    EXPECT_TRUE(one.entry.decoding);
}

TEST(DecodeEntry, StoresThePictureAndRetriesOnlyWhatMayNowSucceed) {
    test::TempFolder folder;
    test::WriteFile(folder / "shot.jpg", test::MakeJpeg(40, 20));
    OneEntry one(folder / "shot");
    auto& entry = one.entry;

    ASSERT_EQ(DecodeEntry(entry, "jpg", {}), S_OK);
    ASSERT_NE(entry.decodedPicture, nullptr);
    EXPECT_EQ(entry.decodeKind, "jpg");
    EXPECT_EQ(entry.width, 40u);
    EXPECT_EQ(entry.height, 20u);
    ASSERT_NE(entry.metadata, nullptr);
    EXPECT_EQ(entry.metadata->decodedSize, (PixelSize{40, 20}));
    EXPECT_FALSE(entry.decoding);

    // The raster path does not try again after a failure.
    entry.decodeResult = static_cast<std::int32_t>(E_FAIL.Code());
    EXPECT_EQ(DecodeEntry(entry, "jpg", {}), E_FAIL);
    EXPECT_EQ(entry.decodedPicture, nullptr);

    // The accelerated path tries again after running out of memory, not after other failures.
    DecodeOptions accelerated;
    accelerated.accelerated = true;
    entry.decodeResult = static_cast<std::int32_t>(E_OUTOFMEMORY.Code());
    EXPECT_EQ(DecodeEntry(entry, "jpg", accelerated), S_OK);
    EXPECT_NE(entry.decodedPicture, nullptr);
    entry.decodeResult = static_cast<std::int32_t>(E_UNSUPPORTED_TYPE.Code());
    EXPECT_EQ(DecodeEntry(entry, "jpg", accelerated), E_UNSUPPORTED_TYPE);
    EXPECT_EQ(entry.decodedPicture, nullptr);

    // A picture kept in system memory comes back without a decode: the file is gone.
    auto kept = std::make_shared<DecodedPicture>();
    kept->width = 7;
    entry.systemMemoryCopy = kept;
    std::filesystem::remove(folder / "shot.jpg");
    EXPECT_EQ(DecodeEntry(entry, "jpg", accelerated), S_OK);
    EXPECT_EQ(entry.decodedPicture, kept);
    EXPECT_EQ(entry.systemMemoryCopy, nullptr);
    // Without one, the missing file's error is the result.
    entry.decodeResult = 0;
    EXPECT_EQ(DecodeEntry(entry, "jpg", {}), E_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace orvanta::decode

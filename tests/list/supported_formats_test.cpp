#include "list/supported_formats.h"

#include <gtest/gtest.h>

namespace orvanta::list {
namespace {

using imaging::DecoderInfo;
namespace container = imaging::container;
namespace vendor = imaging::vendor;

DecoderInfo Info(imaging::Guid c, imaging::Guid v, std::string extensions) {
    return DecoderInfo{c, v, "test", std::move(extensions), nullptr, nullptr};
}

TEST(SupportedFormats, PatternsTakeBuiltInsFirstAndNoExtensionTwice) {
    const std::vector<DecoderInfo> decoders = {
        Info(container::Nef, vendor::Orvanta, ".NEF,.nrw"),
        // Another decoder listing .tif adds nothing for it.
        Info(container::Raw, vendor::Orvanta, ".tif;.x3f;.x3f"),
        Info(container::Tiff, vendor::Microsoft, ".tiff,.tif"),
        Info(container::Jpeg, vendor::Microsoft, ".jpeg,.jpe,.jpg,.jfif,.exif"),
        // HD Photo without .hdp still makes .hdp supported; ICO gets .cur.
        Info(container::Wmp, vendor::Microsoft, ".wdp,.jxr"),
        Info(container::Ico, vendor::Microsoft, ".ico,.icon"),
        // A second JPEG decoder (another vendor) is skipped by the enumeration: its
        // container is one of the seven.
        Info(container::Jpeg, vendor::Orvanta, ".jpg,.jps"),
    };
    EXPECT_EQ(BuildSupportedPatterns(decoders),
              "*.jpeg;*.jpe;*.jpg;*.jfif;*.exif;*.wdp;*.jxr;*.hdp;*.ico;*.icon;*.cur;"
              "*.tiff;*.tif;*.nef;*.nrw;*.x3f");
    EXPECT_EQ(BuildSupportedPatterns({}), "");
}

TEST(SupportedFormats, IsSupportedMatchesWholePatternsOnly) {
    const std::string patterns = "*.jpeg;*.jpg;*.tif;*.gif;*.png";
    bool frames = true;
    EXPECT_TRUE(IsSupported(patterns, ".JPG", false, &frames));
    EXPECT_FALSE(frames);
    EXPECT_FALSE(IsSupported(patterns, ".jp"));
    EXPECT_FALSE(IsSupported(patterns, ".peg"));
    EXPECT_FALSE(IsSupported(patterns, "jpg"));
    EXPECT_TRUE(IsSupported(patterns, ".tif", true, &frames));
    EXPECT_TRUE(frames);
    EXPECT_TRUE(IsSupported(patterns, ".GIF", true, &frames));
    EXPECT_TRUE(frames);
    EXPECT_TRUE(IsSupported(patterns, ".png", true, &frames));
    EXPECT_FALSE(frames);
    EXPECT_TRUE(IsSupported(patterns, ".tif", false, &frames));
    EXPECT_FALSE(frames) << "multi-frame support off";
}

TEST(SupportedFormats, ExtensionTableAndRawContainers) {
    ContainerChoice choice;
    ASSERT_TRUE(LookUpContainer("/shots/IMG_0001.JPE", choice));
    EXPECT_EQ(choice.container, container::Jpeg);
    EXPECT_EQ(choice.vendor, vendor::Microsoft);
    ASSERT_TRUE(LookUpContainer("a.crw", choice));
    EXPECT_EQ(choice.container, container::Cr2);
    EXPECT_TRUE(choice.vendor.IsNull());
    ASSERT_TRUE(LookUpContainer("a.SRF", choice));
    EXPECT_EQ(choice.container, container::Arw);
    EXPECT_FALSE(LookUpContainer("a.webp", choice));
    EXPECT_FALSE(LookUpContainer("a.jp", choice));
    EXPECT_FALSE(LookUpContainer("noextension", choice));

    EXPECT_TRUE(IsRawContainer(container::RawAlternate));
    EXPECT_TRUE(IsRawContainer(container::RawOther));
    EXPECT_TRUE(IsRawContainer(container::Dng));
    EXPECT_FALSE(IsRawContainer(container::Tiff));
    EXPECT_FALSE(IsRawContainer(container::Tga));
}

TEST(SupportedFormats, SiblingChoice) {
    const struct {
        std::string_view set;
        std::string_view extension;
        bool raw;
    } cases[] = {
        {"jpg;nef", "jpg", false}, {"nef", "nef", true},        {"NEF;JPG", "jpg", false},
        {"dng", "dng", true},      {"cr2;dng", "dng", true},    {"wmf;psd", "psd", false},
        {"wmf", "wmf", false},     {"tif;tiff", "tiff", false}, {"ico;icon", "icon", false},
        {"arw;xmp", "arw", true},
    };
    for (const auto& c : cases) {
        const SiblingChoice choice = ChooseSibling(c.set);
        EXPECT_EQ(choice.extension, c.extension) << c.set;
        EXPECT_EQ(choice.raw, c.raw) << c.set;
    }
    EXPECT_TRUE(IsQuickFormat("JPG"));
    EXPECT_TRUE(IsQuickFormat("tga"));
    EXPECT_FALSE(IsQuickFormat("tif"));
    EXPECT_FALSE(IsQuickFormat("nef"));
}

}  // namespace
}  // namespace orvanta::list

#include <fstream>

#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::list {
namespace {

void Write(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

TEST(SupportedFormats, CountFramesAsTheDecoderReportsThemElseOne) {
    test::TempFolder folder;
    Write(folder / "one.jpg", test::MakeJpeg(16, 8));
    EXPECT_EQ(CountFrames(folder / "one.jpg"), 1u);
    // A JPEG under a TIFF name is still read, by its content.
    Write(folder / "named-wrong.tif", test::MakeJpeg(16, 8));
    EXPECT_EQ(CountFrames(folder / "named-wrong.tif"), 1u);
    std::ofstream(folder / "garbage.gif") << "GIF89a but nothing after it";
    EXPECT_EQ(CountFrames(folder / "garbage.gif"), 1u);
    EXPECT_EQ(CountFrames(folder / "missing.gif"), 1u);

    const auto data = test::TestDataFolder();
    if (data.empty()) {
        GTEST_SKIP() << "no test data";
    }
    EXPECT_EQ(CountFrames(data / "gif-multiframe" / "cogs.gif"), 5u);
    EXPECT_EQ(CountFrames(data / "formats" / "webp" / "Animation_Lossy.webp"), 101u);
}

}  // namespace
}  // namespace orvanta::list

namespace orvanta::list {
namespace {

class BasePath : public testing::TestWithParam<const char*> {};

// The list cuts names itself rather than parsing each into a path object; the cut must be
// the one the standard library makes, or siblings would stop joining their entries.
TEST_P(BasePath, CutsWhereTheStandardExtensionStarts) {
    const std::string path = GetParam();
    const std::size_t extension = std::filesystem::path(path).extension().native().size();
    EXPECT_EQ(BasePathOf(path), path.substr(0, path.size() - extension));
}

INSTANTIATE_TEST_SUITE_P(Names, BasePath,
                         testing::Values("/p/a.jpg", "/p/a.b.JPG", "/p/.jpg", "/p/..jpg",
                                         "/p.d/file", "/p/a.", "/p/..", "/p/.", "a.nef", "a", "/",
                                         "", "/p/dir/", "/p/\xc3\xa4.tif", "/p/a .jpg"));

}  // namespace
}  // namespace orvanta::list

namespace orvanta::list {
namespace {

// The prepared look-up answers as the plain test does, frames included, for lists with
// odd items in them.
TEST(SupportedFormats, PreparedExtensionsAnswerAsIsSupported) {
    for (const char* patterns :
         {"*.jpeg;*.jpg;*.tif;*.gif;*.png", "*.JPG;*.nef;;*;*.;a.jpg;*jpg;*.tiff", ""}) {
        const SupportedExtensions prepared(patterns);
        for (const char* extension :
             {".jpg", ".JPG", ".Tif", ".tiff", ".nef", ".gif", ".", "", "jpg", ".jpgx", ".a.jpg"}) {
            for (bool multiFrame : {false, true}) {
                bool framesPlain = true;
                bool framesPrepared = true;
                EXPECT_EQ(prepared.Contains(extension, multiFrame, &framesPrepared),
                          IsSupported(patterns, extension, multiFrame, &framesPlain))
                    << patterns << " " << extension;
                EXPECT_EQ(framesPrepared, framesPlain) << patterns << " " << extension;
            }
        }
    }
}

}  // namespace
}  // namespace orvanta::list

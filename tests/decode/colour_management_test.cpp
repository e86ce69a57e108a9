#include "decode/colour_management.h"

#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "decode/colour_profiles.h"
#include "decode/colour_transform.h"
#include "decode/open_decoder.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::decode {
namespace {

using imaging::PixelFormat;
using test::Bytes;
using test::WithIccProfile;

class Recorder final : public ColourNotices {
public:
    void Notice10029InvalidTargetProfile(Result code) override { invalidTarget.push_back(code); }
    void Notice10030UnreadableEmbeddedProfile(Result code) override { unreadable.push_back(code); }
    std::vector<Result> invalidTarget;
    std::vector<Result> unreadable;
};

class FixedMonitor final : public MonitorProfileProvider {
public:
    explicit FixedMonitor(Bytes bytes) : bytes_(std::move(bytes)) {}
    std::vector<std::uint8_t> MonitorProfile() const override { return bytes_; }

private:
    Bytes bytes_;
};

class ColourStep : public testing::Test {
protected:
    void SetUp() override { imaging::InitialiseMetadata(); }

    // Decodes `file` through the colour step to 32bppPBGRA; the outcome keeps its source.
    ColourOutcome Run(const Bytes& file, const ColourSettings& settings, bool rawPreview = false,
                      bool warn = true) {
        const auto path = folder_.Path() / ("picture" + std::to_string(++count_) + ".jpg");
        test::WriteFile(path, file);
        EXPECT_EQ(OpenPicture(path, picture_), S_OK);
        EXPECT_EQ(picture_.decoder->GetFrame(0, frame_), S_OK);
        // A file whose metadata the reader refuses is still colour-managed from its frame.
        if (imaging::MetadataQueryReader::Create(picture_.bytes->Bytes(), picture_.container, 0,
                                                 frame_->Metadata(), reader_) != S_OK) {
            reader_.reset();
        }
        auto source = frame_->CreateVariant({0, 0}, PixelFormat::Pbgra32);
        EXPECT_NE(source, nullptr);
        const ColourRequest request{warn, PixelFormat::Pbgra32};
        return rawPreview ? TransformForRawPreview(std::move(source), *frame_, reader_.get(),
                                                   request, settings)
                          : TransformForFrame(std::move(source), *frame_, reader_.get(), request,
                                              settings);
    }

    ColourSettings Settings(std::string target = {}) {
        return {std::move(target), nullptr, &warnings_};
    }

    std::filesystem::path WriteProfile(const std::string& name, const Bytes& bytes) {
        const auto path = folder_.Path() / name;
        test::WriteFile(path, bytes);
        return path;
    }

    test::TempFolder folder_;
    Recorder notices_;
    ProfileWarnings warnings_{&notices_};
    OpenedPicture picture_;
    std::unique_ptr<imaging::BitmapFrame> frame_;
    std::unique_ptr<imaging::MetadataQueryReader> reader_;
    int count_ = 0;
};

TEST_F(ColourStep, AdobeRgbPictureIsConvertedAndNamedByItsProfile) {
    const Bytes jpeg = WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(AdobeRgbProfile()));
    const ColourOutcome outcome = Run(jpeg, Settings());
    EXPECT_TRUE(outcome.transformed);
    EXPECT_EQ(outcome.profileDescription, "Adobe RGB (1998)");
    ASSERT_NE(outcome.source, nullptr);
    EXPECT_EQ(outcome.source->Format(), PixelFormat::Pbgra32);
}

// A shoot's pictures share their profiles: the transform is made once and shared; another
// source profile or another target gets a transform of its own.
TEST_F(ColourStep, PicturesWithTheSameProfilesShareOneTransform) {
    const auto transformOf = [](ColourOutcome outcome) {
        EXPECT_TRUE(outcome.transformed);
        return TakeApartColourStage(outcome.source);
    };
    const Bytes adobe = WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(AdobeRgbProfile()));
    const auto first = transformOf(Run(adobe, Settings()));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(transformOf(Run(adobe, Settings())), first);

    const Bytes proPhoto =
        WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(ProPhotoRgbProfile()));
    const auto other = transformOf(Run(proPhoto, Settings()));
    EXPECT_NE(other, nullptr);
    EXPECT_NE(other, first);

    const auto target = WriteProfile("target.icc", ProfileBytes(ProPhotoRgbProfile()));
    const auto toProPhoto = transformOf(Run(adobe, Settings(target.string())));
    EXPECT_NE(toProPhoto, nullptr);
    EXPECT_NE(toProPhoto, first);
}

TEST_F(ColourStep, SrgbPictureIsLeftAlone) {
    const Bytes jpeg = WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(SrgbProfile()));
    const ColourOutcome outcome = Run(jpeg, Settings());
    EXPECT_FALSE(outcome.transformed);
    EXPECT_TRUE(DescribesSrgb(outcome.profileDescription)) << outcome.profileDescription;
    EXPECT_NE(outcome.source, nullptr);
}

TEST_F(ColourStep, PictureWithoutProfileIsConvertedOnlyForACustomTarget) {
    const Bytes jpeg = test::MakeJpeg(64, 48);
    EXPECT_FALSE(Run(jpeg, Settings()).transformed);
    const auto target = WriteProfile("wide.icc", ProfileBytes(ProPhotoRgbProfile()));
    const ColourOutcome outcome = Run(jpeg, Settings(target.string()));
    EXPECT_TRUE(outcome.transformed);
    EXPECT_EQ(outcome.profileDescription, "");
    // A raw preview needs colour data of its own.
    EXPECT_FALSE(Run(jpeg, Settings(target.string()), true).transformed);
}

TEST_F(ColourStep, RejectedCustomTargetFallsBackToSrgbWithOneWarningPerRun) {
    const Bytes jpeg = WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(AdobeRgbProfile()));
    const auto target = WriteProfile("broken.icc", Bytes(300, 0x5A));
    for (int i = 0; i < 2; ++i) {
        const ColourOutcome outcome = Run(jpeg, Settings(target.string()));
        EXPECT_TRUE(outcome.transformed);  // to sRGB
    }
    EXPECT_EQ(notices_.invalidTarget, (std::vector<Result>{Result(0x800707DBu)}));
    EXPECT_TRUE(notices_.unreadable.empty());
}

TEST_F(ColourStep, MissingCustomTargetFileMeansSrgbWithoutWarning) {
    const Bytes jpeg = WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(AdobeRgbProfile()));
    EXPECT_TRUE(Run(jpeg, Settings((folder_.Path() / "absent.icc").string())).transformed);
    EXPECT_TRUE(notices_.invalidTarget.empty());
}

TEST_F(ColourStep, UnreadableEmbeddedProfileWarnsOnceAndLeavesThePictureAlone) {
    const Bytes jpeg = WithIccProfile(test::MakeJpeg(64, 48), Bytes(200, 0x11));
    for (int i = 0; i < 2; ++i) {
        const ColourOutcome outcome = Run(jpeg, Settings());
        EXPECT_FALSE(outcome.transformed);
        EXPECT_NE(outcome.source, nullptr);
    }
    EXPECT_EQ(notices_.unreadable.size(), 1u);
    // Without the warn flag nothing is said at all.
    ProfileWarnings quiet{&notices_};
    Run(jpeg, {{}, nullptr, &quiet}, false, false);
    EXPECT_EQ(notices_.unreadable.size(), 1u);
}

TEST_F(ColourStep, AutomaticTargetUsesTheMonitorProfile) {
    // An sRGB picture with the monitor in Adobe RGB: converted, since the target is custom.
    const Bytes jpeg = WithIccProfile(test::MakeJpeg(64, 48), ProfileBytes(SrgbProfile()));
    const FixedMonitor monitor(ProfileBytes(AdobeRgbProfile()));
    EXPECT_TRUE(Run(jpeg, {"<automatic>", &monitor, &warnings_}).transformed);
    // No monitor profile: sRGB to sRGB, still a transform, and nothing to warn about.
    EXPECT_TRUE(Run(jpeg, {"<Automatic>", nullptr, &warnings_}).transformed);
    EXPECT_TRUE(notices_.invalidTarget.empty());
}

// A Canon maker note (tag 0x00B4) naming the camera's colour space.
Bytes CanonNote(std::uint16_t space) {
    return {2,
            0,
            0x01,
            0,
            3,
            0,
            1,
            0,
            0,
            0,
            7,
            0,
            0,
            0,
            0xB4,
            0,
            3,
            0,
            1,
            0,
            0,
            0,
            static_cast<std::uint8_t>(space),
            0,
            0,
            0,
            0,
            0,
            0,
            0};
}

struct MakerNoteCase {
    std::uint16_t space;
    bool transformed;
    const char* name;
};

class RawPreviewColour : public ColourStep, public testing::WithParamInterface<MakerNoteCase> {};

TEST_P(RawPreviewColour, MakerNoteColourSpaceChoosesTheBuiltInProfile) {
    const Bytes jpeg =
        test::WithMetadata(test::MakeJpeg(64, 48),
                           {{}, {{"Exif.Photo.MakerNote", CanonNote(GetParam().space)}}, {}, {}});
    const ColourOutcome outcome = Run(jpeg, Settings(), true);
    EXPECT_EQ(outcome.transformed, GetParam().transformed);
    EXPECT_EQ(outcome.profileDescription, GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Spaces, RawPreviewColour,
                         testing::Values(MakerNoteCase{1, false, "sRGB IEC61966-2.1"},
                                         MakerNoteCase{2, true, "Adobe RGB"},
                                         MakerNoteCase{3, true, "ProPhoto RGB"},
                                         MakerNoteCase{0, false, ""}),
                         [](const testing::TestParamInfo<MakerNoteCase>& info) {
                             return "space" + std::to_string(info.param.space);
                         });

}  // namespace
}  // namespace orvanta::decode

#include "decode/colour_transform.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include <gtest/gtest.h>
#include <lcms2.h>

#include "platform/imaging/memory_source.h"

namespace orvanta::decode {
namespace {

using imaging::PixelFormat;

struct Pair {
    const char* name;
    Profile (*source)();
    Profile (*target)();
    PixelFormat format;
};

// Every value of every channel meets many values of the other two.
std::vector<std::byte> TestPicture(PixelFormat format, std::uint32_t width, std::uint32_t height) {
    const std::uint32_t bytes = format == PixelFormat::Bgr24 ? 3 : 4;
    std::vector<std::byte> pixels(std::size_t{width} * height * bytes);
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            std::byte* p = &pixels[(std::size_t{y} * width + x) * bytes];
            p[0] = static_cast<std::byte>((x * 7 + y * 13) & 0xFF);
            p[1] = static_cast<std::byte>(y & 0xFF);
            p[2] = static_cast<std::byte>(x & 0xFF);
            if (bytes == 4) {
                p[3] = std::byte{255};
            }
        }
    }
    return pixels;
}

class MatrixShaperPath : public testing::TestWithParam<Pair> {};

// The reference is lcms2 in floating point: its own 8-bit transforms take shortcuts that
// are two levels off near black for a pure gamma target such as Adobe RGB. It keeps colours
// outside the target gamut unbounded; they are clipped as the 8-bit pixels clip them.
TEST_P(MatrixShaperPath, AgreesWithLcmsWithinOneLevelOnEveryPixel) {
    const Pair pair = GetParam();
    const Profile source = pair.source(), target = pair.target();
    std::shared_ptr<const ColourTransform> transform;
    ASSERT_EQ(ColourTransform::Create(source, target, pair.format, transform), S_OK);
    ASSERT_TRUE(transform->MatrixShaper());
    const bool threeBytes = pair.format == PixelFormat::Bgr24;
    std::unique_ptr<void, decltype(&cmsDeleteTransform)> exact(
        cmsCreateTransform(source.get(), threeBytes ? TYPE_BGR_8 : TYPE_BGRA_8, target.get(),
                           TYPE_BGR_DBL, INTENT_PERCEPTUAL, 0),
        &cmsDeleteTransform);
    ASSERT_NE(exact, nullptr);

    const std::uint32_t width = 256, height = 256;
    const std::vector<std::byte> original = TestPicture(pair.format, width, height);
    std::vector<std::byte> ours = original;
    const std::size_t rowBytes = ours.size() / height, pixelBytes = rowBytes / width;
    std::vector<double> reference(std::size_t{width} * 3);
    int worst = 0;
    for (std::uint32_t y = 0; y < height; ++y) {
        transform->Apply(ours.data() + y * rowBytes, width);
        cmsDoTransform(exact.get(), original.data() + y * rowBytes, reference.data(), width);
        for (std::uint32_t x = 0; x < width; ++x) {
            for (int c = 0; c < 3; ++c) {
                const int expected =
                    static_cast<int>(std::lround(std::clamp(reference[x * 3 + c], 0.0, 1.0) * 255));
                const int actual = static_cast<int>(ours[y * rowBytes + x * pixelBytes + c]);
                worst = std::max(worst, std::abs(actual - expected));
            }
        }
    }
    EXPECT_LE(worst, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Profiles, MatrixShaperPath,
    testing::Values(
        Pair{"AdobeToSrgbBgr24", AdobeRgbProfile, SrgbProfile, PixelFormat::Bgr24},
        Pair{"AdobeToSrgbPbgra", AdobeRgbProfile, SrgbProfile, PixelFormat::Pbgra32},
        Pair{"ProPhotoToSrgbBgr32", ProPhotoRgbProfile, SrgbProfile, PixelFormat::Bgr32},
        Pair{"SrgbToAdobeBgra", SrgbProfile, AdobeRgbProfile, PixelFormat::Bgra32},
        Pair{"AdobeToProPhoto", AdobeRgbProfile, ProPhotoRgbProfile, PixelFormat::Bgr32}),
    [](const testing::TestParamInfo<Pair>& info) { return std::string(info.param.name); });

TEST(ColourTransform, AdobeToSrgbChangesSaturatedColoursAndKeepsGreys) {
    std::shared_ptr<const ColourTransform> transform;
    ASSERT_EQ(
        ColourTransform::Create(AdobeRgbProfile(), SrgbProfile(), PixelFormat::Bgr24, transform),
        S_OK);
    // Pure Adobe green lies outside sRGB: it clips to full green with no red or blue; a mid
    // grey stays close to itself (the two tone curves differ a little).
    std::uint8_t pixels[6] = {0, 255, 0, 128, 128, 128};
    transform->Apply(reinterpret_cast<std::byte*>(pixels), 2);
    EXPECT_EQ(pixels[0], 0);
    EXPECT_EQ(pixels[1], 255);
    EXPECT_EQ(pixels[2], 0);
    for (int c = 3; c < 6; ++c) {
        EXPECT_NEAR(pixels[c], 128, 6);
        EXPECT_EQ(pixels[c], pixels[3]);
    }
}

TEST(ColourTransform, PremultipliedPixelsKeepAlphaAndTransparentOnesStayZero) {
    std::shared_ptr<const ColourTransform> transform;
    ASSERT_EQ(
        ColourTransform::Create(AdobeRgbProfile(), SrgbProfile(), PixelFormat::Pbgra32, transform),
        S_OK);
    std::uint8_t pixels[8] = {0, 0, 0, 0, 0, 100, 20, 128};
    std::uint8_t reference[8];
    std::memcpy(reference, pixels, 8);
    transform->Apply(reinterpret_cast<std::byte*>(pixels), 2);
    transform->ApplyWithLcms(reinterpret_cast<std::byte*>(reference), 2);
    EXPECT_EQ(std::vector<std::uint8_t>(pixels, pixels + 4), std::vector<std::uint8_t>(4, 0));
    EXPECT_EQ(pixels[7], 128);
    for (int c = 4; c < 7; ++c) {
        EXPECT_LE(pixels[c], pixels[7]);
        EXPECT_NEAR(pixels[c], reference[c], 2);
    }
}

TEST(ColourTransform, RefusesFormatsItDoesNotTake) {
    std::shared_ptr<const ColourTransform> transform;
    EXPECT_EQ(
        ColourTransform::Create(AdobeRgbProfile(), SrgbProfile(), PixelFormat::Rgb24, transform),
        WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT);
    EXPECT_EQ(ColourTransform::Create(AdobeRgbProfile(), nullptr, PixelFormat::Bgr24, transform),
              E_INVALID_PROFILE);
    EXPECT_EQ(transform, nullptr);
}

TEST(ColourTransform, StageConvertsTheRowsItCopies) {
    std::shared_ptr<const ColourTransform> transform;
    ASSERT_EQ(
        ColourTransform::Create(AdobeRgbProfile(), SrgbProfile(), PixelFormat::Bgr32, transform),
        S_OK);
    const std::vector<std::byte> pixels = TestPicture(PixelFormat::Bgr32, 40, 30);
    auto stage = ColourTransformed(
        imaging::MemorySource::Borrow({40, 30}, PixelFormat::Bgr32, 160, pixels), transform);
    ASSERT_NE(stage, nullptr);
    std::vector<std::byte> out(10 * 4 * 5);
    ASSERT_EQ(stage->CopyPixels({7, 11, 10, 5}, 40, out), S_OK);
    std::vector<std::byte> expected(10 * 4);
    std::memcpy(expected.data(), &pixels[(11 * 40 + 7) * 4], 40);
    transform->ApplyWithLcms(expected.data(), 10);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(int(out[i]), int(expected[i]), 1);
    }
    EXPECT_EQ(
        ColourTransformed(imaging::MemorySource::Borrow({40, 30}, PixelFormat::Bgra32, 160, pixels),
                          transform),
        nullptr);
}

// Rows wider than the stage's piece are pulled and converted one by one.
TEST(ColourTransform, StageConvertsEveryPieceOfAWideCopy) {
    std::shared_ptr<const ColourTransform> transform;
    ASSERT_EQ(
        ColourTransform::Create(AdobeRgbProfile(), SrgbProfile(), PixelFormat::Bgr24, transform),
        S_OK);
    const std::uint32_t width = 100000, height = 4;
    const std::vector<std::byte> pixels = TestPicture(PixelFormat::Bgr24, width, height);
    auto stage = ColourTransformed(
        imaging::MemorySource::Borrow({width, height}, PixelFormat::Bgr24, width * 3, pixels),
        transform);
    std::vector<std::byte> out(pixels.size());
    ASSERT_EQ(stage->CopyAll(width * 3, out), S_OK);
    std::vector<std::byte> expected = pixels;
    for (std::uint32_t y = 0; y < height; ++y) {
        transform->Apply(expected.data() + std::size_t{y} * width * 3, width);
    }
    EXPECT_EQ(out, expected);
}

}  // namespace
}  // namespace orvanta::decode

#include "platform/imaging/flip_rotator.h"

#include <vector>

#include <gtest/gtest.h>

#include "test_sources.h"

namespace orvanta::imaging {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Point {
    std::uint32_t x;
    std::uint32_t y;
};

// Where the displayed pixel (x, y) sits in the stored picture, from the meaning of each
// EXIF orientation ("row 0 is the visual ...") rather than from the transform options.
Point Stored(int orientation, Point d, PixelSize stored) {
    const std::uint32_t w = stored.width;
    const std::uint32_t h = stored.height;
    switch (orientation) {
        case 2:
            return {w - 1 - d.x, d.y};
        case 3:
            return {w - 1 - d.x, h - 1 - d.y};
        case 4:
            return {d.x, h - 1 - d.y};
        case 5:
            return {d.y, d.x};
        case 6:
            return {d.y, h - 1 - d.x};
        case 7:
            return {w - 1 - d.y, h - 1 - d.x};
        case 8:
            return {w - 1 - d.y, d.x};
        default:
            return d;
    }
}

// Three bytes a pixel, each naming its stored position: any misplaced pixel shows.
std::uint8_t Value(std::uint32_t x, std::uint32_t y, std::uint32_t k) {
    const std::uint32_t v = k == 0 ? x : k == 1 ? y : (x >> 8) | (y >> 8) << 4;
    return static_cast<std::uint8_t>(v & 0xFF);
}

std::unique_ptr<MemorySource> Picture(PixelSize size) {
    return test::MakePicture(size, PixelFormat::Bgr24, Value);
}

void ExpectShows(BitmapSource& shown, int orientation, PixelSize stored, const PixelRect& rect) {
    const Bytes out = test::ReadRect(shown, rect);
    ASSERT_EQ(out.size(), std::size_t(rect.width) * rect.height * 3);
    for (std::int32_t y = 0; y < rect.height; ++y) {
        for (std::int32_t x = 0; x < rect.width; ++x) {
            const Point s = Stored(
                orientation,
                {static_cast<std::uint32_t>(rect.x + x), static_cast<std::uint32_t>(rect.y + y)},
                stored);
            const std::uint8_t* p = &out[(std::size_t(y) * rect.width + x) * 3];
            ASSERT_TRUE(p[0] == Value(s.x, s.y, 0) && p[1] == Value(s.x, s.y, 1) &&
                        p[2] == Value(s.x, s.y, 2))
                << "orientation " << orientation << " pixel " << rect.x + x << "," << rect.y + y
                << " shows " << int(p[0]) << "," << int(p[1]);
        }
    }
}

class Orientation : public ::testing::TestWithParam<int> {};

TEST_P(Orientation, ShowsEachPixelWhereTheOrientationPutsIt) {
    const int orientation = GetParam();
    const PixelSize stored{5, 3};
    auto shown = FlipRotated(Picture(stored), OrientationTransform(orientation));
    ASSERT_NE(shown, nullptr);
    const PixelSize turned{3, 5};
    EXPECT_EQ(shown->Size(), orientation >= 5 ? turned : stored);
    const auto w = static_cast<std::int32_t>(shown->Size().width);
    const auto h = static_cast<std::int32_t>(shown->Size().height);
    for (const PixelRect rect :
         {PixelRect{0, 0, w, h}, PixelRect{1, 1, w - 2, h - 1}, PixelRect{w - 1, 0, 1, h},
          PixelRect{0, h - 1, w, 1}, PixelRect{1, 2, 1, 1}}) {
        ExpectShows(*shown, orientation, stored, rect);
    }
}

// Over a streaming decoder: a mirror alone still streams; a turn or a vertical flip reads
// the decoder once, forward, into a materialized copy.
TEST_P(Orientation, WorksOverASequentialSource) {
    const int orientation = GetParam();
    const PixelSize stored{300, 1100};  // more than one band of output
    test::ReadLog log;
    auto shown =
        FlipRotated(std::make_unique<test::ProbeSource>(Picture(stored), Access::Sequential, &log),
                    OrientationTransform(orientation));
    ASSERT_NE(shown, nullptr);
    EXPECT_EQ(shown->GetAccess(), orientation <= 2 ? Access::Sequential : Access::Random);
    const auto w = static_cast<std::int32_t>(shown->Size().width);
    const auto h = static_cast<std::int32_t>(shown->Size().height);
    ExpectShows(*shown, orientation, stored, {0, 0, w, h / 2});
    ExpectShows(*shown, orientation, stored, {0, h / 2, w, h - h / 2});
    EXPECT_EQ(log.backwardReads, 0);
    EXPECT_EQ(log.rowsServed, stored.height);
}

INSTANTIATE_TEST_SUITE_P(Exif, Orientation, ::testing::Range(1, 9));

TEST(FlipRotator, CombinationsThatCancelOutHandBackTheInput) {
    std::unique_ptr<BitmapSource> picture = Picture({4, 2});
    BitmapSource* raw = picture.get();
    picture = FlipRotated(std::move(picture), Transform::Rotate180 | Transform::FlipHorizontal |
                                                  Transform::FlipVertical);
    EXPECT_EQ(picture.get(), raw);
    EXPECT_EQ(FlipRotated(std::move(picture), static_cast<Transform>(4)), nullptr);
    auto packed = test::MakePicture({8, 1}, PixelFormat::Indexed1,
                                    [](std::uint32_t, std::uint32_t, std::uint32_t) { return 0; });
    EXPECT_EQ(FlipRotated(std::move(packed), Transform::Rotate90), nullptr);
}

// A vertical flip alone is a half turn and a mirror: both spellings show the same picture.
TEST(FlipRotator, VerticalFlipMatchesOrientationFour) {
    const PixelSize stored{6, 4};
    auto flipped = FlipRotated(Picture(stored), Transform::FlipVertical);
    auto turned = FlipRotated(Picture(stored), Transform::Rotate90 | Transform::FlipVertical);
    ASSERT_NE(flipped, nullptr);
    ASSERT_NE(turned, nullptr);
    ExpectShows(*flipped, 4, stored, {0, 0, 6, 4});
    // Rotate 90 then flip vertically is the anti-transpose, orientation 7.
    ExpectShows(*turned, 7, stored, {0, 0, 4, 6});
}

}  // namespace
}  // namespace orvanta::imaging

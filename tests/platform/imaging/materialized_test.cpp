#include "platform/imaging/materialized.h"

#include <gtest/gtest.h>

#include "test_sources.h"

namespace orvanta::imaging {
namespace {

std::unique_ptr<MemorySource> Picture(std::uint32_t width, std::uint32_t height) {
    return test::MakePicture({width, height}, PixelFormat::Bgr24,
                             [](std::uint32_t x, std::uint32_t y, std::uint32_t k) {
                                 return static_cast<std::uint8_t>(x * 7 + y * 13 + k);
                             });
}

TEST(Materialized, LeavesARandomSourceAsItIs) {
    auto picture = Picture(4, 4);
    BitmapSource* raw = picture.get();
    EXPECT_EQ(Materialized(std::move(picture)).get(), raw);
}

TEST(Materialized, ReadsASequentialSourceOnceTopToBottomAndServesAnyRectangle) {
    test::ReadLog log;
    auto source = Materialized(
        std::make_unique<test::ProbeSource>(Picture(40, 30), Access::Sequential, &log));
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->GetAccess(), Access::Random);
    auto reference = Picture(40, 30);

    // Rows are decoded only as far as a request needs them.
    EXPECT_EQ(test::ReadRect(*source, {5, 0, 10, 4}), test::ReadRect(*reference, {5, 0, 10, 4}));
    EXPECT_EQ(log.rowsServed, 4);
    for (const PixelRect rect : {PixelRect{0, 20, 40, 10}, PixelRect{3, 2, 1, 25},
                                 PixelRect{39, 0, 1, 30}, PixelRect{0, 0, 40, 30}}) {
        EXPECT_EQ(test::ReadRect(*source, rect), test::ReadRect(*reference, rect));
    }
    EXPECT_EQ(log.backwardReads, 0);
    EXPECT_EQ(log.rowsServed, 30);
}

TEST(Materialized, KeepsATruncationCodeAndAFailure) {
    test::ReadLog truncatedLog;
    auto truncated = Materialized(std::make_unique<test::ProbeSource>(
        Picture(8, 8), Access::Sequential, &truncatedLog, S_FALSE));
    Result result;
    EXPECT_FALSE(test::ReadAll(*truncated, &result).empty());
    EXPECT_EQ(result, S_FALSE);
    test::ReadRect(*truncated, {0, 0, 2, 2}, &result);
    EXPECT_EQ(result, S_FALSE);

    test::ReadLog failingLog;
    auto failing = Materialized(std::make_unique<test::ProbeSource>(
        Picture(8, 8), Access::Sequential, &failingLog, E_FAIL));
    test::ReadAll(*failing, &result);
    EXPECT_EQ(result, E_FAIL);
    test::ReadAll(*failing, &result);
    EXPECT_EQ(result, E_FAIL);
    EXPECT_EQ(failingLog.requests, 1);  // not decoded again
}

}  // namespace
}  // namespace orvanta::imaging

#include "platform/imaging/memory_source.h"

#include <vector>

#include <gtest/gtest.h>

#include "test_sources.h"

namespace orvanta::imaging {
namespace {

struct PackedCase {
    PixelFormat format;
    unsigned bits;
};

class PackedRect : public ::testing::TestWithParam<PackedCase> {};

// A rectangle that starts inside a byte comes out with its first pixel in the most
// significant bits, for every start position within the byte.
TEST_P(PackedRect, StartsAtTheTopBitsWhereverItBegins) {
    const auto [format, bits] = GetParam();
    constexpr std::uint32_t kWidth = 13;
    constexpr std::uint32_t kHeight = 3;
    const unsigned mask = (1u << bits) - 1;
    auto index = [&](std::uint32_t x, std::uint32_t y) { return (x * 3 + y * 5) & mask; };
    const std::size_t stride = (kWidth * bits + 7) / 8 + 1;  // with a padding byte
    std::vector<std::byte> pixels(stride * kHeight);
    for (std::uint32_t y = 0; y < kHeight; ++y) {
        for (std::uint32_t x = 0; x < kWidth; ++x) {
            const std::size_t bit = x * bits;
            auto& byte = pixels[y * stride + bit / 8];
            byte |= static_cast<std::byte>(index(x, y) << (8 - bits - bit % 8));
        }
    }
    auto source = MemorySource::Borrow({kWidth, kHeight}, format, stride, pixels);
    ASSERT_NE(source, nullptr);
    for (std::int32_t x0 = 0; x0 < 8; ++x0) {
        const std::int32_t width = static_cast<std::int32_t>(kWidth) - x0;
        const auto out = test::ReadRect(*source, {x0, 1, width, 2});
        ASSERT_FALSE(out.empty());
        const std::size_t outStride = source->RowBytes(static_cast<std::uint32_t>(width));
        for (std::int32_t y = 0; y < 2; ++y) {
            for (std::int32_t x = 0; x < width; ++x) {
                const std::size_t bit = static_cast<std::size_t>(x) * bits;
                const unsigned got = (out[y * outStride + bit / 8] >> (8 - bits - bit % 8)) & mask;
                EXPECT_EQ(got, index(static_cast<std::uint32_t>(x0 + x),
                                     static_cast<std::uint32_t>(y + 1)))
                    << "x0 " << x0 << " at " << x << "," << y;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, PackedRect,
                         ::testing::Values(PackedCase{PixelFormat::Indexed1, 1},
                                           PackedCase{PixelFormat::Indexed2, 2},
                                           PackedCase{PixelFormat::Indexed4, 4}));

TEST(MemorySource, RefusesALayoutItsBytesDoNotHold) {
    std::vector<std::byte> pixels(4 * 12 + 4 * 3 - 1);
    EXPECT_EQ(MemorySource::Borrow({4, 5}, PixelFormat::Bgr24, 12, pixels), nullptr);
    EXPECT_EQ(MemorySource::Borrow({4, 5}, PixelFormat::Bgr24, 11, pixels), nullptr);
    EXPECT_EQ(MemorySource::Borrow({4, 5}, PixelFormat::Unknown, 12, pixels), nullptr);
    // The last row needs no padding after it.
    pixels.push_back({});
    EXPECT_NE(MemorySource::Borrow({4, 5}, PixelFormat::Bgr24, 12, pixels), nullptr);
}

TEST(MemorySource, OwnsAPixelBufferAndServesItsRows) {
    PixelBuffer buffer;
    ASSERT_EQ(PixelBuffer::Create({3, 2}, PixelFormat::Gray8, 0, buffer), S_OK);
    for (std::uint32_t y = 0; y < 2; ++y) {
        for (std::uint32_t x = 0; x < 3; ++x) {
            buffer.Row(y)[x] = static_cast<std::byte>(10 * y + x);
        }
    }
    auto source = MemorySource::Own(std::move(buffer));
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(test::ReadRect(*source, {1, 0, 2, 2}), (std::vector<std::uint8_t>{1, 2, 11, 12}));
}

}  // namespace
}  // namespace orvanta::imaging

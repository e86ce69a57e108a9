#include "decode/abortable_copy.h"

#include <atomic>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "decode/colour_profiles.h"

namespace orvanta::decode {
namespace {

using imaging::PixelFormat;
using imaging::PixelRect;
using imaging::PixelSize;

// Pixel (x, y) has B = x, G = y, R = x + y (mod 256); it records the rectangles it is asked
// for, can set an abort flag once a given number of rows has been served, and can report a
// cut-short file.
class ProbeSource final : public imaging::BitmapSource {
public:
    ProbeSource(PixelSize size, PixelFormat format)
        : BitmapSource(size, format, imaging::Access::Sequential) {}

    std::vector<PixelRect> requests;
    std::atomic<std::uint32_t>* abortAfter = nullptr;
    std::int32_t abortAfterRows = 0;
    Result answer = S_OK;

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        requests.push_back(rect);
        const std::size_t bytes = imaging::BitsPerPixel(Format()) / 8;
        for (std::int32_t y = 0; y < rect.height; ++y) {
            for (std::int32_t x = 0; x < rect.width; ++x) {
                std::byte* p = out.data() + y * stride + x * bytes;
                const int px = rect.x + x, py = rect.y + y;
                const std::uint8_t v[4] = {std::uint8_t(px), std::uint8_t(py),
                                           std::uint8_t(px + py), 255};
                std::memcpy(p, v, std::min<std::size_t>(bytes, 4));
            }
        }
        served_ += rect.height;
        if (abortAfter != nullptr && served_ >= abortAfterRows) {
            abortAfter->store(1);
        }
        return answer;
    }
    std::int32_t served_ = 0;
};

struct BandCase {
    std::uint32_t height;
    std::uint32_t rows;
};

class Bands : public testing::TestWithParam<BandCase> {};

TEST_P(Bands, HalveAboveTheCeilingThenRoundUpTo128) {
    EXPECT_EQ(BandRows(GetParam().height), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(Heights, Bands,
                         testing::Values(BandCase{1, 128}, BandCase{100, 128}, BandCase{512, 512},
                                         BandCase{513, 256}, BandCase{2100, 384},
                                         BandCase{1000, 512}, BandCase{4000, 512},
                                         BandCase{16384, 1024}, BandCase{20000, 1280}),
                         [](const testing::TestParamInfo<BandCase>& info) {
                             return "h" + std::to_string(info.param.height);
                         });

struct Copy {
    std::unique_ptr<AbortableSource> source;
    ProbeSource* probe;
    std::vector<std::byte> pixels;
    std::vector<std::uint32_t> progress;
};

Copy MakeCopy(PixelSize size, PixelFormat format) {
    auto probe = std::make_unique<ProbeSource>(size, format);
    Copy copy{nullptr, probe.get(), {}, {}};
    copy.source = AbortableSource::Create(std::move(probe));
    copy.pixels.resize(copy.source->RowBytes(size.width) * size.height);
    return copy;
}

Result CopyAll(Copy& copy) {
    return copy.source->CopyAll(copy.source->RowBytes(copy.source->Size().width), copy.pixels);
}

TEST(AbortableCopy, ReportsBeginEachBandAndEnd) {
    Copy copy = MakeCopy({4, 2100}, PixelFormat::Bgr24);
    copy.source->SetCallback([&](std::uint32_t percent) {
        copy.progress.push_back(percent);
        return S_OK;
    });
    ASSERT_EQ(CopyAll(copy), S_OK);
    // 2100 rows: bands of 384, the last one 180 rows.
    EXPECT_EQ(copy.progress, (std::vector<std::uint32_t>{0, 18, 36, 54, 73, 91, 100, 100}));
    ASSERT_EQ(copy.probe->requests.size(), 6u);
    EXPECT_EQ(copy.probe->requests[1], (PixelRect{0, 384, 4, 384}));
    EXPECT_EQ(copy.probe->requests[5], (PixelRect{0, 1920, 4, 180}));
    EXPECT_EQ(static_cast<std::uint8_t>(copy.pixels[(2099 * 4 + 3) * 3 + 1]), 2099 % 256);
}

TEST(AbortableCopy, WithoutCallbackCopiesInOneCall) {
    Copy copy = MakeCopy({4, 2100}, PixelFormat::Bgr24);
    ASSERT_EQ(CopyAll(copy), S_OK);
    EXPECT_EQ(copy.probe->requests, (std::vector<PixelRect>{{0, 0, 4, 2100}}));
}

TEST(AbortableCopy, AbortFlagSetDuringTheCopyEndsItAfterThatBand) {
    std::atomic<std::uint32_t> abort{0};
    Copy copy = MakeCopy({8, 2048}, PixelFormat::Bgr32);
    copy.probe->abortAfter = &abort;
    copy.probe->abortAfterRows = 600;  // during the second band
    copy.source->SetCallback(AbortCallback(abort));
    EXPECT_EQ(CopyAll(copy), E_ABORT);
    EXPECT_EQ(copy.probe->requests.size(), 2u);
}

TEST(AbortableCopy, FailingBeginNotificationCopiesNothing) {
    std::atomic<std::uint32_t> abort{1};
    Copy copy = MakeCopy({8, 64}, PixelFormat::Bgr32);
    copy.source->SetCallback(AbortCallback(abort));
    EXPECT_EQ(CopyAll(copy), E_ABORT);
    EXPECT_TRUE(copy.probe->requests.empty());
}

TEST(AbortableCopy, SourceFailureAndCutShortFileComeThrough) {
    Copy failing = MakeCopy({8, 1200}, PixelFormat::Bgr32);
    failing.probe->answer = E_FAIL;
    failing.source->SetCallback([](std::uint32_t) { return S_OK; });
    EXPECT_EQ(CopyAll(failing), E_FAIL);
    EXPECT_EQ(failing.probe->requests.size(), 1u);

    Copy cut = MakeCopy({8, 1200}, PixelFormat::Bgr32);
    cut.probe->answer = S_FALSE;
    cut.source->SetCallback([](std::uint32_t) { return S_OK; });
    EXPECT_EQ(CopyAll(cut), S_FALSE);
}

// A picture wide enough that each band is copied and counted in several pieces, counted in
// line and on the counting thread.
class CountingPlace : public testing::TestWithParam<bool> {};

TEST_P(CountingPlace, CountsEveryPixelOnceAcrossBandsAndPieces) {
    const PixelSize size{20000, 700};
    Copy copy = MakeCopy(size, PixelFormat::Bgr32);
    copy.source->SetCallback([](std::uint32_t) { return S_OK; });
    copy.source->SetCountAside(GetParam());
    ASSERT_TRUE(copy.source->Counts());
    ASSERT_EQ(CopyAll(copy), S_OK);
    EXPECT_GT(copy.probe->requests.size(), 2u);

    HistogramBlock expected;
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            ++expected.blue[x % 256];
            ++expected.green[y % 256];
            ++expected.red[(x + y) % 256];
        }
    }
    FinishHistogram(expected);
    const HistogramBlock actual = copy.source->Histogram();
    EXPECT_EQ(actual.blue, expected.blue);
    EXPECT_EQ(actual.green, expected.green);
    EXPECT_EQ(actual.red, expected.red);
    EXPECT_EQ(actual.maxima, expected.maxima);
}

// A colour stage under the copy is taken apart and converted piece by piece by the copy:
// the pixels are those the stage gives by itself, and the histogram counts them as
// converted. A format that is not counted is converted all the same.
TEST_P(CountingPlace, ConvertsColourOfAStageUnderItBeforeCounting) {
    std::shared_ptr<const ColourTransform> transform;
    for (const PixelFormat format : {PixelFormat::Pbgra32, PixelFormat::Bgra32}) {
        ASSERT_EQ(ColourTransform::Create(AdobeRgbProfile(), SrgbProfile(), format, transform),
                  S_OK);
        const PixelSize size{3000, 700};
        const std::size_t stride = std::size_t{size.width} * 4;
        std::vector<std::byte> alone(stride * size.height);
        ASSERT_EQ(ColourTransformed(std::make_unique<ProbeSource>(size, format), transform)
                      ->CopyAll(stride, alone),
                  S_OK);

        auto copy = AbortableSource::Create(
            ColourTransformed(std::make_unique<ProbeSource>(size, format), transform));
        copy->SetCallback([](std::uint32_t) { return S_OK; });
        copy->SetCountAside(GetParam());
        std::vector<std::byte> pixels(alone.size());
        ASSERT_EQ(copy->CopyAll(stride, pixels), S_OK);
        EXPECT_TRUE(pixels == alone) << imaging::Info(format).name;
        HistogramBlock expected;
        CountRows(format, alone.data(), stride, size.width, size.height, expected);
        FinishHistogram(expected);
        const HistogramBlock actual = copy->Histogram();
        EXPECT_EQ(std::memcmp(&actual, &expected, sizeof actual), 0) << imaging::Info(format).name;
    }
}

INSTANTIATE_TEST_SUITE_P(AbortableCopy, CountingPlace, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "Aside" : "InLine";
                         });

// A copy aborted part-way still joins its counting thread and keeps what it counted.
TEST(AbortableCopy, AbortedCopyCountedAsideStopsCleanly) {
    std::atomic<std::uint32_t> abort{0};
    Copy copy = MakeCopy({4096, 2048}, PixelFormat::Bgr32);
    copy.probe->abortAfter = &abort;
    copy.probe->abortAfterRows = 600;
    copy.source->SetCallback(AbortCallback(abort));
    copy.source->SetCountAside(true);
    EXPECT_EQ(CopyAll(copy), E_ABORT);
    const HistogramBlock counted = copy.source->Histogram();
    // The two bands copied before the abort (rows 0..1023) are counted: G = 7 in rows 7,
    // 263, 519 and 775.
    EXPECT_EQ(counted.green[7], 4096u * 4);
}

TEST(AbortableCopy, UncountedFormatLeavesHistogramEmpty) {
    Copy copy = MakeCopy({16, 16}, PixelFormat::Bgra32);
    ASSERT_EQ(CopyAll(copy), S_OK);
    EXPECT_FALSE(copy.source->Counts());
    EXPECT_EQ(copy.source->Histogram().maxima, (std::array<std::uint32_t, 3>{0, 0, 0}));
}

}  // namespace
}  // namespace orvanta::decode

#include "display/quick_reduction.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

namespace orvanta::display {
namespace {

// Each pixel names its own place: x in the low 16 bits, y above.
QImage Numbered(int width, int height, QImage::Format format = QImage::Format_RGB32) {
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<quint32*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            row[x] = 0xFF000000u | quint32(y) << 12 | quint32(x);
        }
    }
    return format == QImage::Format_RGB32 ? image : image.convertToFormat(format);
}

int Centre(int i, int count, int length) {
    return std::min(length - 1, static_cast<int>(std::floor((i + 0.5) * length / count)));
}

struct Case {
    int fromWidth, fromHeight, width, height;
};

class QuickReductionTest : public ::testing::TestWithParam<Case> {};

// Every result pixel is the picture pixel under its centre, in small and large (shared with
// a pool thread) reductions, odd ratios and enlargements; the rows are handed on in order,
// each once.
TEST_P(QuickReductionTest, TakesThePixelUnderEachCentre) {
    const Case c = GetParam();
    const QImage picture = Numbered(c.fromWidth, c.fromHeight);
    QImage into;
    std::vector<int> handed;
    ASSERT_TRUE(QuickReduction(picture, QSize(c.width, c.height), into, [&](int first, int count) {
        for (int y = first; y < first + count; ++y) {
            handed.push_back(y);
        }
    }));
    ASSERT_EQ(into.size(), QSize(c.width, c.height));
    ASSERT_EQ(static_cast<int>(handed.size()), c.height);
    for (int y = 0; y < c.height; ++y) {
        ASSERT_EQ(handed[static_cast<std::size_t>(y)], y);
        const auto* row = reinterpret_cast<const quint32*>(into.constScanLine(y));
        for (int x = 0; x < c.width; ++x) {
            const quint32 want = 0xFF000000u | quint32(Centre(y, c.height, c.fromHeight)) << 12 |
                                 quint32(Centre(x, c.width, c.fromWidth));
            ASSERT_EQ(row[x], want) << x << "," << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, QuickReductionTest,
                         ::testing::Values(Case{4000, 3000, 1440, 1080}, Case{3001, 2003, 997, 665},
                                           Case{7, 5, 3, 2}, Case{1, 1, 1, 1}, Case{5, 3, 11, 7},
                                           Case{4000, 1, 1000, 1}));

TEST(QuickReduction, ReusesStorageAndConvertsOtherFormats) {
    QImage into;
    ASSERT_TRUE(QuickReduction(Numbered(800, 600), QSize(400, 300), into));
    const uchar* storage = into.constBits();
    ASSERT_TRUE(QuickReduction(Numbered(800, 600), QSize(400, 300), into));
    EXPECT_EQ(into.constBits(), storage);

    // A 24-bit picture is made 32-bit first; its pixels keep their colour.
    QImage rgb(64, 64, QImage::Format_RGB888);
    rgb.fill(QColor(10, 200, 30));
    ASSERT_TRUE(QuickReduction(rgb, QSize(16, 16), into));
    EXPECT_EQ(into.depth(), 32);
    EXPECT_EQ(QColor(into.pixel(5, 5)), QColor(10, 200, 30));

    EXPECT_FALSE(QuickReduction(QImage(), QSize(4, 4), into));
    EXPECT_TRUE(into.isNull());
    EXPECT_FALSE(QuickReduction(rgb, QSize(0, 4), into));
}

}  // namespace
}  // namespace orvanta::display

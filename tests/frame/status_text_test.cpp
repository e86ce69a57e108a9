#include "frame/status_text.h"

#include <gtest/gtest.h>

#include "support/english_module.h"

namespace orvanta::frame {
namespace {

// The texts of the shipped English module, so that the line reads as users see it.
std::string English(int id) {
    return std::string(test::EnglishModule().String(id));
}

StatusInput Picture() {
    StatusInput in;
    in.position = 12;
    in.count = 240;
    in.hasPicture = true;
    in.zoomPercent = 25;
    return in;
}

TEST(StatusText, CounterShowsScanningAndNewArrivals) {
    StatusInput in = Picture();
    in.hasPicture = false;
    EXPECT_EQ(StatusLine(in, English), "12/240 by name");
    in.scanning = true;
    EXPECT_EQ(StatusLine(in, English), "12/240+ by name");
    in.newPictures = 3;
    EXPECT_EQ(StatusLine(in, English), "12/240++[3] by name");
    in.scanning = false;
    EXPECT_EQ(StatusLine(in, English), "12/240+[3] by name");
}

TEST(StatusText, OrderTextAndBookmark) {
    StatusInput in = Picture();
    in.hasPicture = false;
    const std::pair<std::uint32_t, const char*> orders[] = {{0, "by name"},
                                                            {1, "by file time"},
                                                            {2, "by file time"},
                                                            {3, "by date taken"},
                                                            {4, "by GPS time"}};
    for (auto [order, text] : orders) {
        in.sortOrder = order;
        EXPECT_EQ(StatusLine(in, English), std::string("12/240 ") + text);
    }
    in.sortOrder = 0;
    in.bookmarkNumber = 3;
    EXPECT_EQ(StatusLine(in, English), "12/240 by name [3]");
    in.bookmarkName = "Sunset";
    EXPECT_EQ(StatusLine(in, English), "12/240 by name [3, Sunset]");
    in.bookmarkNumber.reset();
    EXPECT_EQ(StatusLine(in, English), "12/240 by name [Sunset]");
    // A long name is cut to 64 characters.
    in.bookmarkName = std::string(70, 'b');
    EXPECT_EQ(StatusLine(in, English), "12/240 by name [" + std::string(64, 'b') + "]");
}

TEST(StatusText, DetailsMarksZoomAndModeInOrder) {
    StatusInput in = Picture();
    EXPECT_EQ(StatusLine(in, English), "12/240 by name   25% fit reduced");

    in.width = 6000;
    in.height = 4000;
    in.bitsPerPixel = 14;
    in.rating = 3;
    in.label = 2;
    in.labellingConvention = 1;
    in.urgency = 1;
    in.kept = true;
    in.way = ViewWay::ActualSize;
    in.zoomPercent = 100;
    in.mode = RunningMode::Auto;
    EXPECT_EQ(StatusLine(in, English),
              "12/240 by name   6000 x 4000  14 bit  Rated 3  Label Orange  Urgency 1  kept   "
              "100% actual size 1:1  [Auto]");

    // Cleared marks disappear; an index without a colour under the convention shows as a
    // number; the tag and the enlarged flag change the zoom part.
    in.width = in.height = in.bitsPerPixel = 0;
    in.kept = false;
    in.rating = 0;
    in.urgency = -1;
    in.label = 7;
    in.labellingConvention = 0;
    in.tag = "CMYK";
    in.way = ViewWay::Fit;
    in.enlarged = true;
    in.zoomPercent = 180;
    in.mode = RunningMode::Track;
    in.subFolders = true;
    EXPECT_EQ(StatusLine(in, English),
              "12/240 by name   Label 7   [CMYK] 180% fit enlarged  [Track, sub-folders]");

    in.mode = RunningMode::Camera;
    in.connecting = true;
    EXPECT_NE(StatusLine(in, English).find("  [Tethered, connecting]"), std::string::npos);
    in.way = ViewWay::Magnifier;
    in.mode = RunningMode::None;
    EXPECT_EQ(StatusLine(in, English), "12/240 by name   Label 7   [CMYK] 180% magnifier enlarged");
}

TEST(StatusText, SliderLabel) {
    EXPECT_EQ(SliderLabel(5, 80, "IMG_5.jpg", 0, 1, ""), "5 / 80");
    EXPECT_EQ(SliderLabel(5, 80, "scan.tif", 2, 4, ""), "scan.tif [3/4]");
    EXPECT_EQ(SliderLabel(5, 80, "IMG_5.jpg", 0, 1, "23/11/2026 10:15"),
              "5 / 80  23/11/2026 10:15");
}

}  // namespace
}  // namespace orvanta::frame

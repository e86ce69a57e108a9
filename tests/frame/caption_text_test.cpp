#include "frame/caption_text.h"

#include <gtest/gtest.h>

namespace orvanta::frame {
namespace {

LabelEntry Entry(std::string base, std::string ext, std::uint32_t index = 0,
                 std::uint32_t count = 1) {
    return {std::move(base), std::move(ext), index, count};
}

TEST(CaptionText, LabelNamesSiblingExtensionsAndFrames) {
    EXPECT_EQ(EntryLabel(Entry("/shots/IMG_0001", "jpg;nef")), "/shots/IMG_0001.jpg;nef");
    EXPECT_EQ(EntryLabel(Entry("/shots/scan", "tif", 1, 5)), "/shots/scan.tif [2/5]");
    // A single frame gets no suffix; the label keeps its buffer's limit.
    EXPECT_EQ(EntryLabel(Entry("/a", "gif", 0, 1)), "/a.gif");
    EXPECT_EQ(EntryLabel(Entry("/" + std::string(600, 'x'), "jpg")).size(), kLabelChars - 1);
    EXPECT_EQ(LabelFileName("/shots/IMG_0001.jpg;nef"), "IMG_0001.jpg;nef");
    EXPECT_EQ(LabelFileName("plain"), "plain");
}

TEST(CaptionText, CaptionFollowsLabelAndSetting) {
    CaptionState state;
    LabelEntry first = Entry("/shots/IMG_1", "jpg");
    auto update = state.Refresh(&first, false, "Waiting", true, "Orvanta", "Orvanta");
    EXPECT_TRUE(update.labelChanged);
    EXPECT_EQ(update.label, "/shots/IMG_1.jpg");
    EXPECT_EQ(update.caption, "IMG_1.jpg - Orvanta");

    // Same label and setting: nothing is set again.
    update = state.Refresh(&first, false, "Waiting", true, "Orvanta", "IMG_1.jpg - Orvanta");
    EXPECT_FALSE(update.labelChanged);
    EXPECT_FALSE(update.caption);

    // Turning the setting off gives the title alone although the label did not change.
    update = state.Refresh(&first, false, "Waiting", false, "Orvanta", "IMG_1.jpg - Orvanta");
    EXPECT_TRUE(update.labelChanged);
    EXPECT_EQ(update.caption, "Orvanta");

    // While waiting the label says so, and the caption still names the entry; a caption
    // already showing that is not set again.
    LabelEntry second = Entry("/shots/IMG_2", "cr2");
    update = state.Refresh(&second, true, "Waiting", true, "Orvanta", "IMG_2.cr2 - Orvanta");
    EXPECT_TRUE(update.labelChanged);
    EXPECT_EQ(update.label, "Waiting");
    EXPECT_FALSE(update.caption);

    // Without an entry the waiting text is what the caption names.
    CaptionState fresh;
    update = fresh.Refresh(nullptr, true, "Waiting", true, "Orvanta", "Orvanta");
    EXPECT_EQ(update.caption, "Waiting - Orvanta");
    update = fresh.Refresh(nullptr, false, "Waiting", true, "Orvanta", "Waiting - Orvanta");
    EXPECT_EQ(update.label, "");
    EXPECT_EQ(update.caption, "Orvanta");
}

}  // namespace
}  // namespace orvanta::frame

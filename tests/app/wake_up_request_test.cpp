#include "app/wake_up_request.h"

#include <gtest/gtest.h>

namespace orvanta::app {
namespace {

using Args = std::vector<std::string>;

TEST(WakeUpRequest, PlainArgumentsBeforeTheFirstSwitchReplaceTheList) {
    auto list = [](Args args) { return DecideWakeUp(args, false).openList; };
    EXPECT_EQ(list({"/shots/a.jpg", "/shots/b.nef"}), "/shots/a.jpg|/shots/b.nef|");
    EXPECT_EQ(list({"/shots/a.jpg", "-k", "/shots/b.nef"}), "/shots/a.jpg|");
    EXPECT_EQ(list({"-k", "/shots/b.nef"}), std::nullopt);  // nothing before the switch
    EXPECT_EQ(list({"-k"}), std::nullopt);
    EXPECT_EQ(list({}), std::nullopt);
    // Absolute paths are plain arguments, not switches.
    EXPECT_EQ(list({"/media/card/DCIM"}), "/media/card/DCIM|");
    EXPECT_FALSE(DecideWakeUp({"/shots/a.jpg"}, false).openFolder);
}

TEST(WakeUpRequest, ImageFolderSwitchWithKeepFolderAndCoolDown) {
    WakeUpDecision named = DecideWakeUp({"-i", "/shots/today", "-c", "/keep"}, false);
    EXPECT_EQ(named.openFolder, "/shots/today");
    EXPECT_EQ(named.keepFolder, "/keep");
    EXPECT_TRUE(named.coolDownAfterOpening);
    EXPECT_FALSE(named.openList);

    WakeUpDecision colon = DecideWakeUp({"/I:/shots/today", "a.jpg"}, false);
    EXPECT_EQ(colon.openFolder, "/shots/today");
    EXPECT_FALSE(colon.openList);  // -i wins over plain arguments

    // -i without a folder opens the pictures folder and starts no cool-down.
    WakeUpDecision empty = DecideWakeUp({"-imageFolder"}, false);
    EXPECT_EQ(empty.openFolder, "");
    EXPECT_FALSE(empty.coolDownAfterOpening);
    EXPECT_FALSE(empty.keepFolder);

    // During the cool-down everything is dropped.
    WakeUpDecision ignored = DecideWakeUp({"-i", "/shots/today", "x.jpg"}, true);
    EXPECT_TRUE(ignored.ignored);
    EXPECT_FALSE(ignored.openFolder);
    EXPECT_FALSE(ignored.openList);
}

}  // namespace
}  // namespace orvanta::app

// Sub-folders watched for names first: which made files are handed out to be fed, and when.
#include "list/watch_upgrades.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvanta::list {
namespace {

using Unseen = std::vector<std::pair<int, std::string>>;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(WatchUpgrades, MadeFilesAreHandedOutAfterTheReadThatFollowsTheFullWatch) {
    WatchUpgrades upgrades;
    upgrades.AddLimited(1);
    upgrades.AddLimited(2);
    upgrades.AddLimited(1);  // met twice: still one folder
    upgrades.Made(1, "a.jpg");
    upgrades.Made(1, "a.jpg");
    upgrades.Made(1, "b.jpg");
    upgrades.Arrived(1, "b.jpg");  // its closing was seen: fed already
    upgrades.Made(2, "c.jpg");
    upgrades.Made(7, "fully watched.jpg");         // not waiting: its closing will be seen
    EXPECT_THAT(upgrades.EndOfRead(), IsEmpty());  // nothing taken yet

    EXPECT_THAT(upgrades.TakeLimited(1), ElementsAre(1));  // oldest first
    // Read after the full watch, but made before it.
    upgrades.Made(1, "d.jpg");
    EXPECT_THAT(upgrades.EndOfRead(),
                ElementsAre(Unseen::value_type{1, "a.jpg"}, Unseen::value_type{1, "d.jpg"}));
    // The folder is done: what is made from now on has its closing seen.
    upgrades.Made(1, "e.jpg");
    EXPECT_TRUE(upgrades.Pending());
    EXPECT_THAT(upgrades.TakeLimited(5), ElementsAre(2));
    EXPECT_FALSE(upgrades.HasLimited());
    EXPECT_THAT(upgrades.EndOfRead(), ElementsAre(Unseen::value_type{2, "c.jpg"}));
    EXPECT_FALSE(upgrades.Pending());
    EXPECT_THAT(upgrades.EndOfRead(), IsEmpty());
}

TEST(WatchUpgrades, FullWatchFromARescanAndLimitedAgain) {
    WatchUpgrades upgrades;
    upgrades.AddLimited(3);
    upgrades.AddLimited(4);
    upgrades.Made(3, "a.jpg");
    upgrades.SetFull(3);  // a rescan watched it fully
    upgrades.SetFull(9);  // never limited: nothing to do
    EXPECT_THAT(upgrades.TakeLimited(5), ElementsAre(4));
    // Limited again before the read that would finish it: it keeps its names and waits.
    upgrades.AddLimited(4);
    upgrades.Made(4, "b.jpg");
    EXPECT_THAT(upgrades.EndOfRead(), ElementsAre(Unseen::value_type{3, "a.jpg"}));
    EXPECT_THAT(upgrades.TakeLimited(5), ElementsAre(4));
    EXPECT_THAT(upgrades.EndOfRead(), ElementsAre(Unseen::value_type{4, "b.jpg"}));
    EXPECT_FALSE(upgrades.Pending());
}

}  // namespace
}  // namespace orvanta::list

// The prefetch cache over a real picture list: the order of the queue, clipping at the
// list's ends, the decoded window following moves, aborting on release, failures and
// memory failures, stopping and shutting down with a decode in progress.
#include "decode/decode_cache.h"

#include "cache_fixture.h"
#include "decode/wait_for_picture.h"

namespace orvanta::decode::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

struct OrderCase {
    const char* name;
    int count;
    int position;
    WindowSize window;
    bool wrap;
    std::vector<int> queued;  // entry numbers, in queue order
};

class QueueOrder : public CacheTest, public testing::WithParamInterface<OrderCase> {};

// No worker runs: the queue holds exactly what the moves asked for.
TEST_P(QueueOrder, FollowsTheWindowPlan) {
    const OrderCase& c = GetParam();
    settings::WrapImageList.Set(c.wrap ? 1 : 0);
    Open(c.count, c.window);
    Show(c.position);
    EXPECT_THAT(QueuedNumbers(), ElementsAreArray(c.queued)) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, QueueOrder,
    testing::Values(
        // Two ahead for each behind, ahead first.
        OrderCase{"middle", 100, 50, {4, 2}, false, {50, 51, 52, 49, 53, 54, 48}},
        // Behind cannot go before the first entry: its steps go ahead.
        OrderCase{"first of a hundred", 100, 1, {4, 2}, false, {1, 2, 3, 4, 5, 6, 7}},
        // Ahead stops at the last entry.
        OrderCase{"near the end", 10, 9, {4, 2}, false, {9, 10, 8, 7}},
        // Wrapping round: behind reaches the last entries.
        OrderCase{"wrapping", 10, 1, {2, 2}, true, {1, 2, 3, 10, 9}},
        // A window larger than the list wants each entry once.
        OrderCase{"short list", 3, 1, {10, 0}, true, {1, 2, 3}},
        OrderCase{"short list behind", 3, 1, {0, 10}, true, {1, 3, 2}},
        OrderCase{"short list both", 3, 1, {10, 10}, true, {1, 2, 3}}),
    [](const auto& info) {
        std::string name = info.param.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        return name;
    });

TEST_F(CacheTest, MovingDropsWhatLeftTheWindowAndKeepsWhatIsStillWanted) {
    auto& list = Open(20, {2, 1});
    Show(1);
    Show(10);
    EXPECT_THAT(QueuedNumbers(), ElementsAre(10, 11, 12, 9));
    EXPECT_FALSE(cache_->IsCached(Entry(1)));
    EXPECT_FALSE(Entry(1).decoding.load());
    EXPECT_EQ(cache_->CachedCount(), 4u);
    list.Next();  // entry 11: 9 leaves, 10 stays queued, 13 joins
    EXPECT_THAT(QueuedNumbers(), ElementsAre(10, 11, 12, 13));
    EXPECT_EQ(cache_->CachedCount(), 4u);
}

TEST_F(CacheTest, WorkersDecodeTheWindowAndMovesDropOldPictures) {
    auto& list = Open(12, {2, 1}, 2);
    Show(5);  // window 4..7
    for (int n : {4, 5, 6, 7}) {
        ASSERT_TRUE(Eventually([&] { return HasPicture(Entry(n)); })) << n;
    }
    list.Next(4);  // entry 9: window 8..11
    for (int n : {8, 9, 10, 11}) {
        ASSERT_TRUE(Eventually([&] { return HasPicture(Entry(n)); })) << n;
    }
    ASSERT_TRUE(Eventually([&] { return cache_->CachedCount() == 4; }));
    for (int n : {4, 5, 6, 7}) {
        EXPECT_FALSE(cache_->IsCached(Entry(n))) << n;
        EXPECT_TRUE(Eventually([&] {
            std::unique_lock lock(Entry(n).decodeLock, std::try_to_lock);
            return lock.owns_lock() && Entry(n).decodedPicture == nullptr;
        })) << n;
    }
    // The current picture is decoded once, however the moves went.
    EXPECT_EQ(decoder_.TimesDecoded("p009"), 1u);
    EXPECT_GE(cache_->Stats().dropped, 4u);
}

TEST_F(CacheTest, ReleasingADecodingEntryAbortsItWithoutWaiting) {
    decoder_.Set("p001", Outcome::Blocking);
    auto& list = Open(5, {0, 0}, 1);
    Show(1);
    ASSERT_TRUE(decoder_.WaitRunning("p001"));
    // The move releases entry 1 while its decode runs: the decode is asked to stop and the
    // picture is freed once it has.
    list.Next();
    EXPECT_EQ(Entry(1).abortFlag.load(), 1u);
    EXPECT_FALSE(cache_->IsCached(Entry(1)));
    ASSERT_TRUE(Eventually([&] { return HasPicture(Entry(2)); }));
    ASSERT_TRUE(Eventually([&] {
        std::unique_lock lock(Entry(1).decodeLock, std::try_to_lock);
        return lock.owns_lock() && !Entry(1).decoding.load() && !Entry(1).decodedPicture;
    }));
    // Going back decodes it again: an aborted decode is not a failure of the picture.
    decoder_.Set("p001", Outcome::Picture);
    list.Previous();
    EXPECT_TRUE(Eventually([&] { return HasPicture(Entry(1)); }));
    EXPECT_EQ(decoder_.TimesDecoded("p001"), 2u);
}

TEST_F(CacheTest, AFailedCurrentEntryIsNotQueuedAgainButAFailedNeighbourIs) {
    decoder_.Set("p001", Outcome::Failure);
    decoder_.Set("p002", Outcome::Failure);
    auto& list = Open(6, {1, 0}, 1);
    Show(1);  // queues entry 1 and its neighbour, entry 2
    ASSERT_TRUE(Eventually([&] { return decoder_.TimesDecoded("p002") == 1; }));
    ASSERT_TRUE(Eventually([&] { return !Entry(1).decoding.load() && !Entry(2).decoding.load(); }));
    EXPECT_FALSE(cache_->IsCached(Entry(1)));  // failed entries leave the decoded set
    EXPECT_EQ(Result(static_cast<std::uint32_t>(Entry(1).decodeResult)), E_FAIL);

    list.First();  // entry 1 stays current and failed; entry 2 is queued again
    ASSERT_TRUE(Eventually([&] { return decoder_.TimesDecoded("p002") == 2; }));
    EXPECT_EQ(decoder_.TimesDecoded("p001"), 1u);
    // The wait reports the failure itself.
    EXPECT_EQ(WaitForPicture(Entry(1), {}, &notices_), E_FAIL);
}

TEST_F(CacheTest, GoingToAnEntryQueuesItFirst) {
    Open(30, {2, 1});
    Show(1);
    cache_->GoToEntry(Entry(20));
    EXPECT_EQ(list_->Position(), 20u);
    EXPECT_THAT(QueuedNumbers(), ElementsAre(20, 21, 22, 19));
}

TEST_F(CacheTest, AMemoryFailureShrinksTheWindowAndDecodesTheEntryAgain) {
    decoder_.Set("p003", Outcome::OutOfMemory);
    Open(10, {3, 2}, 1);
    Show(3);
    ASSERT_TRUE(Eventually([&] { return HasPicture(Entry(3)); }));
    EXPECT_EQ(decoder_.TimesDecoded("p003"), 2u);
    const WindowState window = cache_->Window();
    // One step off each side, to be given back by the decodes that followed.
    EXPECT_EQ(window.pendingAhead + window.ahead, 3);
    EXPECT_EQ(window.pendingBehind + window.behind, 2);
    EXPECT_TRUE(notices_.All().empty());
}

TEST_F(CacheTest, AMemoryFailureThatCannotShrinkTheWindowTellsTheUser) {
    decoder_.Set("p001", Outcome::OutOfMemory);
    Open(3, {0, 0}, 1);
    Show(1);
    ASSERT_TRUE(Eventually([&] { return notices_.All().size() == 2; }));
    const auto notices = notices_.All();
    EXPECT_EQ(notices[0].message, 0x46F);
    EXPECT_EQ(notices[1].message, MemoryTextId::kRaster);
    // Not queued again: the user decides what to do.
    EXPECT_FALSE(cache_->IsCached(Entry(1)));
    EXPECT_TRUE(cache_->Queued().empty());
    EXPECT_EQ(decoder_.TimesDecoded("p001"), 1u);
}

TEST_F(CacheTest, ShutDownAbortsADecodeInProgress) {
    decoder_.Set("p001", Outcome::Blocking);
    Open(3, {1, 0}, 1);
    Show(1);
    ASSERT_TRUE(decoder_.WaitRunning("p001"));
    EXPECT_TRUE(cache_->ShutDown());
    EXPECT_EQ(cache_->CachedCount(), 0u);
    EXPECT_TRUE(cache_->Queued().empty());
    EXPECT_FALSE(Entry(1).decoding.load());
    EXPECT_EQ(decoder_.TimesDecoded("p002"), 0u);
}

TEST_F(CacheTest, ShutDownGoesOnWithoutAWorkerStuckInADecode) {
    timing_.stopWait = std::chrono::milliseconds(20);
    decoder_.Set("p001", Outcome::Stubborn);
    Open(3, {0, 0}, 1);
    Show(1);
    ASSERT_TRUE(decoder_.WaitRunning("p001"));
    // The decode ignores the abort flag: shut-down returns while it still runs.
    EXPECT_FALSE(cache_->ShutDown());
    EXPECT_FALSE(cache_->IsCached(Entry(1)));
    decoder_.LetGo();
    list_->StopScan();  // the list's own threads call the cache too
    cache_.reset();     // joins the worker that was left
    EXPECT_EQ(decoder_.TimesDecoded("p001"), 1u);
}

TEST_F(CacheTest, RestartingEmptiesTheCacheAndTheNewWorkersTakeNewRequests) {
    auto& list = Open(6, {1, 0}, 1);
    Show(1);
    ASSERT_TRUE(Eventually([&] { return HasPicture(Entry(1)) && HasPicture(Entry(2)); }));
    cache_->RestartWorkers();
    EXPECT_EQ(cache_->CachedCount(), 0u);
    EXPECT_FALSE(Entry(1).decodedPicture);
    list.Next(3);  // entry 4
    EXPECT_TRUE(Eventually([&] { return HasPicture(Entry(4)) && HasPicture(Entry(5)); }));
}

TEST_F(CacheTest, WorkerDelaysHalveDownToTheWorkersIndexAndResetOnEveryPlan) {
    auto& list = Open(8, {3, 0});
    Show(1);
    cache_->Start();
    ASSERT_TRUE(Eventually([&] { return cache_->Stats().decodes == 4; }));
    // 8, then 4, 2, 1, 0 after four takes by worker 0.
    EXPECT_EQ(cache_->WorkerDelay(0), 0u);
    list.Next();
    EXPECT_EQ(cache_->WorkerDelay(0), 8u);
    EXPECT_EQ(cache_->WorkerDelay(7), 64u);
}

TEST_F(CacheTest, RemovingAnEntryTakesItOutOfTheCache) {
    auto& list = Open(4, {1, 0});
    Show(1);
    ASSERT_THAT(QueuedNumbers(), ElementsAre(1, 2));
    list.RemoveCurrent();  // entry 2 becomes current
    EXPECT_THAT(QueuedNumbers(), ElementsAre(2, 3));
    EXPECT_EQ(cache_->CachedCount(), 2u);
}

}  // namespace
}  // namespace orvanta::decode::test

// The request queue: refusing a push at its maximum, skipping entries whose decode lock is
// held elsewhere, draining every request of an entry.
#include "decode/decode_request_queue.h"

#include <gtest/gtest.h>

#include "list/picture_entry.h"

namespace orvanta::decode {
namespace {

constexpr std::chrono::milliseconds kNoWait{0};

TEST(DecodeRequestQueue, RefusesAPushAtItsMaximumAndTakesInOrder) {
    list::PictureEntry a, b, c;
    DecodeRequestQueue queue(2);
    EXPECT_TRUE(queue.Push({&a, "jpg"}));
    EXPECT_TRUE(queue.Push({&b, "jpg;nef"}));
    EXPECT_FALSE(queue.Push({&c, "jpg"}));
    DecodeRequest request;
    ASSERT_TRUE(queue.Take(kNoWait, {}, request));
    EXPECT_EQ(request.entry, &a);
    a.decodeLock.unlock();
    ASSERT_TRUE(queue.Take(kNoWait, {}, request));
    EXPECT_EQ(request.entry, &b);
    EXPECT_EQ(request.extensionSet, "jpg;nef");
    b.decodeLock.unlock();
    EXPECT_FALSE(queue.Take(kNoWait, {}, request));
}

TEST(DecodeRequestQueue, ATakeHoldsTheDecodeLockAndSkipsALockedEntry) {
    list::PictureEntry a, b;
    DecodeRequestQueue queue;
    ASSERT_TRUE(queue.Push({&a, "jpg"}));
    ASSERT_TRUE(queue.Push({&b, "jpg"}));
    a.decodeLock.lock();  // another worker, or a release, is busy with it
    DecodeRequest request;
    EXPECT_FALSE(queue.Take(kNoWait, {}, request));
    a.decodeLock.unlock();
    ASSERT_TRUE(queue.Take(kNoWait, {}, request));
    EXPECT_EQ(request.entry, &b);
    EXPECT_FALSE(b.decodeLock.try_lock());
    b.decodeLock.unlock();
    EXPECT_EQ(queue.Size(), 0u);
}

TEST(DecodeRequestQueue, RemoveDrainsEveryRequestOfTheEntry) {
    list::PictureEntry a, b;
    DecodeRequestQueue queue;
    for (auto* entry : {&a, &b, &a, &a}) {
        ASSERT_TRUE(queue.Push({entry, "jpg"}));
    }
    EXPECT_EQ(queue.Remove(&a), 3u);
    EXPECT_EQ(queue.Entries(), std::vector<const list::PictureEntry*>{&b});
    EXPECT_EQ(queue.Remove(&a), 0u);
}

TEST(DecodeRequestQueue, AStopRequestEndsTheWait) {
    DecodeRequestQueue queue;
    std::stop_source stop;
    stop.request_stop();
    DecodeRequest request;
    // Would wait an hour without the stop request.
    EXPECT_FALSE(queue.Take(std::chrono::hours(1), stop.get_token(), request));
}

}  // namespace
}  // namespace orvanta::decode

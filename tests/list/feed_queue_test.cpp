// The feed queue between the scan and the feeder: batches come out whole and in order, and
// drained means every record pushed was dealt with.
#include "list/feed_queue.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace orvanta::list {
namespace {

std::vector<FileFeedRecord> Records(int from, int count) {
    std::vector<FileFeedRecord> records(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        records[static_cast<std::size_t>(i)].path = std::to_string(from + i);
    }
    return records;
}

TEST(FeedQueue, BatchesComeOutInOrderAcrossThreads) {
    FeedQueue queue;
    constexpr int kFiles = 5000;
    std::jthread producer([&queue] {
        int next = 0;
        for (int size = 1; next < kFiles; size = size % 97 + 1) {
            auto batch = Records(next, std::min(size, kFiles - next));
            next += static_cast<int>(batch.size());
            queue.Push(batch);
            EXPECT_TRUE(batch.empty());
            if (next % 3 == 0) {
                queue.Wake();  // a stray wake-up takes no record with it
            }
        }
    });
    std::vector<FileFeedRecord> got;
    int expected = 0;
    while (expected < kFiles) {
        got.clear();
        const std::size_t taken = queue.Pop(got, 64, std::chrono::milliseconds(100));
        ASSERT_EQ(taken, got.size());
        ASSERT_LE(taken, 64u);
        for (const auto& record : got) {
            ASSERT_EQ(record.path, std::to_string(expected++));
        }
        EXPECT_FALSE(queue.Drained() && taken > 0);
        queue.MarkDone(taken);
    }
    producer.join();
    EXPECT_TRUE(queue.WaitDrained(std::chrono::steady_clock::now()));
    EXPECT_EQ(queue.Size(), 0u);
}

TEST(FeedQueue, SingleRecordsBatchesAndClearingKeepTheOrder) {
    FeedQueue queue;
    int next = 0;
    int expected = 0;
    const auto take = [&](std::size_t most) {
        std::vector<FileFeedRecord> got;
        const std::size_t taken = queue.Pop(got, most, std::chrono::milliseconds(0));
        EXPECT_EQ(taken, got.size());
        EXPECT_LE(taken, most);
        for (const auto& record : got) {
            EXPECT_EQ(record.path, std::to_string(expected++));
        }
        queue.MarkDone(taken);
        return taken;
    };
    for (int round = 0; round < 3; ++round) {
        auto batch = Records(next, 10);
        next += 10;
        queue.Push(batch);
        FileFeedRecord single;
        single.path = std::to_string(next++);
        queue.Push(std::move(single));
        batch = Records(next, 5);
        next += 5;
        queue.Push(batch);
        EXPECT_EQ(queue.Size(), 16u);
        std::size_t taken = take(4);
        EXPECT_GT(taken, 0u);
        // Part of what is left goes, then the rest is cleared.
        taken += take(3);
        EXPECT_EQ(queue.Size(), 16u - taken);
        EXPECT_FALSE(queue.Drained());
        queue.Clear();
        EXPECT_TRUE(queue.Drained());
        EXPECT_EQ(queue.Size(), 0u);
        // Counts left over from the cleared records take nothing.
        EXPECT_EQ(take(100), 0u);
        expected = next;
    }
    // After all that, a batch comes out whole and in order, however it is taken.
    auto batch = Records(next, 50);
    queue.Push(batch);
    while (expected < next + 50) {
        ASSERT_GT(take(7 + static_cast<std::size_t>(expected % 50)), 0u);
    }
    EXPECT_TRUE(queue.Drained());
}

}  // namespace
}  // namespace orvanta::list

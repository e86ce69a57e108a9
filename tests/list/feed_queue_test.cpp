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

}  // namespace
}  // namespace orvanta::list

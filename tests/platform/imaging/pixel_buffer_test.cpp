#include "platform/imaging/pixel_buffer.h"

#include <atomic>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace orvanta::imaging {
namespace {

constexpr std::size_t kMB = std::size_t{1} << 20;

PixelBuffer Make(PixelBufferPool& pool, std::uint32_t width, std::uint32_t height) {
    PixelBuffer buffer;
    EXPECT_EQ(PixelBuffer::Create({width, height}, PixelFormat::Bgra32, 0, buffer, &pool), S_OK);
    return buffer;
}

TEST(PixelBufferPool, SizeClassesWasteAtMostAQuarterAndGrow) {
    std::size_t previous = 0;
    for (std::size_t bytes = 1; bytes < (std::size_t{3} << 30); bytes = bytes * 9 / 8 + 1) {
        const std::size_t capacity = PixelBufferPool::ClassBytes(bytes);
        ASSERT_GE(capacity, bytes);
        ASSERT_GE(capacity, previous) << bytes;
        if (bytes >= PixelBufferPool::kMinPooledBytes) {
            EXPECT_LE(capacity - bytes, bytes / 4) << bytes;
            EXPECT_EQ(capacity % 4096, 0u) << bytes;
        }
        previous = capacity;
    }
}

TEST(PixelBufferPool, ReusesAGivenBackBlockForTheSameOrASlightlySmallerPicture) {
    PixelBufferPool pool;
    std::byte* first = nullptr;
    {
        PixelBuffer buffer = Make(pool, 6000, 4000);
        first = buffer.Row(0);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % 64, 0u);
        std::memset(buffer.Bytes().data(), 0x5A, buffer.Bytes().size());
    }
    EXPECT_EQ(pool.GetStats().idleBuffers, 1u);
    {
        PixelBuffer same = Make(pool, 6000, 4000);
        EXPECT_EQ(same.Row(0), first);
    }
    {
        PixelBuffer portrait = Make(pool, 4000, 5600);  // a little smaller, same class
        EXPECT_EQ(portrait.Row(0), first);
    }
    {
        PixelBuffer thumbnail = Make(pool, 1024, 768);  // far smaller: a block of its own
        EXPECT_NE(thumbnail.Row(0), first);
    }
    const auto stats = pool.GetStats();
    EXPECT_EQ(stats.reuses, 2u);
    EXPECT_EQ(stats.allocations, 2u);
}

TEST(PixelBufferPool, SmallBuffersBypassThePool) {
    PixelBufferPool pool;
    { PixelBuffer icon = Make(pool, 64, 64); }
    EXPECT_EQ(pool.GetStats().idleBuffers, 0u);
}

TEST(PixelBufferPool, KeepsTheNewestIdleBlocksWithinItsLimits) {
    PixelBufferPool pool({.maxIdleBuffers = 2, .maxIdleBytes = 64 * kMB});
    std::vector<PixelBuffer> held;
    std::vector<std::byte*> blocks;
    for (std::uint32_t height : {1000u, 2000u, 3000u}) {  // 4, 8 and 12 MB: three classes
        held.push_back(Make(pool, 1000, height));
        blocks.push_back(held.back().Row(0));
    }
    held.clear();  // given back in order: the first is the oldest
    auto stats = pool.GetStats();
    EXPECT_EQ(stats.idleBuffers, 2u);
    EXPECT_EQ(stats.idleBytes, (8 + 12) * kMB);

    PixelBuffer again = Make(pool, 1000, 3000);
    EXPECT_EQ(again.Row(0), blocks[2]);
    again.Reset();

    // A block above the idle byte limit is never kept.
    { PixelBuffer huge = Make(pool, 4000, 5000); }
    EXPECT_EQ(pool.GetStats().idleBytes, (8 + 12) * kMB);

    pool.Trim(12 * kMB);  // oldest first: the 8 MB block goes, the 12 MB one stays
    stats = pool.GetStats();
    EXPECT_EQ(stats.idleBuffers, 1u);
    EXPECT_EQ(stats.idleBytes, 12 * kMB);
    pool.Trim();
    EXPECT_EQ(pool.GetStats().idleBuffers, 0u);
    EXPECT_EQ(pool.GetStats().idleBytes, 0u);
}

TEST(PixelBuffer, MovingHandsTheBlockOverOnce) {
    PixelBufferPool pool;
    PixelBuffer a = Make(pool, 1000, 1000);
    std::byte* block = a.Row(0);
    PixelBuffer b = std::move(a);
    EXPECT_TRUE(a.Empty());  // NOLINT(bugprone-use-after-move): the moved-from state is defined
    EXPECT_EQ(b.Row(0), block);
    PixelBuffer c = Make(pool, 1000, 1000);
    c = std::move(b);  // c's own block goes back to the pool
    EXPECT_EQ(c.Row(0), block);
    EXPECT_EQ(pool.GetStats().idleBuffers, 1u);
    c.Reset();
    EXPECT_EQ(pool.GetStats().idleBuffers, 2u);
}

TEST(PixelBuffer, RefusesBadLayouts) {
    PixelBufferPool pool;
    PixelBuffer buffer;
    EXPECT_EQ(PixelBuffer::Create({0, 10}, PixelFormat::Bgra32, 0, buffer, &pool), E_INVALIDARG);
    EXPECT_EQ(PixelBuffer::Create({10, 10}, PixelFormat::Unknown, 0, buffer, &pool), E_INVALIDARG);
    EXPECT_EQ(PixelBuffer::Create({10, 10}, PixelFormat::Bgra32, 39, buffer, &pool), E_INVALIDARG);
    EXPECT_EQ(PixelBuffer::Create({1u << 16, 1u << 15}, PixelFormat::Bgra32, 0, buffer, &pool),
              E_INVALIDARG);  // beyond a gigapixel
    EXPECT_TRUE(buffer.Empty());
    ASSERT_EQ(PixelBuffer::Create({5, 3}, PixelFormat::Bgr24, 0, buffer, &pool), S_OK);
    EXPECT_EQ(buffer.Stride(), 16u);  // 15 bytes rounded up to whole 32-bit words
    EXPECT_EQ(buffer.Bytes().size(), 48u);
}

// Workers take blocks and hand them to one thread that gives them back, as decode workers
// and the UI thread do. Each holder stamps its block; a block shared by two holders would
// show the other's stamp.
TEST(PixelBufferPool, WorkersTakeWhileAnotherThreadGivesBack) {
    PixelBufferPool pool({.maxIdleBuffers = 3, .maxIdleBytes = 256 * kMB});
    constexpr int kWorkers = 3;
    constexpr int kRounds = 60;
    std::mutex queueMutex;  // guards queue
    std::deque<std::pair<int, PixelBuffer>> queue;
    std::atomic<int> done{0};
    std::atomic<int> clashes{0};

    auto stampOk = [](const PixelBuffer& buffer, int stamp) {
        const auto bytes = buffer.Bytes();
        return std::to_integer<int>(bytes.front()) == stamp &&
               std::to_integer<int>(bytes.back()) == stamp;
    };
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&, w] {
            for (int round = 0; round < kRounds; ++round) {
                PixelBuffer buffer;
                const std::uint32_t height = 300 + 150 * static_cast<std::uint32_t>(round % 4);
                if (PixelBuffer::Create({1024, height}, PixelFormat::Bgra32, 0, buffer, &pool)
                        .Failed()) {
                    ++clashes;
                    continue;
                }
                const int stamp = (w * kRounds + round) % 251 + 1;
                buffer.Bytes().front() = static_cast<std::byte>(stamp);
                buffer.Bytes().back() = static_cast<std::byte>(stamp);
                std::this_thread::yield();
                if (!stampOk(buffer, stamp)) {
                    ++clashes;
                }
                std::scoped_lock lock(queueMutex);
                queue.emplace_back(stamp, std::move(buffer));
            }
            ++done;
        });
    }
    int released = 0;
    while (done.load() < kWorkers || !queue.empty()) {
        std::pair<int, PixelBuffer> item;
        {
            std::scoped_lock lock(queueMutex);
            if (!queue.empty()) {
                item = std::move(queue.front());
                queue.pop_front();
            }
        }
        if (item.second.Empty()) {
            std::this_thread::yield();
            continue;
        }
        if (!stampOk(item.second, item.first)) {
            ++clashes;
        }
        item.second.Reset();
        ++released;
    }
    for (auto& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(clashes.load(), 0);
    EXPECT_EQ(released, kWorkers * kRounds);
    const auto stats = pool.GetStats();
    EXPECT_EQ(stats.allocations + stats.reuses, static_cast<std::uint64_t>(released));
    EXPECT_GT(stats.reuses, 0u);
    EXPECT_LE(stats.idleBuffers, 3u);
}

}  // namespace
}  // namespace orvanta::imaging

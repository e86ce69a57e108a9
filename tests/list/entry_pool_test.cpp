// The entry pool: blocks of every size from several slabs never overlap, and the count in
// use follows allocations from several threads.
#include "list/entry_pool.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "list/picture_entry.h"

namespace orvanta::list {
namespace {

TEST(EntryPool, BlocksOfEverySizeKeepTheirBytes) {
    const std::size_t before = entry_pool::BytesInUse();
    struct Block {
        unsigned char* at;
        std::size_t bytes;
    };
    std::vector<Block> blocks;
    for (int round = 0; round < 3000; ++round) {
        for (std::size_t bytes : {1u, 16u, 17u, 48u, 80u, 300u, 512u}) {
            auto* at = static_cast<unsigned char*>(entry_pool::Allocate(bytes));
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(at) % alignof(std::max_align_t), 0u);
            std::fill(at, at + bytes, static_cast<unsigned char>(blocks.size()));
            blocks.push_back({at, bytes});
        }
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto expected = static_cast<unsigned char>(i);
        ASSERT_TRUE(std::all_of(blocks[i].at, blocks[i].at + blocks[i].bytes,
                                [&](unsigned char b) { return b == expected; }))
            << "block " << i << " of " << blocks[i].bytes << " bytes was overwritten";
    }
    for (const auto& block : blocks) {
        entry_pool::Free(block.at, block.bytes);
    }
    EXPECT_EQ(entry_pool::BytesInUse(), before);
    EXPECT_THROW((void)entry_pool::Allocate(entry_pool::kMaxBytes + 1), std::bad_alloc);
}

TEST(EntryPool, BlocksGoAgainOnlyOnceFreeAndInAddressOrderWhenAllAre) {
    // A size no other test uses, so that this test alone decides when all its blocks are free.
    constexpr std::size_t kBytes = 464;
    std::vector<unsigned char*> blocks;
    for (int i = 0; i < 2000; ++i) {
        blocks.push_back(static_cast<unsigned char*>(entry_pool::Allocate(kBytes)));
    }
    // All but one freed, in no order of address: the one kept is never handed out again.
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(3));
    unsigned char* kept = blocks.back();
    std::fill(kept, kept + kBytes, 0x5A);
    blocks.pop_back();
    for (auto* block : blocks) {
        entry_pool::Free(block, kBytes);
    }
    blocks.clear();
    for (int i = 0; i < 2000; ++i) {
        auto* block = static_cast<unsigned char*>(entry_pool::Allocate(kBytes));
        ASSERT_TRUE(block + kBytes <= kept || kept + kBytes <= block) << "block " << i;
        std::fill(block, block + kBytes, 0xA5);
        blocks.push_back(block);
    }
    EXPECT_TRUE(std::all_of(kept, kept + kBytes, [](unsigned char b) { return b == 0x5A; }));
    blocks.push_back(kept);
    std::sort(blocks.begin(), blocks.end());
    EXPECT_EQ(std::adjacent_find(blocks.begin(), blocks.end()), blocks.end());
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(4));
    for (auto* block : blocks) {
        entry_pool::Free(block, kBytes);
    }
    // Every block is free: the next ones follow one another in memory.
    blocks.clear();
    for (int i = 0; i < 100; ++i) {
        blocks.push_back(static_cast<unsigned char*>(entry_pool::Allocate(kBytes)));
    }
    for (std::size_t i = 1; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i], blocks[i - 1] + kBytes) << "block " << i;
    }
    for (auto* block : blocks) {
        entry_pool::Free(block, kBytes);
    }
}

TEST(EntryPool, ThreadsAllocateAndFreeTogether) {
    const std::size_t before = entry_pool::BytesInUse();
    std::vector<std::unique_ptr<PictureEntry>> kept[2];
    {
        std::jthread threads[2];
        for (int t = 0; t < 2; ++t) {
            threads[t] = std::jthread([&kept, t] {
                for (int i = 0; i < 20000; ++i) {
                    auto entry = std::make_unique<PictureEntry>();
                    entry->width = static_cast<std::uint32_t>(t);
                    if (i % 10 == 0) {
                        kept[t].push_back(std::move(entry));
                    }
                }
            });
        }
    }
    for (int t = 0; t < 2; ++t) {
        for (const auto& entry : kept[t]) {
            ASSERT_EQ(entry->width, static_cast<std::uint32_t>(t));
        }
    }
    EXPECT_GT(entry_pool::BytesInUse(), before);
    kept[0].clear();
    kept[1].clear();
    EXPECT_EQ(entry_pool::BytesInUse(), before);
}

}  // namespace
}  // namespace orvanta::list

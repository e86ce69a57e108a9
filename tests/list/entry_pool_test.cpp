// The entry pool: blocks of every size from several slabs never overlap, and the count in
// use follows allocations from several threads.
#include "list/entry_pool.h"

#include <algorithm>
#include <cstdint>
#include <memory>
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

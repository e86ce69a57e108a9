// The entry pool: entries from several slabs never overlap, freed ones come back, and the
// count in use follows allocations from several threads.
#include "list/entry_pool.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "list/picture_entry.h"

namespace orvanta::list {
namespace {

TEST(EntryPool, EntriesAreDistinctAlignedAndReused) {
    const std::size_t before = entry_pool::BytesInUse();
    // Enough for several slabs.
    std::vector<std::unique_ptr<PictureEntry>> entries(6000);
    for (auto& entry : entries) {
        entry = std::make_unique<PictureEntry>();
        entry->extensionSet = "jpg";
    }
    std::vector<std::uintptr_t> at;
    for (const auto& entry : entries) {
        at.push_back(reinterpret_cast<std::uintptr_t>(entry.get()));
    }
    std::sort(at.begin(), at.end());
    for (std::size_t i = 0; i < at.size(); ++i) {
        ASSERT_EQ(at[i] % alignof(PictureEntry), 0u);
        if (i > 0) {
            ASSERT_GE(at[i] - at[i - 1], sizeof(PictureEntry)) << "entries overlap";
        }
    }
    EXPECT_GE(entry_pool::BytesInUse() - before, entries.size() * sizeof(PictureEntry));
    const std::set<std::uintptr_t> freed(at.begin(), at.end());
    entries.clear();
    EXPECT_EQ(entry_pool::BytesInUse(), before);
    // With nothing else allocating, the next entry is one of those just freed.
    auto again = std::make_unique<PictureEntry>();
    EXPECT_EQ(freed.count(reinterpret_cast<std::uintptr_t>(again.get())), 1u);
    EXPECT_TRUE(again->extensionSet.empty());  // constructed afresh
}

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

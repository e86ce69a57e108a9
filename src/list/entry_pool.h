// Where picture entries and the nodes that order them live: slabs taken from the kernel
// already populated, one call per slab, and handed out block by block through a free list
// per size. An opening adds thousands of entries in a few milliseconds; taking their memory
// from the heap a page fault at a time costs more than everything else the list does for
// them. Blocks freed when another folder is opened are handed out again; the slabs stay
// with the process, as much as the largest list it has held needs.
//
// Thread-safe: one mutex, a leaf lock (taken inside the list lock).
#pragma once

#include <cstddef>
#include <memory>

namespace orvanta::list::entry_pool {

inline constexpr std::size_t kMaxBytes = 512;

// A block of `bytes` (1 to kMaxBytes), aligned for any type; throws std::bad_alloc when
// the kernel gives no more.
void* Allocate(std::size_t bytes);
void Free(void* block, std::size_t bytes);

// The bytes of the blocks handed out and not freed, for memory figures.
std::size_t BytesInUse();

// An allocator over the pool for the nodes of node-based containers: one element at a
// time comes from the pool, anything larger from the heap.
template <typename T>
struct PoolAllocator {
    using value_type = T;
    static_assert(alignof(T) <= alignof(std::max_align_t));

    PoolAllocator() = default;
    template <typename U>
    PoolAllocator(const PoolAllocator<U>& /*other*/) {}

    T* allocate(std::size_t n) {
        if (n == 1 && sizeof(T) <= kMaxBytes) {
            return static_cast<T*>(Allocate(sizeof(T)));
        }
        return std::allocator<T>().allocate(n);
    }
    void deallocate(T* block, std::size_t n) {
        if (n == 1 && sizeof(T) <= kMaxBytes) {
            Free(block, sizeof(T));
        } else {
            std::allocator<T>().deallocate(block, n);
        }
    }
    template <typename U>
    bool operator==(const PoolAllocator<U>& /*other*/) const {
        return true;
    }
};

}  // namespace orvanta::list::entry_pool

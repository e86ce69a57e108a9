#include "list/entry_pool.h"

#include <array>
#include <atomic>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define ORVANTA_POISON(at, size) ASAN_POISON_MEMORY_REGION(at, size)
#define ORVANTA_UNPOISON(at, size) ASAN_UNPOISON_MEMORY_REGION(at, size)
#else
#define ORVANTA_POISON(at, size) ((void)(at), (void)(size))
#define ORVANTA_UNPOISON(at, size) ((void)(at), (void)(size))
#endif

namespace orvanta::list::entry_pool {

namespace {

constexpr std::size_t kAlignment = alignof(std::max_align_t);
constexpr std::size_t kClasses = kMaxBytes / kAlignment;
// Large enough that a big folder takes few calls, small enough that opening a folder of a
// few pictures does not populate much it will not use.
constexpr std::size_t kSlabBytes = 256 * 1024;

struct FreeBlock {
    FreeBlock* next;
};

// The pool's lock: held for a few instructions (and rarely for taking a slab from the
// kernel), and taken three times for every file an opening adds, where a mutex's two
// atomic operations and calls are a good part of the cost. A waiter yields.
class SpinLock {
public:
    void lock() {
        while (locked_.exchange(true, std::memory_order_acquire)) {
            while (locked_.load(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
        }
    }
    void unlock() { locked_.store(false, std::memory_order_release); }

private:
    std::atomic<bool> locked_{false};
};

// A free block keeps its link; the sanitizer build treats the rest of it as freed memory,
// so that an entry used after its removal is still caught.
void MarkFree(FreeBlock* block, std::size_t bytes) {
    ORVANTA_POISON(reinterpret_cast<std::byte*>(block) + sizeof(FreeBlock),
                   bytes - sizeof(FreeBlock));
}

class Pool {
public:
    void* Allocate(std::size_t bytes) {
        const std::size_t size = SizeOf(bytes);
        std::scoped_lock lock(mutex_);
        SizeClass& sizeClass = classes_[size / kAlignment - 1];
        FreeBlock* block = sizeClass.free;
        if (block != nullptr) {
            sizeClass.free = block->next;
        } else {
            block = Carve(sizeClass, size);
        }
        ORVANTA_UNPOISON(block, size);
        sizeClass.used += 1;
        inUse_ += size;
        return block;
    }
    void Free(void* block, std::size_t bytes) {
        const std::size_t size = SizeOf(bytes);
        std::scoped_lock lock(mutex_);
        SizeClass& sizeClass = classes_[size / kAlignment - 1];
        auto* freed = static_cast<FreeBlock*>(block);
        freed->next = sizeClass.free;
        MarkFree(freed, size);
        sizeClass.free = freed;
        inUse_ -= size;
        if (--sizeClass.used == 0) {
            // Every block of the size is free again, as when a list lets go of all its
            // entries: they are handed out from the start of the first slab on, in address
            // order, rather than in the order the list freed them, which is no order of
            // address and would cost a cache miss for every block.
            sizeClass.free = nullptr;
            sizeClass.slab = 0;
            sizeClass.carved = 0;
        }
    }
    std::size_t InUse() const {
        std::scoped_lock lock(mutex_);
        return inUse_;
    }

private:
    struct SizeClass {
        FreeBlock* free = nullptr;  // blocks freed since the class was last emptied
        std::vector<std::byte*> slabs;
        std::size_t slab = 0;    // the slab blocks are carved from
        std::size_t carved = 0;  // bytes of it handed out
        std::size_t used = 0;    // blocks handed out and not freed
    };

    static std::size_t SizeOf(std::size_t bytes) {
        if (bytes == 0 || bytes > kMaxBytes) {
            throw std::bad_alloc();
        }
        return (bytes + kAlignment - 1) / kAlignment * kAlignment;
    }
    // With the lock held: the next block never handed out since the class was emptied.
    static FreeBlock* Carve(SizeClass& sizeClass, std::size_t size) {
        if (sizeClass.slab < sizeClass.slabs.size() && sizeClass.carved + size > kSlabBytes) {
            ++sizeClass.slab;
            sizeClass.carved = 0;
        }
        if (sizeClass.slab == sizeClass.slabs.size()) {
            void* slab = mmap(nullptr, kSlabBytes, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
            if (slab == MAP_FAILED) {
                throw std::bad_alloc();
            }
            // The sanitizer build treats what was never handed out as freed memory too.
            ORVANTA_POISON(slab, kSlabBytes);
            sizeClass.slabs.push_back(static_cast<std::byte*>(slab));
            sizeClass.carved = 0;
        }
        auto* block =
            reinterpret_cast<FreeBlock*>(sizeClass.slabs[sizeClass.slab] + sizeClass.carved);
        sizeClass.carved += size;
        return block;
    }

    mutable SpinLock mutex_;  // guards classes_ and inUse_; a leaf lock
    std::array<SizeClass, kClasses> classes_{};
    std::size_t inUse_ = 0;
};

Pool& TheInstance() {
    // Never destroyed: entries may be freed by static destructors after main returns.
    static Pool* pool = new Pool;
    return *pool;
}

}  // namespace

void* Allocate(std::size_t bytes) {
    return TheInstance().Allocate(bytes);
}

void Free(void* block, std::size_t bytes) {
    if (block != nullptr) {
        TheInstance().Free(block, bytes);
    }
}

std::size_t BytesInUse() {
    return TheInstance().InUse();
}

}  // namespace orvanta::list::entry_pool

#include "list/entry_pool.h"

#include <cstdint>
#include <mutex>
#include <new>

#include <sys/mman.h>

#include "list/picture_entry.h"

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

// Large enough that a big folder takes few calls, small enough that opening a folder of a
// few pictures does not populate much it will not use.
constexpr std::size_t kSlabBytes = 512 * 1024;

constexpr std::size_t kAlignment = alignof(std::max_align_t);
constexpr std::size_t kEntryBytes =
    (sizeof(PictureEntry) + kAlignment - 1) / kAlignment * kAlignment;
static_assert(alignof(PictureEntry) <= kAlignment);

struct FreeEntry {
    FreeEntry* next;
};

// A free entry keeps its link; the sanitizer build treats the rest of it as freed memory,
// so that an entry used after its removal is still caught.
void MarkFree(FreeEntry* entry) {
    ORVANTA_POISON(reinterpret_cast<std::byte*>(entry) + sizeof(FreeEntry),
                   kEntryBytes - sizeof(FreeEntry));
}

class Pool {
public:
    void* Allocate() {
        std::scoped_lock lock(mutex_);
        if (free_ == nullptr) {
            AddSlab();
        }
        FreeEntry* entry = free_;
        free_ = entry->next;
        ORVANTA_UNPOISON(entry, kEntryBytes);
        ++inUse_;
        return entry;
    }

    void Free(void* entry) {
        std::scoped_lock lock(mutex_);
        auto* freed = static_cast<FreeEntry*>(entry);
        freed->next = free_;
        MarkFree(freed);
        free_ = freed;
        --inUse_;
    }

    std::size_t InUse() const {
        std::scoped_lock lock(mutex_);
        return inUse_;
    }

private:
    // With the lock held.
    void AddSlab() {
        void* slab = mmap(nullptr, kSlabBytes, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (slab == MAP_FAILED) {
            throw std::bad_alloc();
        }
        auto* bytes = static_cast<std::byte*>(slab);
        for (std::size_t at = 0; at + kEntryBytes <= kSlabBytes; at += kEntryBytes) {
            auto* entry = reinterpret_cast<FreeEntry*>(bytes + at);
            entry->next = free_;
            MarkFree(entry);
            free_ = entry;
        }
    }

    mutable std::mutex mutex_;  // guards free_ and inUse_; a leaf lock
    FreeEntry* free_ = nullptr;
    std::size_t inUse_ = 0;
};

Pool& TheInstance() {
    // Never destroyed: entries may be freed by static destructors after main returns.
    static Pool* pool = new Pool;
    return *pool;
}

}  // namespace

void* Allocate() {
    return TheInstance().Allocate();
}

void Free(void* entry) {
    if (entry != nullptr) {
        TheInstance().Free(entry);
    }
}

std::size_t BytesInUse() {
    return TheInstance().InUse() * kEntryBytes;
}

}  // namespace orvanta::list::entry_pool

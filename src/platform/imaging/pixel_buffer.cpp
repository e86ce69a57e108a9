#include "platform/imaging/pixel_buffer.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include <sys/mman.h>

#include "platform/checked.h"

namespace orvanta::imaging {

namespace {

constexpr std::size_t kAlignment = 64;

// A block that may stay in the pool for a while is better mapped: unmapping gives the
// memory back to the system at once, where a freed heap block may linger in the arena.
bool Mapped(std::size_t capacity) {
    return capacity >= PixelBufferPool::kMinPooledBytes;
}

}  // namespace

// --- PixelBuffer ---------------------------------------------------------------------

PixelBuffer::PixelBuffer(PixelBuffer&& other) noexcept
    : pool_(std::exchange(other.pool_, nullptr)),
      data_(std::exchange(other.data_, nullptr)),
      capacity_(std::exchange(other.capacity_, 0)),
      size_(std::exchange(other.size_, {})),
      format_(std::exchange(other.format_, PixelFormat::Unknown)),
      stride_(std::exchange(other.stride_, 0)) {
}

PixelBuffer& PixelBuffer::operator=(PixelBuffer&& other) noexcept {
    if (this != &other) {
        Reset();
        pool_ = std::exchange(other.pool_, nullptr);
        data_ = std::exchange(other.data_, nullptr);
        capacity_ = std::exchange(other.capacity_, 0);
        size_ = std::exchange(other.size_, {});
        format_ = std::exchange(other.format_, PixelFormat::Unknown);
        stride_ = std::exchange(other.stride_, 0);
    }
    return *this;
}

Result PixelBuffer::Create(PixelSize size, PixelFormat format, std::size_t stride, PixelBuffer& out,
                           PixelBufferPool* pool) {
    out.Reset();
    const std::uint32_t bits = BitsPerPixel(format);
    if (!AcceptableSize(size) || bits == 0) {
        return E_INVALIDARG;
    }
    const std::size_t row = (static_cast<std::size_t>(size.width) * bits + 7) / 8;
    if (stride == 0) {
        stride = (row + 3) & ~std::size_t{3};
    }
    if (stride < row) {
        return E_INVALIDARG;
    }
    const auto bytes = CheckedMul<std::size_t>(stride, size.height);
    if (!bytes) {
        return E_OUTOFMEMORY;
    }
    if (pool == nullptr) {
        pool = &PixelBufferPool::Instance();
    }
    const PixelBufferPool::Block block = pool->Acquire(*bytes);
    if (block.data == nullptr) {
        return E_OUTOFMEMORY;
    }
    out.pool_ = pool;
    out.data_ = block.data;
    out.capacity_ = block.capacity;
    out.size_ = size;
    out.format_ = format;
    out.stride_ = stride;
    return S_OK;
}

void PixelBuffer::Reset() {
    if (data_ != nullptr) {
        pool_->Release({data_, capacity_});
    }
    pool_ = nullptr;
    data_ = nullptr;
    capacity_ = 0;
    size_ = {};
    format_ = PixelFormat::Unknown;
    stride_ = 0;
}

// --- PixelBufferPool -----------------------------------------------------------------

PixelBufferPool::~PixelBufferPool() {
    for (const Block& block : idle_) {
        Free(block);
    }
}

PixelBufferPool& PixelBufferPool::Instance() {
    // Leaked on purpose: buffers held by static objects may die after any destructor.
    static PixelBufferPool* const pool = new PixelBufferPool();
    return *pool;
}

std::size_t PixelBufferPool::ClassBytes(std::size_t bytes) {
    if (bytes > std::numeric_limits<std::size_t>::max() / 4) {
        return 0;
    }
    if (bytes < kMinPooledBytes) {
        return std::max<std::size_t>(kAlignment, (bytes + kAlignment - 1) & ~(kAlignment - 1));
    }
    const std::size_t step = std::bit_floor(bytes) / 4;
    return (bytes + step - 1) / step * step;
}

PixelBufferPool::Block PixelBufferPool::Allocate(std::size_t capacity) {
    if (!Mapped(capacity)) {
        void* data = ::operator new (capacity, std::align_val_t{kAlignment}, std::nothrow);
        return {static_cast<std::byte*>(data), data != nullptr ? capacity : 0};
    }
    if (capacity < 2 * kHugePageBytes) {
        void* data =
            ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (data == MAP_FAILED) {
            return {};
        }
        return {static_cast<std::byte*>(data), capacity};
    }
    // Map a little more and cut the ends so that the block starts on a huge-page boundary.
    const std::size_t mapped = capacity + kHugePageBytes;
    void* raw = ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) {
        return {};
    }
    const auto start = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t aligned = (start + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
    const std::size_t head = aligned - start;
    const std::size_t tail = mapped - head - capacity;
    if (head != 0) {
        ::munmap(raw, head);
    }
    if (tail != 0) {
        ::munmap(reinterpret_cast<void*>(aligned + capacity), tail);
    }
    auto* data = reinterpret_cast<void*>(aligned);
    // Only advice: a kernel without transparent huge pages still gives ordinary pages.
    ::madvise(data, capacity, MADV_HUGEPAGE);
    return {static_cast<std::byte*>(data), capacity};
}

void PixelBufferPool::Free(Block block) {
    if (block.data == nullptr) {
        return;
    }
    if (Mapped(block.capacity)) {
        ::munmap(block.data, block.capacity);
    } else {
        ::operator delete (block.data, std::align_val_t{kAlignment});
    }
}

PixelBufferPool::Block PixelBufferPool::Acquire(std::size_t bytes) {
    const std::size_t capacity = ClassBytes(bytes);
    if (capacity == 0) {
        return {};
    }
    if (Mapped(capacity)) {
        std::scoped_lock lock(mutex_);
        // The smallest idle block that fits and wastes at most half the class again, so a
        // thumbnail does not sit in a block made for a full-size picture.
        auto best = idle_.end();
        for (auto it = idle_.begin(); it != idle_.end(); ++it) {
            if (it->capacity >= capacity && it->capacity <= capacity + capacity / 2 &&
                (best == idle_.end() || it->capacity < best->capacity)) {
                best = it;
            }
        }
        if (best != idle_.end()) {
            const Block block = *best;
            idle_.erase(best);
            stats_.idleBuffers = idle_.size();
            stats_.idleBytes -= block.capacity;
            ++stats_.reuses;
            return block;
        }
    }
    Block block = Allocate(capacity);
    if (block.data == nullptr) {
        Trim(0);
        block = Allocate(capacity);
        if (block.data == nullptr) {
            return {};
        }
    }
    std::scoped_lock lock(mutex_);
    ++stats_.allocations;
    return block;
}

void PixelBufferPool::Release(Block block) {
    if (block.data == nullptr) {
        return;
    }
    std::vector<Block> freed;
    {
        std::scoped_lock lock(mutex_);
        if (Mapped(block.capacity) && limits_.maxIdleBuffers > 0 &&
            block.capacity <= limits_.maxIdleBytes) {
            idle_.push_back(block);
            stats_.idleBytes += block.capacity;
            TrimLocked(limits_.maxIdleBuffers, limits_.maxIdleBytes, freed);
            block = {};
        }
    }
    Free(block);
    for (const Block& old : freed) {
        Free(old);
    }
}

void PixelBufferPool::Trim(std::size_t keepBytes) {
    std::vector<Block> freed;
    {
        std::scoped_lock lock(mutex_);
        TrimLocked(idle_.size(), keepBytes, freed);
    }
    for (const Block& block : freed) {
        Free(block);
    }
}

void PixelBufferPool::SetLimits(Limits limits) {
    std::vector<Block> freed;
    {
        std::scoped_lock lock(mutex_);
        limits_ = limits;
        TrimLocked(limits_.maxIdleBuffers, limits_.maxIdleBytes, freed);
    }
    for (const Block& block : freed) {
        Free(block);
    }
}

PixelBufferPool::Stats PixelBufferPool::GetStats() const {
    std::scoped_lock lock(mutex_);
    return stats_;
}

void PixelBufferPool::TrimLocked(std::size_t maxBuffers, std::size_t maxBytes,
                                 std::vector<Block>& freed) {
    std::size_t drop = 0;
    std::size_t bytes = stats_.idleBytes;
    while (drop < idle_.size() && (idle_.size() - drop > maxBuffers || bytes > maxBytes)) {
        bytes -= idle_[drop].capacity;
        freed.push_back(idle_[drop]);
        ++drop;
    }
    idle_.erase(idle_.begin(), idle_.begin() + static_cast<std::ptrdiff_t>(drop));
    stats_.idleBuffers = idle_.size();
    stats_.idleBytes = bytes;
}

}  // namespace orvanta::imaging

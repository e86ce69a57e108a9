// Pixel buffers and the pool they come from. A PixelBuffer owns one aligned block of bytes
// holding a picture (size, format, stride); it is move-only and hands its block back to its
// pool when it dies. The process-wide pool keeps a few picture-sized blocks that were given
// back and serves a later request of the same size class from them: the first touch of a
// fresh 96 MB block costs several times a whole 24-megapixel JPEG decode, a reused block
// costs nothing. Blocks below kMinPooledBytes come straight from the heap and go back to it.
//
// Thread rules: a PixelBuffer is single-owner (one thread at a time, may be moved to and
// destroyed on another thread). PixelBufferPool is guarded by its own mutex: workers take
// blocks while the UI thread gives them back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/pixel_format.h"
#include "platform/result.h"

namespace orvanta::imaging {

class PixelBufferPool;

class PixelBuffer {
public:
    PixelBuffer() = default;
    ~PixelBuffer() { Reset(); }
    PixelBuffer(PixelBuffer&& other) noexcept;
    PixelBuffer& operator=(PixelBuffer&& other) noexcept;
    PixelBuffer(const PixelBuffer&) = delete;
    PixelBuffer& operator=(const PixelBuffer&) = delete;

    // A buffer for `size` pixels of `format` with rows `stride` bytes apart (0: one row
    // rounded up to a multiple of 4 bytes), from `pool` (the process-wide pool when null).
    // The contents are undefined. E_INVALIDARG for an unacceptable size, an unknown format
    // or a stride below one row; E_OUTOFMEMORY when the memory cannot be had.
    static Result Create(PixelSize size, PixelFormat format, std::size_t stride, PixelBuffer& out,
                         PixelBufferPool* pool = nullptr);

    bool Empty() const { return data_ == nullptr; }
    PixelSize Size() const { return size_; }
    PixelFormat Format() const { return format_; }
    std::size_t Stride() const { return stride_; }
    // stride * height bytes.
    std::span<std::byte> Bytes() { return {data_, stride_ * size_.height}; }
    std::span<const std::byte> Bytes() const { return {data_, stride_ * size_.height}; }
    std::byte* Row(std::uint32_t y) { return data_ + stride_ * y; }
    const std::byte* Row(std::uint32_t y) const { return data_ + stride_ * y; }

    // Gives the block back to its pool; the buffer is empty afterwards.
    void Reset();

private:
    PixelBufferPool* pool_ = nullptr;
    std::byte* data_ = nullptr;
    std::size_t capacity_ = 0;
    PixelSize size_;
    PixelFormat format_ = PixelFormat::Unknown;
    std::size_t stride_ = 0;
};

class PixelBufferPool {
public:
    // Requests below this many bytes bypass the pool (the heap serves them well).
    static constexpr std::size_t kMinPooledBytes = std::size_t{1} << 20;
    // Blocks from this size on are mapped on 2 MB boundaries and offered to transparent
    // huge pages, which cuts the page faults of the first touch by a factor of 512.
    static constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;

    struct Limits {
        std::size_t maxIdleBuffers = 4;
        std::size_t maxIdleBytes = std::size_t{512} << 20;
    };
    struct Stats {
        std::size_t idleBuffers = 0;
        std::size_t idleBytes = 0;
        std::uint64_t allocations = 0;  // blocks obtained from the system
        std::uint64_t reuses = 0;       // requests served from an idle block
    };
    struct Block {
        std::byte* data = nullptr;
        std::size_t capacity = 0;
    };

    PixelBufferPool() = default;
    explicit PixelBufferPool(Limits limits) : limits_(limits) {}
    ~PixelBufferPool();
    PixelBufferPool(const PixelBufferPool&) = delete;
    PixelBufferPool& operator=(const PixelBufferPool&) = delete;

    // The pool of the process; never destroyed, so buffers may die at any time.
    static PixelBufferPool& Instance();

    // The capacity a request of `bytes` gets: pooled requests round up to a size class
    // (quarter steps between powers of two, so at most a quarter is wasted).
    static std::size_t ClassBytes(std::size_t bytes);

    // A block of at least `bytes` bytes, 64-byte aligned; {} when memory cannot be had
    // (after dropping every idle block and trying once more).
    Block Acquire(std::size_t bytes);
    // Gives a block back: kept idle when it is pooled and the limits allow, the oldest idle
    // blocks going first; freed otherwise.
    void Release(Block block);
    // Frees idle blocks, oldest first, until at most `keepBytes` idle bytes remain.
    void Trim(std::size_t keepBytes = 0);
    void SetLimits(Limits limits);
    Stats GetStats() const;

private:
    static Block Allocate(std::size_t capacity);
    static void Free(Block block);
    // Frees the oldest idle blocks until the idle set fits `limits`. Needs mutex_.
    void TrimLocked(std::size_t maxBuffers, std::size_t maxBytes, std::vector<Block>& freed);

    // Guards idle_, limits_ and stats_; a leaf lock (nothing else is locked while held, the
    // system calls that free memory run after it is released).
    mutable std::mutex mutex_;
    std::vector<Block> idle_;  // oldest first
    Limits limits_;
    Stats stats_;
};

}  // namespace orvanta::imaging

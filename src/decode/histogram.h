// Counting the RGB histogram of a decoded picture while its pixels are copied: the band
// just copied is counted while it is still in the cache, its counts are added to the
// picture's block, and when the last band is in, each channel's maximum over bins 1..254 is
// taken and bins 0 and 255 are clamped to it, so that a large block of pure black or pure
// white does not flatten the curves. Only three decoded formats are counted (Bgr32,
// Pbgra32 and Rgb48; B, G, R order, the fourth byte ignored); others leave the block zero.
//
// The counting loop exists in versions for several processor generations; the loader picks
// one once, when the program starts, from the processor's capabilities, and all of them give
// the same counts. Pure functions over caller-owned memory; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "metadata/picture_metadata.h"
#include "platform/imaging/pixel_format.h"

namespace orvanta::decode {

using metadata::HistogramBlock;
static_assert(sizeof(HistogramBlock) == 3084, "the histogram block is 3084 bytes");

// True for the formats whose pixels are counted.
bool IsCountedFormat(imaging::PixelFormat format);

// Counts the pixels of one picture over many calls, as its bands arrive, and hands the
// counts over when asked. Its tables (about 260 KB) are made on the first call that counts
// and reused until the counter goes; summing them into a block costs about as much as
// counting 100,000 pixels, so a picture is best counted by one counter and handed over
// once. One thread at a time.
class HistogramCounter {
public:
    HistogramCounter();
    ~HistogramCounter();
    HistogramCounter(HistogramCounter&&) noexcept;
    HistogramCounter& operator=(HistogramCounter&&) noexcept;

    // Counts `height` rows of `width` pixels, `stride` bytes apart. Does nothing for a format
    // that is not counted. The rows must hold height - 1 strides plus one row.
    void Add(imaging::PixelFormat format, const std::byte* rows, std::size_t stride,
             std::uint32_t width, std::uint32_t height);
    // Adds every count so far to `block` and starts again from zero.
    void AddTo(HistogramBlock& block);

private:
    struct Tables;
    std::unique_ptr<Tables> tables_;
    std::uint64_t pending_ = 0;  // pixels in the tables
    HistogramBlock overflow_;    // counts summed early so that no counter wraps
};

// Adds the counts of `height` rows of `width` pixels, `stride` bytes apart, to `block`.
// Does nothing for a format that is not counted. The rows must hold height - 1 strides
// plus one row.
void CountRows(imaging::PixelFormat format, const std::byte* rows, std::size_t stride,
               std::uint32_t width, std::uint32_t height, HistogramBlock& block);

// Takes each channel's maximum over bins 1..254 and clamps bins 0 and 255 to it.
void FinishHistogram(HistogramBlock& block);

// The counting version this processor runs: "x86-64-v4", "-v3", "-v2" or "baseline".
std::string_view CountingVersion();

}  // namespace orvanta::decode

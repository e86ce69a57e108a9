// The abortable banded copy: the last stage of the decode pipeline. It forwards size and
// format of the source it wraps and copies its pixels in horizontal bands, asking a progress
// callback between bands whether to go on, so that a decode the user has moved away from
// stops within one band. Each band is counted into the picture's histogram right after it
// is copied, while its rows are still in the cache: the histogram costs no second pass. A
// colour stage right under the copy is taken apart and its conversion done the same way,
// piece by piece just before the counting.
//
// Without a callback a copy is one call to the wrapped source. With one, the callback hears
// 0 before the first band, the percentage of rows done after each band and 100 at the end;
// a failing answer (E_ABORT) ends the copy with that code.
//
// When a core is free, a large copy hands each piece it has copied to a thread of its own
// that converts and counts it, and goes on copying the next one, so colour and counting hide
// behind the decode; the thread is joined before the copy returns, and the pixels and counts
// are the same.
//
// Thread rules: as every source, one thread at a time (the counting thread lives only inside
// one copy); the abort flag that AbortCallback() watches may be set from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "decode/colour_transform.h"
#include "decode/histogram.h"
#include "platform/imaging/bitmap_source.h"

namespace orvanta::decode {

// Told the percentage done (0..100); S_OK to go on, a failure code to stop with it.
using ProgressCallback = std::function<Result(std::uint32_t percent)>;

// E_ABORT once `abortFlag` is non-zero (the entry's abort flag), S_OK before. The flag must
// outlive the callback.
ProgressCallback AbortCallback(const std::atomic<std::uint32_t>& abortFlag);

// Rows per band for a copy of `height` rows: the height, halved while above the larger of
// height / 16 and 512, then rounded up to a multiple of 128. The last band takes the rest.
std::uint32_t BandRows(std::uint32_t height);

class AbortableSource final : public imaging::BitmapSource {
public:
    // nullptr for a null source. A colour stage given as the source is taken apart: the copy
    // then converts each piece itself, right before counting it (on the counting thread
    // when there is one), instead of the stage converting it on the copying thread.
    static std::unique_ptr<AbortableSource> Create(std::unique_ptr<imaging::BitmapSource> source);

    void SetCallback(ProgressCallback callback) { callback_ = std::move(callback); }
    // Whether large copies are counted on a second thread. Left unset, they are when the
    // copies running in the process, each with its counting thread, leave a core for it.
    void SetCountAside(bool on) { countAside_ = on; }

    std::span<const std::uint32_t> Palette() const override { return source_->Palette(); }

    // True when this source's format is one whose pixels are counted.
    bool Counts() const { return IsCountedFormat(Format()); }
    // The counts of every pixel copied so far, with the maxima taken and bins 0 and 255
    // clamped. A picture copied once, whole, gives its histogram.
    HistogramBlock Histogram() const;

private:
    AbortableSource(std::unique_ptr<imaging::BitmapSource> source,
                    std::shared_ptr<const ColourTransform> colour);

    // True when copied pieces have work to be done on them: colour or counting.
    bool WorksOnPieces() const { return colour_ != nullptr || Counts(); }
    // Converts the colour of `count` rows just copied and counts them into `counter`.
    void FinishPiece(std::byte* rows, std::size_t stride, std::uint32_t width, std::uint32_t count,
                     HistogramCounter& counter) const;

    Result DoCopyPixels(const imaging::PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override;
    // The copy itself, band by band, with the callback between bands.
    Result CopyBands(const imaging::PixelRect& rect, std::size_t stride, std::span<std::byte> out);
    // Copies rows [first, first + rows) of `rect` into their place in `out` and counts them.
    Result CopyBand(const imaging::PixelRect& rect, std::int32_t first, std::int32_t rows,
                    std::size_t stride, std::span<std::byte> out);

    class AsideCounter;

    std::unique_ptr<imaging::BitmapSource> source_;
    std::shared_ptr<const ColourTransform> colour_;  // converted here, piece by piece
    ProgressCallback callback_;
    HistogramCounter counter_;  // the pieces counted in line during a copy
    HistogramBlock counts_;     // raw counts of the copies done, not yet clamped
    std::optional<bool> countAside_;
    AsideCounter* aside_ = nullptr;  // the counting thread of the copy running now, if any
};

}  // namespace orvanta::decode

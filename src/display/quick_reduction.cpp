#include "display/quick_reduction.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include <QThreadPool>

namespace orvanta::display {

namespace {

constexpr int kBandRows = 64;
// Below this many result pixels a second thread costs more than it saves.
constexpr qint64 kShareAbove = 256 * 1024;

struct Work {
    const uchar* from = nullptr;
    qsizetype fromStride = 0;
    uchar* to = nullptr;
    qsizetype toStride = 0;
    std::vector<int> columns;  // the picture column of each result column
    std::vector<int> rows;     // the picture row of each result row
    int bands = 0;
    std::atomic<int> next{0};
    std::unique_ptr<std::atomic<bool>[]> finished;

    // Takes the next band and makes it; false when none is left.
    bool RunOne() {
        const int band = next.fetch_add(1);
        if (band >= bands) {
            return false;
        }
        const int width = static_cast<int>(columns.size());
        const int last = std::min(static_cast<int>(rows.size()), (band + 1) * kBandRows);
        for (int y = band * kBandRows; y < last; ++y) {
            const auto* in = reinterpret_cast<const std::uint32_t*>(
                from + fromStride * rows[static_cast<std::size_t>(y)]);
            auto* out = reinterpret_cast<std::uint32_t*>(to + toStride * y);
            for (int x = 0; x < width; ++x) {
                out[x] = in[columns[static_cast<std::size_t>(x)]];
            }
        }
        finished[band].store(true, std::memory_order_release);
        return true;
    }
};

// The picture pixel under the centre of each of `count` result pixels spread over `length`.
std::vector<int> Centres(int count, int length) {
    std::vector<int> at(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const auto centre = (2 * static_cast<std::int64_t>(i) + 1) * length / (2 * count);
        at[static_cast<std::size_t>(i)] =
            static_cast<int>(std::min<std::int64_t>(centre, length - 1));
    }
    return at;
}

}  // namespace

bool QuickReduction(const QImage& picture, QSize size, QImage& into,
                    const std::function<void(int first, int count)>& rowsDone) {
    if (picture.isNull() || size.isEmpty()) {
        into = {};
        return false;
    }
    QImage converted;
    const QImage* source = &picture;
    if (picture.depth() != 32) {
        converted = picture.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        source = &converted;
    }
    if (into.size() != size || into.format() != source->format()) {
        into = QImage(size, source->format());
    }
    if (into.isNull()) {
        return false;
    }
    // Held by the pool job too: it may start after the calling thread has taken every band.
    auto work = std::make_shared<Work>();
    // The pixels are reached through plain pointers: the image calls detach on every
    // writable row, which two threads must not do at once.
    work->from = source->constBits();
    work->fromStride = source->bytesPerLine();
    work->to = into.bits();
    work->toStride = into.bytesPerLine();
    work->columns = Centres(size.width(), source->width());
    work->rows = Centres(size.height(), source->height());
    work->bands = (size.height() + kBandRows - 1) / kBandRows;
    work->finished = std::make_unique<std::atomic<bool>[]>(static_cast<std::size_t>(work->bands));
    if (qint64(size.width()) * size.height() > kShareAbove) {
        (void)QThreadPool::globalInstance()->tryStart([work] {
            while (work->RunOne()) {
            }
        });
    }
    // The calling thread hands on each band as soon as it and those before it are made,
    // and makes bands itself while the next one to hand on is not ready.
    int delivered = 0;
    while (delivered < work->bands) {
        if (work->finished[delivered].load(std::memory_order_acquire)) {
            if (rowsDone) {
                const int first = delivered * kBandRows;
                rowsDone(first, std::min(kBandRows, size.height() - first));
            }
            ++delivered;
        } else if (!work->RunOne()) {
            std::this_thread::yield();  // the pool thread is finishing that band
        }
    }
    return true;
}

}  // namespace orvanta::display

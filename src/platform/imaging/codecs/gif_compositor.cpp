#include "platform/imaging/codecs/gif_internal.h"

#if ORVANTA_HAVE_GIF

#include <algorithm>
#include <cstring>

#include "platform/imaging/codecs/image_codec_errors_internal.h"

namespace orvanta::imaging::codecs {

namespace {

constexpr std::size_t kBytesPerPixel = 4;

// Interlaced images store every eighth row from 0, every eighth from 4, every fourth from
// 2, then every second from 1.
constexpr std::int32_t kPassStart[] = {0, 4, 2, 1};
constexpr std::int32_t kPassStep[] = {8, 8, 4, 2};

struct Span1D {
    std::int32_t begin;
    std::int32_t end;
};

// The part of [start, start + length) inside [0, limit).
Span1D Clip(std::int32_t start, std::int32_t length, std::uint32_t limit) {
    const std::int64_t begin = std::clamp<std::int64_t>(start, 0, limit);
    const std::int64_t end = std::clamp<std::int64_t>(std::int64_t{start} + length, 0, limit);
    return {static_cast<std::int32_t>(begin), static_cast<std::int32_t>(end)};
}

}  // namespace

GifCompositor::GifCompositor(std::span<const std::uint8_t> file,
                             std::shared_ptr<const GifIndex> index)
    : reader_{file, 0}, index_(std::move(index)) {
}

Result GifCompositor::Advance(std::uint32_t frame) {
    if (frame >= index_->frames.size()) {
        return E_INVALIDARG;
    }
    if (shown_ == frame) {
        return S_OK;
    }
    if (canvas_.empty() || shown_ > frame) {
        const PixelSize screen = index_->screen;
        canvas_.assign(std::size_t{screen.width} * screen.height * kBytesPerPixel, 0);
        shown_ = -1;
    }
    while (shown_ < frame) {
        if (shown_ >= 0) {
            Dispose(static_cast<std::uint32_t>(shown_));
        }
        const auto next = static_cast<std::uint32_t>(shown_ + 1);
        if (const Result drawn = Draw(next); drawn.Failed()) {
            shown_ = -1;
            canvas_.clear();
            return drawn;
        }
        shown_ = next;
    }
    return S_OK;
}

void GifCompositor::Dispose(std::uint32_t frame) {
    const GifFrameInfo& info = index_->frames[frame];
    if (info.disposal != DISPOSE_BACKGROUND && info.disposal != DISPOSE_PREVIOUS) {
        return;
    }
    const PixelSize screen = index_->screen;
    const Span1D columns = Clip(info.left, info.width, screen.width);
    const Span1D rows = Clip(info.top, info.height, screen.height);
    const std::size_t bytes = std::size_t(columns.end - columns.begin) * kBytesPerPixel;
    if (bytes == 0) {
        return;  // wholly off the screen
    }
    for (std::int32_t y = rows.begin; y < rows.end; ++y) {
        std::uint8_t* target =
            canvas_.data() + (std::size_t(y) * screen.width + columns.begin) * kBytesPerPixel;
        if (info.disposal == DISPOSE_BACKGROUND) {
            // The background shows through: transparent, as browsers do it.
            std::memset(target, 0, bytes);
        } else if (!saved_.empty()) {
            std::memcpy(target, saved_.data() + std::size_t(y - rows.begin) * bytes, bytes);
        }
    }
}

Result GifCompositor::Seek(std::uint32_t frame) {
    if (!gif_ || nextImage_ > frame) {
        gif_ = OpenGif(reader_);
        nextImage_ = 0;
        if (!gif_) {
            return kErrBadHeader;
        }
    }
    while (true) {
        GifRecordType record = UNDEFINED_RECORD_TYPE;
        if (DGifGetRecordType(gif_.get(), &record) == GIF_ERROR) {
            return kErrBadStreamData;
        }
        if (record == IMAGE_DESC_RECORD_TYPE) {
            if (DGifGetImageDesc(gif_.get()) == GIF_ERROR) {
                return kErrBadStreamData;
            }
            if (nextImage_ == frame) {
                return S_OK;
            }
            if (!SkipImageData()) {
                return kErrBadStreamData;
            }
            ++nextImage_;
        } else if (record == EXTENSION_RECORD_TYPE) {
            int code = 0;
            GifByteType* block = nullptr;
            if (DGifGetExtension(gif_.get(), &code, &block) == GIF_ERROR) {
                return kErrBadStreamData;
            }
            while (block != nullptr) {
                if (DGifGetExtensionNext(gif_.get(), &block) == GIF_ERROR) {
                    return kErrBadStreamData;
                }
            }
        } else {
            return kErrFrameMissing;
        }
    }
}

bool GifCompositor::SkipImageData() {
    int codeSize = 0;
    GifByteType* block = nullptr;
    if (DGifGetCode(gif_.get(), &codeSize, &block) == GIF_ERROR) {
        return false;
    }
    while (block != nullptr) {
        if (DGifGetCodeNext(gif_.get(), &block) == GIF_ERROR) {
            return false;
        }
    }
    return true;
}

Result GifCompositor::Draw(std::uint32_t frame) {
    const GifFrameInfo& info = index_->frames[frame];
    const PixelSize screen = index_->screen;
    const Span1D columns = Clip(info.left, info.width, screen.width);
    const Span1D rows = Clip(info.top, info.height, screen.height);
    const std::size_t bytes = std::size_t(columns.end - columns.begin) * kBytesPerPixel;
    if (info.disposal == DISPOSE_PREVIOUS && bytes > 0) {
        saved_.resize(bytes * std::size_t(rows.end - rows.begin));
        for (std::int32_t y = rows.begin; y < rows.end; ++y) {
            std::memcpy(
                saved_.data() + std::size_t(y - rows.begin) * bytes,
                canvas_.data() + (std::size_t(y) * screen.width + columns.begin) * kBytesPerPixel,
                bytes);
        }
    }
    if (const Result sought = Seek(frame); sought.Failed()) {
        // The index saw this frame's descriptor; losing it now means the data is damaged.
        gif_.reset();
        truncated_ = true;
        return S_OK;
    }
    GifFileType& gif = *gif_;
    const GifImageDesc& image = gif.Image;
    const ColorMapObject* colors = image.ColorMap != nullptr ? image.ColorMap : gif.SColorMap;
    if (image.Width <= 0 || image.Height <= 0) {
        if (!SkipImageData()) {
            gif_.reset();
        }
        ++nextImage_;
        return S_OK;
    }
    line_.resize(static_cast<std::size_t>(image.Width));
    // Rows below the screen are never shown; once only they remain, the rest of the data
    // is left unread (the handle is reopened for the next frame).
    const std::int32_t visibleRows = rows.end - std::min(image.Top, rows.end);
    std::int32_t drawn = 0;
    const int passes = image.Interlace ? 4 : 1;
    for (int pass = 0; pass < passes; ++pass) {
        const std::int32_t start = image.Interlace ? kPassStart[pass] : 0;
        const std::int32_t step = image.Interlace ? kPassStep[pass] : 1;
        for (std::int32_t row = start; row < image.Height; row += step) {
            if (!image.Interlace && drawn == visibleRows) {
                gif_.reset();
                return S_OK;
            }
            if (DGifGetLine(&gif, line_.data(), image.Width) == GIF_ERROR) {
                gif_.reset();
                truncated_ = true;
                return S_OK;
            }
            DrawRow(gif, colors, row, info.transparent);
            ++drawn;
        }
    }
    ++nextImage_;
    return S_OK;
}

void GifCompositor::DrawRow(const GifFileType& gif, const ColorMapObject* colors, std::int32_t row,
                            int transparent) {
    const GifImageDesc& image = gif.Image;
    const PixelSize screen = index_->screen;
    const std::int64_t y = std::int64_t{image.Top} + row;
    if (y >= screen.height) {
        return;
    }
    const Span1D columns = Clip(image.Left, image.Width, screen.width);
    std::uint8_t* target = canvas_.data() + std::size_t(y) * screen.width * kBytesPerPixel;
    const int colorCount = colors != nullptr ? colors->ColorCount : 0;
    for (std::int32_t x = columns.begin; x < columns.end; ++x) {
        const int value = line_[static_cast<std::size_t>(x - image.Left)];
        if (value == transparent) {
            continue;
        }
        std::uint8_t* pixel = target + std::size_t(x) * kBytesPerPixel;
        // An index past the colour table (or no table at all) draws opaque black.
        if (value < colorCount) {
            const GifColorType& color = colors->Colors[value];
            pixel[0] = color.Blue;
            pixel[1] = color.Green;
            pixel[2] = color.Red;
        } else {
            pixel[0] = pixel[1] = pixel[2] = 0;
        }
        pixel[3] = 0xFF;
    }
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_GIF

#include "platform/imaging/codecs/jpeg_frame.h"

#if ORVANTA_HAVE_JPEG

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>

#include "platform/imaging/codecs/jpeg_markers_internal.h"
#include "platform/imaging/codecs/jpeg_session_internal.h"

namespace orvanta::imaging::codecs {

namespace {

// Rows decoded at a time into scratch when the caller wants only part of each row.
constexpr std::uint32_t kBandRows = 16;

std::optional<JpegColor> ColorFor(std::uint32_t components, PixelFormat format) {
    if (components == 4) {
        return format == PixelFormat::Cmyk32 ? std::optional(JpegColor::Cmyk) : std::nullopt;
    }
    switch (format) {
        case PixelFormat::Gray8:
            return JpegColor::Gray;
        case PixelFormat::Bgr24:
            return JpegColor::Bgr;
        case PixelFormat::Rgb24:
            return JpegColor::Rgb;
        case PixelFormat::Bgr32:
            return JpegColor::Bgrx;
        case PixelFormat::Bgra32:
        case PixelFormat::Pbgra32:
            return JpegColor::Bgra;
        case PixelFormat::Rgba32:
            return JpegColor::Rgba;
        default:
            return std::nullopt;
    }
}

PixelFormat NaturalFormat(std::uint32_t components) {
    switch (components) {
        case 1:
            return PixelFormat::Gray8;
        case 4:
            return PixelFormat::Cmyk32;
        default:
            return PixelFormat::Bgr24;
    }
}

// libjpeg's output size for a scale of num/8: each side rounded up.
PixelSize ScaledSize(PixelSize stored, std::uint32_t num) {
    return {static_cast<std::uint32_t>((std::uint64_t{stored.width} * num + 7) / 8),
            static_cast<std::uint32_t>((std::uint64_t{stored.height} * num + 7) / 8)};
}

// The smallest DCT scale whose sides both reach `minimum`; full size for {0, 0} or for a
// minimum larger than the picture.
std::uint32_t ScaleFor(PixelSize stored, PixelSize minimum) {
    if (minimum.width == 0 && minimum.height == 0) {
        return 8;
    }
    for (std::uint32_t num = 1; num < 8; ++num) {
        const PixelSize size = ScaledSize(stored, num);
        if (size.width >= minimum.width && size.height >= minimum.height) {
            return num;
        }
    }
    return 8;
}

// Adobe writers store CMYK with 0 meaning full ink; everybody else reads 255 as full ink.
void Invert(std::uint8_t* row, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) {
        row[i] = static_cast<std::uint8_t>(~row[i]);
    }
}

}  // namespace

JpegFrame::JpegFrame(std::shared_ptr<const FileBytes> file, std::span<const std::uint8_t> stream,
                     std::shared_ptr<const JpegHeader> header, const JpegOutput& output,
                     PixelFormat format)
    : BitmapFrame(output.size, format, Access::Sequential),
      file_(std::move(file)),
      stream_(stream),
      header_(std::move(header)),
      output_(std::make_unique<JpegOutput>(output)) {
}

JpegFrame::~JpegFrame() = default;

std::unique_ptr<JpegFrame> JpegFrame::Create(std::shared_ptr<const FileBytes> file,
                                             std::span<const std::uint8_t> stream,
                                             std::shared_ptr<const JpegHeader> header) {
    const PixelFormat format = NaturalFormat(header->components);
    JpegOutput output;
    output.color = *ColorFor(header->components, format);
    output.scaleNum = 8;
    output.size = header->size;
    return std::unique_ptr<JpegFrame>(
        new JpegFrame(std::move(file), stream, std::move(header), output, format));
}

FrameMetadataBlocks JpegFrame::Metadata() const {
    return {header_->exif, header_->xmp, header_->iptc, header_->icc};
}

std::uint32_t JpegFrame::Scale() const {
    return output_->scaleNum;
}

std::unique_ptr<BitmapSource> JpegFrame::CreateVariant(PixelSize minimum, PixelFormat format) {
    JpegOutput output = *output_;
    output.scaleNum = ScaleFor(header_->size, minimum);
    output.size = ScaledSize(header_->size, output.scaleNum);
    PixelFormat variantFormat = Format();
    if (format != PixelFormat::Unknown) {
        if (const auto color = ColorFor(header_->components, format)) {
            output.color = *color;
            variantFormat = format;
        }
    }
    if (output.scaleNum == output_->scaleNum && variantFormat == Format()) {
        return nullptr;
    }
    return std::unique_ptr<BitmapSource>(
        new JpegFrame(file_, stream_, header_, output, variantFormat));
}

Result JpegFrame::DoCopyPixels(const PixelRect& rect, std::size_t stride,
                               std::span<std::byte> out) {
    try {
        return Copy(rect, stride, out);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

Result JpegFrame::Copy(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
    if (!session_) {
        session_ = std::make_unique<JpegSession>();
    }
    const auto top = static_cast<std::uint32_t>(rect.y);
    if (!session_->Started() || session_->NextRow() > top) {
        if (const Result started = session_->Start(stream_, *output_); started.Failed()) {
            return started;
        }
    }
    if (const Result skipped = session_->Skip(top - session_->NextRow()); skipped.Failed()) {
        return skipped;
    }

    auto* base = reinterpret_cast<std::uint8_t*>(out.data());
    const auto height = static_cast<std::uint32_t>(rect.height);
    const std::size_t offset = RowBytes(static_cast<std::uint32_t>(rect.x));
    const std::size_t bytes = RowBytes(static_cast<std::uint32_t>(rect.width));
    if (rect.x == 0 && static_cast<std::uint32_t>(rect.width) == Size().width) {
        // Whole rows: libjpeg writes straight into the caller's buffer.
        rowPointers_.resize(height);
        for (std::uint32_t i = 0; i < height; ++i) {
            rowPointers_[i] = base + i * stride;
        }
        return ReadRows(rowPointers_, 0, bytes);
    }
    const std::size_t fullRow = RowBytes(Size().width);
    scratch_.resize(fullRow * std::min(kBandRows, height));
    for (std::uint32_t done = 0; done < height;) {
        const std::uint32_t rows = std::min(kBandRows, height - done);
        rowPointers_.resize(rows);
        for (std::uint32_t i = 0; i < rows; ++i) {
            rowPointers_[i] = scratch_.data() + i * fullRow;
        }
        // Adobe CMYK is flipped back only in the columns copied out.
        if (const Result read = ReadRows(rowPointers_, offset, bytes); read.Failed()) {
            return read;
        }
        for (std::uint32_t i = 0; i < rows; ++i) {
            std::memcpy(base + (done + i) * stride, rowPointers_[i] + offset, bytes);
        }
        done += rows;
    }
    return truncated_ ? S_FALSE : S_OK;
}

Result JpegFrame::ReadRows(std::span<std::uint8_t*> rows, std::size_t offset, std::size_t bytes) {
    const Result read = session_->Read(rows);
    truncated_ = truncated_ || session_->Truncated();
    if (read.Failed()) {
        return read;
    }
    if (output_->color == JpegColor::Cmyk && session_->SawAdobeMarker()) {
        for (std::uint8_t* row : rows) {
            Invert(row + offset, bytes);
        }
    }
    // A cut-short file still shows what it holds; the caller learns it from S_FALSE.
    return truncated_ ? S_FALSE : S_OK;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_JPEG

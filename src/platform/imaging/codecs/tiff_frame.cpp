// Built only with libtiff.
#if ORVANTA_HAVE_TIFF

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "platform/imaging/codecs/tiff_frame_internal.h"
#include "platform/imaging/codecs/tiff_handle_internal.h"
#include "platform/imaging/codecs/tiff_page_internal.h"

namespace orvanta::imaging::codecs {

namespace {

constexpr std::uint16_t kTagXmp = 700;
constexpr std::uint16_t kTagIptc = 33723;
constexpr std::uint16_t kTagIcc = 34675;
constexpr std::uint32_t kNoBand = UINT32_MAX;

class TiffFrame final : public BitmapFrame {
public:
    TiffFrame(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<TiffHandle> handle,
              TiffPageLayout layout, std::unique_ptr<TiffRgbaImage> rgba,
              FrameMetadataBlocks metadata)
        : BitmapFrame(layout.size, layout.format,
                      layout.read == TiffRead::Scanlines ? Access::Sequential : Access::Random),
          bytes_(std::move(bytes)),
          handle_(std::move(handle)),
          layout_(std::move(layout)),
          rgba_(std::move(rgba)),
          metadata_(metadata) {}

    ~TiffFrame() override {
        // The RGBA reader refers to the handle: end it first.
        rgba_.reset();
    }

    FrameMetadataBlocks Metadata() const override { return metadata_; }
    const FileBytes& File() const override { return *bytes_; }
    std::span<const std::uint32_t> Palette() const override { return layout_.palette; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override;
    Result LoadBand(std::uint32_t band);
    Result ReadPlane(std::uint16_t sample, std::uint32_t top, std::uint32_t rows,
                     std::uint8_t* target, std::size_t targetRowBytes);
    Result Interleave(std::uint32_t top, std::uint32_t rows);
    static Result Allocate(std::vector<std::uint8_t>& buffer, std::size_t size);

    std::shared_ptr<const FileBytes> bytes_;
    std::unique_ptr<TiffHandle> handle_;
    TiffPageLayout layout_;
    std::unique_ptr<TiffRgbaImage> rgba_;
    FrameMetadataBlocks metadata_;
    std::vector<std::uint8_t> band_;   // the decoded band (or row), interleaved
    std::vector<std::uint8_t> tile_;   // one decoded tile
    std::vector<std::uint8_t> plane_;  // one plane of a band of a separate-planes page
    std::uint32_t bandIndex_ = kNoBand;
};

Result TiffFrame::Allocate(std::vector<std::uint8_t>& buffer, std::size_t size) {
    if (buffer.size() < size) {
        try {
            buffer.resize(size);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }
    return S_OK;
}

Result TiffFrame::DoCopyPixels(const PixelRect& rect, std::size_t stride,
                               std::span<std::byte> out) {
    TIFF* tiff = handle_->Get();
    auto* target = reinterpret_cast<std::uint8_t*>(out.data());
    const auto x = static_cast<std::uint32_t>(rect.x);
    const auto width = static_cast<std::uint32_t>(rect.width);
    for (std::int32_t i = 0; i < rect.height; ++i, target += stride) {
        const auto y = static_cast<std::uint32_t>(rect.y + i);
        const std::uint8_t* row = nullptr;
        if (layout_.read == TiffRead::Scanlines) {
            if (Result r = Allocate(band_, layout_.rowBytes); r.Failed()) {
                return r;
            }
            if (TIFFReadScanline(tiff, band_.data(), y, 0) != 1) {
                return E_FAIL;
            }
            row = band_.data();
        } else {
            const std::uint32_t band = y / layout_.bandRows;
            if (band != bandIndex_) {
                if (Result r = LoadBand(band); r.Failed()) {
                    bandIndex_ = kNoBand;
                    return r;
                }
            }
            row = band_.data() + (y - band * layout_.bandRows) * layout_.rowBytes;
        }
        ConvertTiffRow(layout_, row, x, width, target);
    }
    return S_OK;
}

Result TiffFrame::LoadBand(std::uint32_t band) {
    const std::uint32_t top = band * layout_.bandRows;
    const std::uint32_t rows = std::min(layout_.bandRows, layout_.size.height - top);
    if (Result r = Allocate(band_, std::size_t{rows} * layout_.rowBytes); r.Failed()) {
        return r;
    }
    if (layout_.read == TiffRead::Rgba) {
        if (!rgba_->Read(top, rows, reinterpret_cast<std::uint32_t*>(band_.data()))) {
            return E_FAIL;
        }
    } else if (!layout_.separate) {
        if (Result r = ReadPlane(0, top, rows, band_.data(), layout_.rowBytes); r.Failed()) {
            return r;
        }
    } else if (Result r = Interleave(top, rows); r.Failed()) {
        return r;
    }
    bandIndex_ = band;
    return S_OK;
}

// Reads rows [top, top + rows) of one sample plane (the whole pixel for interleaved
// pages) into `target`, rows `targetRowBytes` apart.
Result TiffFrame::ReadPlane(std::uint16_t sample, std::uint32_t top, std::uint32_t rows,
                            std::uint8_t* target, std::size_t targetRowBytes) {
    TIFF* tiff = handle_->Get();
    const std::size_t expected = std::size_t{rows} * targetRowBytes;
    if (!layout_.tiled) {
        const tmsize_t read = TIFFReadEncodedStrip(tiff, TIFFComputeStrip(tiff, top, sample),
                                                   target, static_cast<tmsize_t>(expected));
        return read == static_cast<tmsize_t>(expected) ? S_OK : E_FAIL;
    }
    const auto tileBytes = static_cast<std::size_t>(TIFFTileSize64(tiff));
    const auto tileRowBytes = static_cast<std::size_t>(TIFFTileRowSize64(tiff));
    if (tileBytes == 0 || tileRowBytes == 0 || tileBytes < tileRowBytes * rows) {
        return E_FAIL;
    }
    if (Result r = Allocate(tile_, tileBytes); r.Failed()) {
        return r;
    }
    const std::size_t pixelBits =
        std::size_t{layout_.bits} * (layout_.separate ? 1 : layout_.samples);
    for (std::uint64_t column = 0; column < layout_.size.width; column += layout_.tileWidth) {
        const auto x = static_cast<std::uint32_t>(column);
        const tmsize_t read = TIFFReadEncodedTile(tiff, TIFFComputeTile(tiff, x, top, 0, sample),
                                                  tile_.data(), static_cast<tmsize_t>(tileBytes));
        if (read < static_cast<tmsize_t>(tileRowBytes * rows)) {
            return E_FAIL;
        }
        const std::uint32_t columns = std::min(layout_.tileWidth, layout_.size.width - x);
        const std::size_t offset = pixelBits * x / 8;
        const std::size_t bytes = (pixelBits * columns + 7) / 8;
        for (std::uint32_t row = 0; row < rows; ++row) {
            std::memcpy(target + row * targetRowBytes + offset, tile_.data() + row * tileRowBytes,
                        bytes);
        }
    }
    return S_OK;
}

Result TiffFrame::Interleave(std::uint32_t top, std::uint32_t rows) {
    const std::size_t sampleBytes = layout_.bits / 8;
    const std::size_t planeRowBytes = sampleBytes * layout_.size.width;
    if (Result r = Allocate(plane_, planeRowBytes * rows); r.Failed()) {
        return r;
    }
    const std::size_t pixelBytes = sampleBytes * layout_.samples;
    for (std::uint16_t sample = 0; sample < layout_.samples; ++sample) {
        if (Result r = ReadPlane(sample, top, rows, plane_.data(), planeRowBytes); r.Failed()) {
            return r;
        }
        for (std::uint32_t row = 0; row < rows; ++row) {
            const std::uint8_t* source = plane_.data() + row * planeRowBytes;
            std::uint8_t* target = band_.data() + row * layout_.rowBytes + sample * sampleBytes;
            for (std::uint32_t x = 0; x < layout_.size.width; ++x) {
                std::memcpy(target + x * pixelBytes, source + x * sampleBytes, sampleBytes);
            }
        }
    }
    return S_OK;
}

}  // namespace

Result CreateTiffFrame(std::shared_ptr<const FileBytes> bytes, const TiffStructure& structure,
                       std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) {
    frame.reset();
    if (index >= structure.pages.size()) {
        return E_INVALIDARG;
    }
    const std::span<const std::uint8_t> data = bytes->Bytes();
    auto handle = TiffHandle::Open(data);
    if (!handle || !handle->SelectPage(structure.pages[index])) {
        return E_FAIL;
    }
    TiffPageLayout layout;
    std::unique_ptr<TiffRgbaImage> rgba;
    if (Result r = AnalyzeTiffPage(handle->Get(), data.size(), layout, rgba); r.Failed()) {
        return r;
    }
    const std::uint64_t ifd = structure.pages[index];
    FrameMetadataBlocks metadata;
    // The file is itself TIFF-structured: its IFD0 and the EXIF IFD it points to are the
    // EXIF block. BigTIFF offsets are not, so a BigTIFF file gives none.
    if (!structure.bigTiff) {
        metadata.exif = data;
    }
    metadata.xmp = TiffTagData(data, structure, ifd, kTagXmp);
    metadata.iptc = TiffTagData(data, structure, ifd, kTagIptc);
    metadata.icc = TiffTagData(data, structure, ifd, kTagIcc);
    try {
        frame = std::make_unique<TiffFrame>(std::move(bytes), std::move(handle), std::move(layout),
                                            std::move(rgba), metadata);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_TIFF

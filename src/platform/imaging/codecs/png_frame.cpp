#include "platform/imaging/codecs/png_frame_internal.h"

#if ORVANTA_HAVE_SPNG

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include <spng.h>

#include "platform/checked.h"
#include "platform/imaging/codecs/image_codec_errors_internal.h"

namespace orvanta::imaging::codecs {

namespace {

// Deflate cannot expand data more than about 1032 times; image data that would need more
// than that from the compressed bytes present is cut short or hostile, and its whole-image
// buffer is not worth allocating.
constexpr std::uint64_t kMaxInflation = 1032;
constexpr std::uint64_t kInflationSlack = 1u << 16;

std::uint32_t Channels(std::uint8_t colorType) {
    switch (colorType) {
        case 2:
            return 3;
        case 4:
            return 2;
        case 6:
            return 4;
        default:
            return 1;
    }
}

Result FromSpng(int error) {
    return error == SPNG_EMEM ? E_OUTOFMEMORY : kErrBadImage;
}

std::uint32_t BigEndian32(const std::uint8_t* p) {
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

// A file cut inside its image data, made whole enough for libspng (which refuses a chunk
// that runs past the end of its buffer): the last chunk shortened to the bytes present and
// an IEND after it. Empty when the file is not cut that way. The shortened chunk's checksum
// cannot match, so the decoder reading it must not check checksums.
std::vector<std::uint8_t> MendCutImageData(std::span<const std::uint8_t> file) {
    constexpr std::size_t kSignatureBytes = 8;
    constexpr std::uint8_t kIend[] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
    std::size_t at = kSignatureBytes;
    while (at + 8 <= file.size()) {
        const std::uint64_t length = BigEndian32(&file[at]);
        const bool imageData = std::memcmp(&file[at + 4], "IDAT", 4) == 0;
        if (at + 12 + length <= file.size()) {
            at += 12 + length;
            continue;
        }
        if (!imageData) {
            return {};
        }
        const std::size_t present = std::min<std::uint64_t>(length, file.size() - at - 8);
        std::vector<std::uint8_t> mended(file.begin(), file.begin() + at + 8 + present);
        const auto shortened = static_cast<std::uint32_t>(present);
        mended[at] = static_cast<std::uint8_t>(shortened >> 24);
        mended[at + 1] = static_cast<std::uint8_t>(shortened >> 16);
        mended[at + 2] = static_cast<std::uint8_t>(shortened >> 8);
        mended[at + 3] = static_cast<std::uint8_t>(shortened);
        mended.insert(mended.end(), 4, 0);  // the checksum that was cut off
        mended.insert(mended.end(), std::begin(kIend), std::end(kIend));
        return mended;
    }
    return {};
}

class PngFrame final : public BitmapFrame {
public:
    PngFrame(std::shared_ptr<const FileBytes> file, std::shared_ptr<const PngInfo> info)
        : BitmapFrame(info->size, info->format,
                      info->interlaced ? Access::Random : Access::Sequential),
          file_(std::move(file)),
          info_(std::move(info)) {
        const std::uint64_t width = info_->size.width;
        if (info_->decodeFormat == SPNG_FMT_RGBA8) {
            decodedRowBytes_ = width * 4;
        } else if (info_->decodeFormat == SPNG_FMT_RGBA16) {
            decodedRowBytes_ = width * 8;
        } else {
            decodedRowBytes_ = (width * Channels(info_->colorType) * info_->bitDepth + 7) / 8;
        }
    }

    FrameMetadataBlocks Metadata() const override {
        return {info_->exif, info_->xmp, {}, info_->icc};
    }
    const FileBytes& File() const override { return *file_; }
    std::span<const std::uint32_t> Palette() const override { return info_->palette; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        try {
            return info_->interlaced ? CopyFromImage(rect, stride, out)
                                     : CopyRows(rect, stride, out);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    int DecodeFlags() const { return info_->decodeTransparency ? SPNG_DECODE_TRNS : 0; }

    Result CopyFromImage(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
        if (image_.empty()) {
            if (const Result decoded = DecodeImage(); decoded.Failed()) {
                return decoded;
            }
        }
        auto* base = reinterpret_cast<std::uint8_t*>(out.data());
        for (std::int32_t i = 0; i < rect.height; ++i) {
            Transfer(image_.data() + (rect.y + i) * decodedRowBytes_, base + i * stride, rect);
        }
        return S_OK;
    }

    Result DecodeImage() {
        const std::uint64_t needed = std::uint64_t{decodedRowBytes_} * Size().height;
        if (info_->compressedBytes * kMaxInflation + kInflationSlack < needed) {
            return kErrBadStreamData;
        }
        SpngContext context = OpenSpng(file_->Bytes());
        if (!context) {
            return E_OUTOFMEMORY;
        }
        std::size_t length = 0;
        if (spng_decoded_image_size(context.get(), info_->decodeFormat, &length) != 0 ||
            length != needed) {
            return kErrBadImage;
        }
        std::vector<std::uint8_t> image(length);
        if (const int error = spng_decode_image(context.get(), image.data(), image.size(),
                                                info_->decodeFormat, DecodeFlags());
            error != 0) {
            return FromSpng(error);
        }
        image_ = std::move(image);
        return S_OK;
    }

    Result CopyRows(const PixelRect& rect, std::size_t stride, std::span<std::byte> out) {
        const auto top = static_cast<std::uint32_t>(rect.y);
        if (!context_ && cutAt_ <= top) {
            nextRow_ = cutAt_;  // nothing to decode: every wanted row lies past the cut
        } else if (!context_ || nextRow_ > top) {
            if (const Result started = Start(); started.Failed()) {
                return started;
            }
        }
        // Whole rows in the decoded layout go straight into the caller's buffer.
        const bool direct = !info_->grayKey && rect.x == 0 &&
                            static_cast<std::uint32_t>(rect.width) == Size().width;
        row_.resize(decodedRowBytes_);
        auto* base = reinterpret_cast<std::uint8_t*>(out.data());
        const std::uint32_t end = top + static_cast<std::uint32_t>(rect.height);
        while (nextRow_ < end && nextRow_ < cutAt_) {
            const bool wanted = nextRow_ >= top;
            std::uint8_t* target =
                wanted && direct ? base + (nextRow_ - top) * stride : row_.data();
            const int error = spng_decode_row(context_.get(), target, decodedRowBytes_);
            if (error != 0 && error != SPNG_EOI && !mended_.empty() && nextRow_ > 0) {
                // The file ends inside the image data: show the rows it holds.
                context_.reset();
                cutAt_ = nextRow_;
                break;
            }
            if (error != 0 && error != SPNG_EOI) {
                context_.reset();
                return FromSpng(error);
            }
            if (wanted && !direct) {
                Transfer(row_.data(), base + (nextRow_ - top) * stride, rect);
            }
            ++nextRow_;
        }
        if (cutAt_ >= end) {
            return S_OK;
        }
        // Rows past the cut are black, or transparent in formats with alpha.
        const std::size_t rowBytes = RowBytes(static_cast<std::uint32_t>(rect.width));
        for (std::uint32_t y = std::max(top, cutAt_); y < end; ++y) {
            std::memset(base + (y - top) * stride, 0, rowBytes);
        }
        return S_FALSE;
    }

    Result Start() {
        cutAt_ = std::numeric_limits<std::uint32_t>::max();
        nextRow_ = 0;
        if (!mendChecked_) {
            mendChecked_ = true;
            mended_ = MendCutImageData(file_->Bytes());
        }
        context_ = OpenSpng(mended_.empty() ? file_->Bytes() : std::span(mended_));
        if (!context_) {
            return E_OUTOFMEMORY;
        }
        if (!mended_.empty()) {
            spng_set_crc_action(context_.get(), SPNG_CRC_USE, SPNG_CRC_DISCARD);
        }
        if (const int error = spng_decode_image(context_.get(), nullptr, 0, info_->decodeFormat,
                                                DecodeFlags() | SPNG_DECODE_PROGRESSIVE);
            error != 0) {
            context_.reset();
            return FromSpng(error);
        }
        return S_OK;
    }

    // One decoded row's pixels [rect.x, rect.x + rect.width) into the output format.
    void Transfer(const std::uint8_t* row, std::uint8_t* out, const PixelRect& rect) const {
        const auto x = static_cast<std::size_t>(rect.x);
        const auto width = static_cast<std::size_t>(rect.width);
        if (info_->grayKey) {
            ExpandGrayKey(row, out, x, width);
            return;
        }
        const std::size_t bits = BitsPerPixel(Format());
        if (bits >= 8 || (x * bits) % 8 == 0) {
            std::memcpy(out, row + x * bits / 8, (width * bits + 7) / 8);
            return;
        }
        // A sub-byte pixel format starting mid-byte: move the pixels one at a time.
        const std::uint32_t mask = (1u << bits) - 1;
        std::memset(out, 0, (width * bits + 7) / 8);
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t from = (x + i) * bits;
            const std::uint32_t value = row[from / 8] >> (8 - bits - from % 8) & mask;
            const std::size_t to = i * bits;
            out[to / 8] = static_cast<std::uint8_t>(out[to / 8] | value << (8 - bits - to % 8));
        }
    }

    // Keyed gray: the pixel equal to the key is transparent, every other one opaque.
    void ExpandGrayKey(const std::uint8_t* row, std::uint8_t* out, std::size_t x,
                       std::size_t width) const {
        if (info_->bitDepth == 8) {
            for (std::size_t i = 0; i < width; ++i) {
                const std::uint8_t gray = row[x + i];
                out[2 * i] = gray;
                out[2 * i + 1] = gray == info_->keyGray ? 0 : 0xFF;
            }
            return;
        }
        for (std::size_t i = 0; i < width; ++i) {
            std::uint16_t sample[2];
            std::memcpy(&sample[0], row + 2 * (x + i), 2);
            sample[1] = sample[0] == info_->keyGray ? 0 : 0xFFFF;
            std::memcpy(out + 4 * i, sample, 4);
        }
    }

    std::shared_ptr<const FileBytes> file_;
    std::shared_ptr<const PngInfo> info_;
    std::size_t decodedRowBytes_ = 0;
    SpngContext context_;
    std::uint32_t nextRow_ = 0;
    // The first row the file does not hold, once a decode ran into its end.
    std::uint32_t cutAt_ = std::numeric_limits<std::uint32_t>::max();
    std::vector<std::uint8_t> row_;
    std::vector<std::uint8_t> image_;
    // A file cut inside its image data, mended for a sequential decode of what it holds.
    std::vector<std::uint8_t> mended_;
    bool mendChecked_ = false;
};

}  // namespace

std::unique_ptr<BitmapFrame> MakePngFrame(std::shared_ptr<const FileBytes> file,
                                          std::shared_ptr<const PngInfo> info) {
    return std::make_unique<PngFrame>(std::move(file), std::move(info));
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_SPNG

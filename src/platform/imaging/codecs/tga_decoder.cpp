// TGA files: colour-mapped, true-colour and gray pictures, stored or run-length coded, with
// any of the four origins. One frame with Access::Random. Stored pixels are served straight
// from the file's bytes; RLE packets (which may run across rows) are expanded on the first
// copy into a buffer that holds only the pixels the stream really covers, so a header that
// claims more than the data can fill costs nothing.
//
// Output: Indexed8 with palette, Gray8, GrayAlpha16, Bgr555, Bgr24, Bgr32 (32-bit without
// alpha), Bgra32 (alpha, and 16-bit with its attribute bit) or Pbgra32 (premultiplied, as
// the extension area may say). Missing pixels of a truncated file are zero bytes (black or
// transparent); a colour-mapped picture cut short is given as Bgra32 so that they show as
// transparent. Copies from a truncated frame return S_FALSE; a bad header fails the create.
#include <algorithm>
#include <cstring>
#include <new>

#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/tga_header_internal.h"

namespace orvanta::imaging::codecs {

namespace {

PixelFormat TgaFormat(const TgaLayout& layout, bool complete) {
    if (layout.colorMapped) {
        return complete ? PixelFormat::Indexed8 : PixelFormat::Bgra32;
    }
    if (layout.gray) {
        return layout.depth == 8 ? PixelFormat::Gray8 : PixelFormat::GrayAlpha16;
    }
    switch (layout.depth) {
        case 15:
            return PixelFormat::Bgr555;
        case 16:
            return layout.alpha == TgaAlpha::None ? PixelFormat::Bgr555 : PixelFormat::Bgra32;
        case 24:
            return PixelFormat::Bgr24;
        default:
            return layout.alpha == TgaAlpha::None       ? PixelFormat::Bgr32
                   : layout.alpha == TgaAlpha::Straight ? PixelFormat::Bgra32
                                                        : PixelFormat::Pbgra32;
    }
}

unsigned Expand5(unsigned v) {
    return (v << 3) | (v >> 2);
}

std::vector<std::uint8_t> ExpandRle(std::span<const std::uint8_t> data, std::size_t bpp,
                                    std::uint64_t covered) {
    std::vector<std::uint8_t> out(static_cast<std::size_t>(covered) * bpp);
    std::uint64_t n = 0;
    std::size_t p = 0;
    while (n < covered && p < data.size()) {
        const std::uint8_t packet = data[p++];
        const std::uint64_t count = (packet & 0x7Fu) + 1u;
        std::uint64_t take = std::min(count, covered - n);
        if (packet & 0x80) {
            if (data.size() - p < bpp) {
                break;
            }
            for (std::uint64_t i = 0; i < take; ++i) {
                std::memcpy(out.data() + (n + i) * bpp, data.data() + p, bpp);
            }
            p += bpp;
        } else {
            take = std::min<std::uint64_t>(take, (data.size() - p) / bpp);
            std::memcpy(out.data() + n * bpp, data.data() + p,
                        static_cast<std::size_t>(take * bpp));
            p += static_cast<std::size_t>(std::min<std::uint64_t>(count * bpp, data.size() - p));
        }
        if (take == 0) {
            break;
        }
        n += take;
    }
    return out;
}

class TgaFrame final : public BitmapFrame {
public:
    TgaFrame(std::shared_ptr<const FileBytes> file, TgaLayout layout, PixelFormat format,
             std::uint64_t covered, bool truncated)
        : BitmapFrame({layout.width, layout.height}, format, Access::Random),
          file_(std::move(file)),
          layout_(std::move(layout)),
          covered_(covered),
          truncated_(truncated) {}

    std::span<const std::uint32_t> Palette() const override {
        return Format() == PixelFormat::Indexed8 ? std::span<const std::uint32_t>(layout_.palette)
                                                 : std::span<const std::uint32_t>();
    }
    const FileBytes& File() const override { return *file_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        const auto data = file_->Bytes().subspan(layout_.dataOffset);
        std::span<const std::uint8_t> pixels = data;
        if (layout_.rle) {
            if (!expanded_) {
                try {
                    expanded_ = ExpandRle(data, layout_.bytesPerPixel, covered_);
                } catch (const std::bad_alloc&) {
                    return E_OUTOFMEMORY;
                }
            }
            pixels = *expanded_;
        }
        const bool opaque =
            (layout_.gray && layout_.depth == 16 && layout_.alpha == TgaAlpha::None) ||
            (layout_.alphaGuessed && !layout_.colorMapped && AlphaAllZero(pixels));
        const std::size_t bpp = layout_.bytesPerPixel;
        const std::size_t outBpp = BitsPerPixel(Format()) / 8;
        for (std::int32_t i = 0; i < rect.height; ++i) {
            const auto y = static_cast<std::uint32_t>(rect.y + i);
            const std::uint64_t row = layout_.topDown ? y : layout_.height - 1 - y;
            auto* dst =
                reinterpret_cast<std::uint8_t*>(out.data()) + stride * static_cast<std::size_t>(i);
            auto each = [&](auto convert) {
                for (std::int32_t j = 0; j < rect.width; ++j) {
                    const std::uint64_t x = static_cast<std::uint64_t>(rect.x) + j;
                    const std::uint64_t col = layout_.rightToLeft ? layout_.width - 1 - x : x;
                    const std::uint64_t at = (row * layout_.width + col) * bpp;
                    std::uint8_t* o = dst + static_cast<std::size_t>(j) * outBpp;
                    if (at + bpp <= pixels.size()) {
                        convert(pixels.data() + at, o);
                    } else {
                        std::memset(o, 0, outBpp);
                    }
                }
            };
            if (Format() == PixelFormat::Bgra32 && layout_.colorMapped) {
                each([&](const std::uint8_t* s, std::uint8_t* o) {
                    const std::uint32_t c = layout_.palette[*s];
                    o[0] = static_cast<std::uint8_t>(c);
                    o[1] = static_cast<std::uint8_t>(c >> 8);
                    o[2] = static_cast<std::uint8_t>(c >> 16);
                    o[3] = static_cast<std::uint8_t>(c >> 24);
                });
            } else if (Format() == PixelFormat::Bgra32 && bpp == 2) {
                each([&](const std::uint8_t* s, std::uint8_t* o) {
                    const unsigned v = s[0] | (s[1] << 8);
                    o[0] = static_cast<std::uint8_t>(Expand5(v & 31));
                    o[1] = static_cast<std::uint8_t>(Expand5((v >> 5) & 31));
                    o[2] = static_cast<std::uint8_t>(Expand5((v >> 10) & 31));
                    o[3] = (opaque || (v & 0x8000)) ? 0xFF : 0;
                });
            } else if (opaque) {
                // Bgra32 from 32 bits or gray with alpha: the last byte is the alpha.
                each([&](const std::uint8_t* s, std::uint8_t* o) {
                    std::memcpy(o, s, bpp);
                    o[bpp - 1] = 0xFF;
                });
            } else {
                each([&](const std::uint8_t* s, std::uint8_t* o) { std::memcpy(o, s, bpp); });
            }
        }
        return truncated_ ? S_FALSE : S_OK;
    }

    bool AlphaAllZero(std::span<const std::uint8_t> pixels) {
        if (!alphaAllZero_) {
            const std::size_t bpp = layout_.bytesPerPixel;
            const std::uint8_t mask = bpp == 2 && !layout_.gray ? 0x80 : 0xFF;
            bool any = false;
            for (std::size_t at = bpp - 1; at < pixels.size() && !any; at += bpp) {
                any = (pixels[at] & mask) != 0;
            }
            alphaAllZero_ = !any;
        }
        return *alphaAllZero_;
    }

    std::shared_ptr<const FileBytes> file_;
    TgaLayout layout_;
    std::uint64_t covered_;
    bool truncated_;
    std::optional<std::vector<std::uint8_t>> expanded_;  // RLE, on the first copy
    std::optional<bool> alphaAllZero_;
};

class TgaDecoder final : public Decoder {
public:
    TgaDecoder(std::shared_ptr<const FileBytes> bytes, TgaLayout layout, PixelFormat format,
               std::uint64_t covered, bool truncated)
        : bytes_(std::move(bytes)),
          layout_(std::move(layout)),
          format_(format),
          covered_(covered),
          truncated_(truncated) {}

    Guid Container() const override { return container::Tga; }
    std::uint32_t FrameCount() const override { return 1; }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        try {
            frame = std::make_unique<TgaFrame>(bytes_, layout_, format_, covered_, truncated_);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> bytes_;
    TgaLayout layout_;
    PixelFormat format_;
    std::uint64_t covered_;
    bool truncated_;
};

Result CreateTga(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        TgaLayout layout;
        const Result result = ReadTgaLayout(bytes->Bytes(), layout);
        if (result.Failed()) {
            return result;
        }
        const auto data = bytes->Bytes().subspan(layout.dataOffset);
        const std::uint64_t total = std::uint64_t{layout.width} * layout.height;
        bool truncated = false;
        std::uint64_t covered = total;
        if (layout.rle) {
            covered = CountRlePixels(data, layout, truncated);
        } else {
            truncated = data.size() < total * layout.bytesPerPixel;
        }
        const PixelFormat format = TgaFormat(layout, !truncated);
        decoder = std::make_unique<TgaDecoder>(std::move(bytes), std::move(layout), format, covered,
                                               truncated);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

}  // namespace

// TGA is not one of the platform's containers: the formats table names no vendor for it.
DecoderInfo TgaDecoderInfo() {
    return DecoderInfo{container::Tga, vendor::Orvanta, "TGA Decoder",
                       ".tga,.tpic",   LooksLikeTga,    CreateTga};
}

}  // namespace orvanta::imaging::codecs

#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_GIF

#include <cstring>
#include <new>

#include "platform/imaging/codecs/gif_internal.h"

namespace orvanta::imaging::codecs {

namespace {

// A frame is the logical screen as it looks once this frame is drawn, in premultiplied
// BGRA (GIF alpha is all or nothing, so premultiplied and straight are the same bytes).
class GifFrame final : public BitmapFrame {
public:
    GifFrame(std::shared_ptr<const FileBytes> file, std::shared_ptr<const GifIndex> index,
             std::shared_ptr<GifCompositor> compositor, std::uint32_t number)
        : BitmapFrame(index->screen, PixelFormat::Pbgra32, Access::Random),
          file_(std::move(file)),
          index_(std::move(index)),
          compositor_(std::move(compositor)),
          number_(number) {}

    FrameMetadataBlocks Metadata() const override {
        FrameMetadataBlocks blocks;
        if (number_ == 0) {
            blocks.xmp = index_->xmp;
        }
        return blocks;
    }
    const FileBytes& File() const override { return *file_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        try {
            if (const Result advanced = compositor_->Advance(number_); advanced.Failed()) {
                return advanced;
            }
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        const std::span<const std::uint8_t> canvas = compositor_->Canvas();
        const std::size_t screenRow = std::size_t{Size().width} * 4;
        const std::size_t bytes = std::size_t(rect.width) * 4;
        for (std::int32_t y = 0; y < rect.height; ++y) {
            std::memcpy(
                out.data() + std::size_t(y) * stride,
                canvas.data() + std::size_t(rect.y + y) * screenRow + std::size_t(rect.x) * 4,
                bytes);
        }
        return S_OK;
    }

    std::shared_ptr<const FileBytes> file_;
    std::shared_ptr<const GifIndex> index_;
    std::shared_ptr<GifCompositor> compositor_;
    std::uint32_t number_;
};

class GifDecoder final : public Decoder {
public:
    GifDecoder(std::shared_ptr<const FileBytes> file, std::shared_ptr<const GifIndex> index)
        : file_(std::move(file)),
          index_(std::move(index)),
          compositor_(std::make_shared<GifCompositor>(file_->Bytes(), index_)) {}

    Guid Container() const override { return container::Gif; }
    std::uint32_t FrameCount() const override {
        return static_cast<std::uint32_t>(index_->frames.size());
    }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index >= FrameCount()) {
            return E_INVALIDARG;
        }
        frame = std::make_unique<GifFrame>(file_, index_, compositor_, index);
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> file_;
    std::shared_ptr<const GifIndex> index_;
    std::shared_ptr<GifCompositor> compositor_;
};

bool MatchesGif(std::span<const std::uint8_t> head) {
    return head.size() >= 6 && (std::memcmp(head.data(), "GIF87a", 6) == 0 ||
                                std::memcmp(head.data(), "GIF89a", 6) == 0);
}

Result CreateGifDecoder(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        auto index = std::make_shared<GifIndex>();
        if (const Result read = ReadGifIndex(bytes->Bytes(), *index); read.Failed()) {
            return read;
        }
        decoder = std::make_unique<GifDecoder>(std::move(bytes), std::move(index));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

DecoderInfo GifDecoderInfo() {
    return {container::Gif, vendor::Microsoft, "GIF Decoder", ".gif", MatchesGif, CreateGifDecoder};
}

}  // namespace orvanta::imaging::codecs

#else

namespace orvanta::imaging::codecs {

DecoderInfo GifDecoderInfo() {
    return {};
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_GIF

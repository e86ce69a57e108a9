#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_WEBP && ORVANTA_HAVE_WEBPDEMUX

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include <webp/decode.h>
#include <webp/demux.h>

namespace orvanta::imaging::codecs {

namespace {

// A still image decodes in one call of libwebp (optionally scaled) on first copy; the
// frames of an animation come composited from libwebp's animation decoder, which can
// only run forwards: frames of one decoder share one cursor, so walking the frames in
// order decodes each once.

struct DemuxDeleter {
    void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};
struct AnimationDeleter {
    void operator()(WebPAnimDecoder* decoder) const { WebPAnimDecoderDelete(decoder); }
};

std::size_t BytesPerPixel(WEBP_CSP_MODE mode) {
    return mode == MODE_RGB || mode == MODE_BGR ? 3 : 4;
}

// The output modes libwebp writes straight into our formats.
WEBP_CSP_MODE ModeOf(PixelFormat format) {
    switch (format) {
        case PixelFormat::Bgra32:
        case PixelFormat::Bgr32:
            return MODE_BGRA;
        case PixelFormat::Pbgra32:
            return MODE_bgrA;
        case PixelFormat::Rgba32:
            return MODE_RGBA;
        case PixelFormat::Bgr24:
            return MODE_BGR;
        case PixelFormat::Rgb24:
            return MODE_RGB;
        default:
            return MODE_LAST;
    }
}

// The composited frames of an animation in one colour mode.
class AnimationCursor {
public:
    AnimationCursor(std::shared_ptr<const FileBytes> bytes, WEBP_CSP_MODE mode)
        : bytes_(std::move(bytes)), mode_(mode) {}

    // Copies the canvas of frame `index` into `target`, rows `stride` apart.
    Result Copy(std::uint32_t index, std::uint8_t* target, std::size_t stride) {
        if (!decoder_ || index < decoded_) {
            if (Result r = Restart(); r.Failed()) {
                return r;
            }
        }
        while (decoded_ <= index) {
            int timestamp = 0;
            if (WebPAnimDecoderHasMoreFrames(decoder_.get()) == 0 ||
                WebPAnimDecoderGetNext(decoder_.get(), &canvas_, &timestamp) == 0) {
                decoder_.reset();
                return E_FAIL;
            }
            ++decoded_;
        }
        const std::size_t row = std::size_t{info_.canvas_width} * 4;
        for (std::uint32_t y = 0; y < info_.canvas_height; ++y) {
            std::memcpy(target + y * stride, canvas_ + y * row, row);
        }
        return S_OK;
    }

private:
    Result Restart() {
        decoded_ = 0;
        canvas_ = nullptr;
        WebPAnimDecoderOptions options;
        if (WebPAnimDecoderOptionsInit(&options) == 0) {
            return E_FAIL;
        }
        options.color_mode = mode_;
        options.use_threads = 0;
        const WebPData data{bytes_->Bytes().data(), bytes_->Size()};
        decoder_.reset(WebPAnimDecoderNew(&data, &options));
        if (!decoder_ || WebPAnimDecoderGetInfo(decoder_.get(), &info_) == 0) {
            decoder_.reset();
            return E_FAIL;
        }
        return S_OK;
    }

    std::shared_ptr<const FileBytes> bytes_;
    WEBP_CSP_MODE mode_;
    std::unique_ptr<WebPAnimDecoder, AnimationDeleter> decoder_;
    WebPAnimInfo info_{};
    std::uint8_t* canvas_ = nullptr;
    std::uint32_t decoded_ = 0;  // frames returned so far
};

struct WebpImage {
    PixelSize size;  // the canvas
    bool animated = false;
    bool alpha = false;
    std::uint32_t frames = 1;
    FrameMetadataBlocks metadata;
};

struct FrameSetup {
    std::shared_ptr<const FileBytes> bytes;
    const WebpImage* image;
    std::uint32_t index;
    PixelSize size;  // output size (scaled for a reduced still)
    PixelFormat format;
    std::shared_ptr<AnimationCursor> cursor;
};

class WebpFrame final : public BitmapFrame {
public:
    explicit WebpFrame(FrameSetup setup)
        : BitmapFrame(setup.size, setup.format, Access::Random),
          bytes_(std::move(setup.bytes)),
          image_(*setup.image),
          index_(setup.index),
          mode_(ModeOf(setup.format)),
          cursor_(std::move(setup.cursor)) {}

    FrameMetadataBlocks Metadata() const override { return image_.metadata; }
    const FileBytes& File() const override { return *bytes_; }
    std::unique_ptr<BitmapSource> CreateVariant(PixelSize minimum, PixelFormat format) override;

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override;
    Result Decode(std::uint8_t* target, std::size_t stride, std::size_t bytes);

    std::shared_ptr<const FileBytes> bytes_;
    WebpImage image_;
    std::uint32_t index_;
    WEBP_CSP_MODE mode_;
    std::shared_ptr<AnimationCursor> cursor_;
    std::vector<std::uint8_t> pixels_;  // the whole decoded frame, once a part was asked for
};

Result WebpFrame::Decode(std::uint8_t* target, std::size_t stride, std::size_t bytes) {
    if (image_.animated) {
        return cursor_->Copy(index_, target, stride);
    }
    WebPDecoderConfig config;
    if (WebPInitDecoderConfig(&config) == 0) {
        return E_FAIL;
    }
    if (Size() != image_.size) {
        config.options.use_scaling = 1;
        config.options.scaled_width = static_cast<int>(Size().width);
        config.options.scaled_height = static_cast<int>(Size().height);
    }
    config.output.colorspace = mode_;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = target;
    config.output.u.RGBA.stride = static_cast<int>(stride);
    config.output.u.RGBA.size = bytes;
    const VP8StatusCode status = WebPDecode(bytes_->Bytes().data(), bytes_->Size(), &config);
    WebPFreeDecBuffer(&config.output);
    switch (status) {
        case VP8_STATUS_OK:
            return S_OK;
        case VP8_STATUS_OUT_OF_MEMORY:
            return E_OUTOFMEMORY;
        case VP8_STATUS_UNSUPPORTED_FEATURE:
            return E_UNSUPPORTED_TYPE;
        default:
            return E_FAIL;
    }
}

Result WebpFrame::DoCopyPixels(const PixelRect& rect, std::size_t stride,
                               std::span<std::byte> out) {
    const PixelSize size = Size();
    const std::size_t pixel = BytesPerPixel(mode_);
    auto* target = reinterpret_cast<std::uint8_t*>(out.data());
    const bool whole = rect == PixelRect{0, 0, static_cast<std::int32_t>(size.width),
                                         static_cast<std::int32_t>(size.height)};
    // The whole frame into a buffer whose stride fits libwebp's int: no copy of our own.
    if (whole && pixels_.empty() && stride <= INT32_MAX) {
        return Decode(target, stride, out.size());
    }
    const std::size_t row = pixel * size.width;
    if (pixels_.empty()) {
        try {
            pixels_.resize(row * size.height);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        if (Result r = Decode(pixels_.data(), row, pixels_.size()); r.Failed()) {
            pixels_.clear();
            return r;
        }
    }
    for (std::int32_t y = 0; y < rect.height; ++y) {
        std::memcpy(target + y * stride, pixels_.data() + (rect.y + y) * row + rect.x * pixel,
                    pixel * rect.width);
    }
    return S_OK;
}

std::unique_ptr<BitmapSource> WebpFrame::CreateVariant(PixelSize minimum, PixelFormat format) {
    if (format == PixelFormat::Unknown) {
        format = Format();
    }
    const WEBP_CSP_MODE mode = ModeOf(format);
    if (mode == MODE_LAST || (image_.animated && BytesPerPixel(mode) != 4)) {
        return nullptr;
    }
    // libwebp scales a still to any size: the smallest one with both sides at least the
    // minimum, keeping the aspect ratio.
    PixelSize size = image_.size;
    if (!image_.animated && minimum.width > 0 && minimum.height > 0 && minimum.width < size.width &&
        minimum.height < size.height) {
        const double scale =
            std::max(double(minimum.width) / size.width, double(minimum.height) / size.height);
        size.width = std::clamp<std::uint32_t>(
            static_cast<std::uint32_t>(std::ceil(size.width * scale)), minimum.width, size.width);
        size.height =
            std::clamp<std::uint32_t>(static_cast<std::uint32_t>(std::ceil(size.height * scale)),
                                      minimum.height, size.height);
    }
    if (size == Size() && format == Format()) {
        return nullptr;
    }
    FrameSetup setup{bytes_, &image_, index_, size, format, nullptr};
    if (image_.animated) {
        setup.cursor = std::make_shared<AnimationCursor>(bytes_, mode);
    }
    return std::make_unique<WebpFrame>(std::move(setup));
}

class WebpDecoder final : public Decoder {
public:
    WebpDecoder(std::shared_ptr<const FileBytes> bytes, WebpImage image)
        : bytes_(std::move(bytes)), image_(image) {}

    Guid Container() const override { return container::WebP; }
    std::uint32_t FrameCount() const override { return image_.frames; }
    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index >= image_.frames) {
            return E_INVALIDARG;
        }
        const PixelFormat format =
            image_.alpha || image_.animated ? PixelFormat::Bgra32 : PixelFormat::Bgr32;
        FrameSetup setup{bytes_, &image_, index, image_.size, format, nullptr};
        if (image_.animated) {
            if (!cursor_) {
                cursor_ = std::make_shared<AnimationCursor>(bytes_, ModeOf(format));
            }
            setup.cursor = cursor_;
        }
        frame = std::make_unique<WebpFrame>(std::move(setup));
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> bytes_;
    WebpImage image_;
    std::shared_ptr<AnimationCursor> cursor_;
};

std::span<const std::uint8_t> Chunk(WebPDemuxer* demuxer, const char* fourcc) {
    WebPChunkIterator iterator;
    std::span<const std::uint8_t> chunk;
    if (WebPDemuxGetChunk(demuxer, fourcc, 1, &iterator) != 0) {
        chunk = {iterator.chunk.bytes, iterator.chunk.size};
        WebPDemuxReleaseChunkIterator(&iterator);
    }
    return chunk;
}

std::span<const std::uint8_t> ExifBlock(std::span<const std::uint8_t> chunk) {
    // Some writers keep the JPEG APP1 prefix in the chunk.
    if (chunk.size() >= 6 && std::memcmp(chunk.data(), "Exif\0\0", 6) == 0) {
        chunk = chunk.subspan(6);
    }
    if (chunk.size() < 8 || (std::memcmp(chunk.data(), "II*\0", 4) != 0 &&
                             std::memcmp(chunk.data(), "MM\0*", 4) != 0)) {
        return {};
    }
    return chunk;
}

// libwebp's animation decoder keeps two canvases of 4 bytes per pixel, however little of
// them the frames cover, so a few hundred bytes claiming a gigapixel canvas would take 8 GB.
// Canvases up to kFreeCanvasPixels are always accepted; larger ones need a file of at least
// one byte per kCanvasPixelsPerFileByte pixels, which every real animation of that size has.
constexpr std::uint64_t kFreeCanvasPixels = std::uint64_t{16} << 20;
constexpr std::uint64_t kCanvasPixelsPerFileByte = 256;

bool AcceptableCanvas(PixelSize canvas, std::size_t fileSize) {
    const std::uint64_t pixels = std::uint64_t{canvas.width} * canvas.height;
    return pixels <= kFreeCanvasPixels || pixels / kCanvasPixelsPerFileByte <= fileSize;
}

bool MatchesWebp(std::span<const std::uint8_t> head) {
    return head.size() >= 12 && std::memcmp(head.data(), "RIFF", 4) == 0 &&
           std::memcmp(head.data() + 8, "WEBP", 4) == 0;
}

Result CreateWebpDecoder(std::shared_ptr<const FileBytes> bytes,
                         std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    if (!MatchesWebp(bytes->Bytes())) {
        return E_UNSUPPORTED_TYPE;
    }
    const WebPData data{bytes->Bytes().data(), bytes->Size()};
    const std::unique_ptr<WebPDemuxer, DemuxDeleter> demuxer(WebPDemux(&data));
    WebPBitstreamFeatures features;
    if (!demuxer || WebPGetFeatures(data.bytes, data.size, &features) != VP8_STATUS_OK) {
        return E_FAIL;
    }
    WebpImage image;
    image.size = {WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH),
                  WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT)};
    image.animated = features.has_animation != 0;
    image.alpha = features.has_alpha != 0;
    image.frames = image.animated ? WebPDemuxGetI(demuxer.get(), WEBP_FF_FRAME_COUNT) : 1;
    if (image.frames == 0) {
        return E_FAIL;
    }
    if (!AcceptableSize(image.size)) {
        return image.size.width == 0 || image.size.height == 0 ? E_FAIL : E_OUTOFMEMORY;
    }
    if (image.animated && !AcceptableCanvas(image.size, bytes->Size())) {
        return E_OUTOFMEMORY;
    }
    // Chunks point into the file's bytes, which the decoder and its frames keep.
    image.metadata.exif = ExifBlock(Chunk(demuxer.get(), "EXIF"));
    image.metadata.xmp = Chunk(demuxer.get(), "XMP ");
    image.metadata.icc = Chunk(demuxer.get(), "ICCP");
    decoder = std::make_unique<WebpDecoder>(std::move(bytes), image);
    return S_OK;
}

}  // namespace

DecoderInfo WebpDecoderInfo() {
    return {container::WebP, vendor::Orvanta, "WebP Decoder",
            ".webp",         MatchesWebp,     CreateWebpDecoder};
}

}  // namespace orvanta::imaging::codecs

#else

namespace orvanta::imaging::codecs {

DecoderInfo WebpDecoderInfo() {
    return {};
}

}  // namespace orvanta::imaging::codecs

#endif

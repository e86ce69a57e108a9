#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_JXR

#include <cstring>
#include <new>
#include <vector>

#include "platform/checked.h"
#include "platform/imaging/codecs/wmp_codec_internal.h"
#include "platform/imaging/codecs/wmp_container_internal.h"

namespace orvanta::imaging::codecs {

namespace {

// jxrlib decodes a whole image at a time: the frame decodes once, on its first copy, into
// a buffer of its own and serves every rectangle from it. The container's transformation
// is not applied (pixels come in stored order).
class WmpFrame final : public BitmapFrame {
public:
    WmpFrame(std::shared_ptr<const FileBytes> bytes, const WmpContainer& container,
             std::unique_ptr<WmpCodec> codec)
        : BitmapFrame(codec->Size(), codec->Format(), Access::Random),
          bytes_(std::move(bytes)),
          codec_(std::move(codec)),
          exif_(WmpExifBlock(bytes_->Bytes(), container)) {
        metadata_.exif = exif_;
        metadata_.xmp = container.xmp;
        metadata_.icc = container.icc;
        metadata_.iptc = container.iptc;
    }

    FrameMetadataBlocks Metadata() const override { return metadata_; }
    const FileBytes& File() const override { return *bytes_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        if (pixels_.empty()) {
            if (!codec_) {
                return failure_;
            }
            failure_ = Decode();
            codec_.reset();
            if (failure_.Failed()) {
                pixels_.clear();
                return failure_;
            }
        }
        const std::size_t pixelBits = BitsPerPixel(Format());
        auto* target = reinterpret_cast<std::uint8_t*>(out.data());
        for (std::int32_t y = 0; y < rect.height; ++y) {
            const std::uint8_t* row = pixels_.data() + (rect.y + y) * stride_;
            CopyBits(row, pixelBits * rect.x, pixelBits * rect.width, target + y * stride);
        }
        return S_OK;
    }

    Result Decode() {
        stride_ = codec_->DecodeRowBytes();
        const auto size = CheckedMul<std::size_t>(stride_, Size().height);
        if (!size) {
            return E_OUTOFMEMORY;
        }
        try {
            pixels_.assign(*size, 0);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return codec_->Decode(pixels_.data(), stride_);
    }

    // Packed formats (BlackWhite) may start mid-byte.
    static void CopyBits(const std::uint8_t* row, std::size_t first, std::size_t count,
                         std::uint8_t* out) {
        const std::uint8_t* source = row + first / 8;
        const unsigned shift = first % 8;
        const std::size_t bytes = (count + 7) / 8;
        if (shift == 0) {
            std::memcpy(out, source, bytes);
            return;
        }
        const std::size_t sourceBytes = (shift + count + 7) / 8;
        for (std::size_t i = 0; i < bytes; ++i) {
            const unsigned low = i + 1 < sourceBytes ? source[i + 1] >> (8 - shift) : 0;
            out[i] = static_cast<std::uint8_t>(source[i] << shift | low);
        }
    }

    std::shared_ptr<const FileBytes> bytes_;
    std::unique_ptr<WmpCodec> codec_;  // until the decode
    std::vector<std::uint8_t> exif_;
    FrameMetadataBlocks metadata_;
    std::vector<std::uint8_t> pixels_;
    std::size_t stride_ = 0;
    Result failure_ = E_FAIL;  // what the decode returned, for later copies
};

class WmpDecoder final : public Decoder {
public:
    WmpDecoder(std::shared_ptr<const FileBytes> bytes, WmpContainer container)
        : bytes_(std::move(bytes)), container_(std::move(container)) {}

    Guid Container() const override { return container::Wmp; }
    std::uint32_t FrameCount() const override { return 1; }
    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        std::unique_ptr<WmpCodec> codec;
        if (Result r = WmpCodec::Open(bytes_->Bytes(), container_, codec); r.Failed()) {
            return r;
        }
        frame = std::make_unique<WmpFrame>(bytes_, container_, std::move(codec));
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> bytes_;
    WmpContainer container_;
};

bool MatchesWmp(std::span<const std::uint8_t> head) {
    return LooksLikeWmp(head);
}

Result CreateWmpDecoder(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    if (!LooksLikeWmp(bytes->Bytes())) {
        return E_UNSUPPORTED_TYPE;
    }
    auto container = ReadWmpContainer(bytes->Bytes());
    if (!container) {
        return E_FAIL;
    }
    // The codestream header is read now, so a file jxrlib cannot decode fails here.
    std::unique_ptr<WmpCodec> codec;
    if (Result r = WmpCodec::Open(bytes->Bytes(), *container, codec); r.Failed()) {
        return r;
    }
    decoder = std::make_unique<WmpDecoder>(std::move(bytes), std::move(*container));
    return S_OK;
}

}  // namespace

// ".hdp" is added by the formats code.
DecoderInfo WmpDecoderInfo() {
    return {container::Wmp, vendor::Microsoft, "WMP Decoder",
            ".wdp,.jxr",    MatchesWmp,        CreateWmpDecoder};
}

}  // namespace orvanta::imaging::codecs

#else

namespace orvanta::imaging::codecs {

DecoderInfo WmpDecoderInfo() {
    return {};
}

}  // namespace orvanta::imaging::codecs

#endif

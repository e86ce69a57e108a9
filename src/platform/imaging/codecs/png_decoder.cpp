#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_SPNG

#include <cstring>
#include <new>

#include "platform/imaging/codecs/png_frame_internal.h"

namespace orvanta::imaging::codecs {

namespace {

class PngDecoder final : public Decoder {
public:
    PngDecoder(std::shared_ptr<const FileBytes> file, std::shared_ptr<const PngInfo> info)
        : file_(std::move(file)), info_(std::move(info)) {}

    Guid Container() const override { return container::Png; }
    std::uint32_t FrameCount() const override { return 1; }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        frame = MakePngFrame(file_, info_);
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> file_;
    std::shared_ptr<const PngInfo> info_;
};

bool MatchesPng(std::span<const std::uint8_t> head) {
    static constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    return head.size() >= sizeof(kSignature) &&
           std::memcmp(head.data(), kSignature, sizeof(kSignature)) == 0;
}

Result CreatePngDecoder(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        auto info = std::make_shared<PngInfo>();
        if (const Result read = ReadPngInfo(bytes->Bytes(), *info); read.Failed()) {
            return read;
        }
        decoder = std::make_unique<PngDecoder>(std::move(bytes), std::move(info));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

DecoderInfo PngDecoderInfo() {
    return {container::Png, vendor::Microsoft, "PNG Decoder", ".png", MatchesPng, CreatePngDecoder};
}

}  // namespace orvanta::imaging::codecs

#else

namespace orvanta::imaging::codecs {

DecoderInfo PngDecoderInfo() {
    return {};
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_SPNG

#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_TIFF

#include "platform/imaging/codecs/tiff_frame_internal.h"
#include "platform/imaging/codecs/tiff_structure_internal.h"

namespace orvanta::imaging::codecs {

namespace {

// Pages are the top-level IFD chain, found when the decoder is made; each frame opens its
// own libtiff handle on its page.
class TiffDecoder final : public Decoder {
public:
    TiffDecoder(std::shared_ptr<const FileBytes> bytes, TiffStructure structure)
        : bytes_(std::move(bytes)), structure_(std::move(structure)) {}

    Guid Container() const override { return container::Tiff; }
    std::uint32_t FrameCount() const override {
        return static_cast<std::uint32_t>(structure_.pages.size());
    }
    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        return CreateTiffFrame(bytes_, structure_, index, frame);
    }

private:
    std::shared_ptr<const FileBytes> bytes_;
    TiffStructure structure_;
};

bool MatchesTiff(std::span<const std::uint8_t> head) {
    return LooksLikeTiff(head);
}

Result CreateTiffDecoder(std::shared_ptr<const FileBytes> bytes,
                         std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    auto structure = ReadTiffStructure(bytes->Bytes());
    if (!structure) {
        return LooksLikeTiff(bytes->Bytes()) ? E_FAIL : E_UNSUPPORTED_TYPE;
    }
    decoder = std::make_unique<TiffDecoder>(std::move(bytes), std::move(*structure));
    return S_OK;
}

}  // namespace

DecoderInfo TiffDecoderInfo() {
    return {container::Tiff, vendor::Microsoft, "TIFF Decoder",
            ".tiff,.tif",    MatchesTiff,       CreateTiffDecoder};
}

}  // namespace orvanta::imaging::codecs

#else

namespace orvanta::imaging::codecs {

DecoderInfo TiffDecoderInfo() {
    return {};
}

}  // namespace orvanta::imaging::codecs

#endif

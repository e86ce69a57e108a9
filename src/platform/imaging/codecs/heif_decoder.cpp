#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/heif_family_internal.h"

namespace orvanta::imaging::codecs {

DecoderInfo HeifDecoderInfo() {
#if ORVANTA_HAVE_HEIF
    return {container::Heif,
            vendor::Orvanta,
            "HEIF Decoder",
            ".heic,.heif,.hif",
            [](std::span<const std::uint8_t> head) {
                return ClassifyHeifBrands(head) == HeifBrand::Heif;
            },
            [](std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
                return CreateHeifFamilyDecoder(container::Heif, std::move(bytes), decoder);
            }};
#else
    return {};
#endif
}

}  // namespace orvanta::imaging::codecs

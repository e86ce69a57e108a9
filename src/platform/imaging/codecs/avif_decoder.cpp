#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/heif_family_internal.h"

namespace orvanta::imaging::codecs {

DecoderInfo AvifDecoderInfo() {
#if ORVANTA_HAVE_HEIF
    return {container::Avif,
            vendor::Orvanta,
            "AVIF Decoder",
            ".avif",
            [](std::span<const std::uint8_t> head) {
                return ClassifyHeifBrands(head) == HeifBrand::Avif;
            },
            [](std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
                return CreateHeifFamilyDecoder(container::Avif, std::move(bytes), decoder);
            }};
#else
    return {};
#endif
}

}  // namespace orvanta::imaging::codecs

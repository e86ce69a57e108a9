// The decoder shared by the HEIF and AVIF components: both containers are ISO base media
// files that libheif reads alike; only the brands in the "ftyp" box and the compression of
// the primary image differ. Free functions; decoders follow the usual one-thread rule.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

enum class HeifBrand : std::uint8_t { None, Heif, Avif };

// Classifies a file by the brands of its leading "ftyp" box (major brand and the compatible
// brands within `head`): any AV1 brand makes it AVIF, else any HEVC or generic image brand
// makes it HEIF.
HeifBrand ClassifyHeifBrands(std::span<const std::uint8_t> head);

// Makes a decoder for the primary image of a HEIF or AVIF file; `container` is the one the
// decoder reports. Defined only when libheif was found.
Result CreateHeifFamilyDecoder(const Guid& container, std::shared_ptr<const FileBytes> bytes,
                               std::unique_ptr<Decoder>& decoder);

}  // namespace orvanta::imaging::codecs

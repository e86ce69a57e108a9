// Arbitrary bytes through the HEIF and AVIF decoders (see decoder_fuzz.h).
#include "decoder_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvanta::imaging::fuzz::DecodeAll(orvanta::imaging::codecs::HeifDecoderInfo(), data, size);
    orvanta::imaging::fuzz::DecodeAll(orvanta::imaging::codecs::AvifDecoderInfo(), data, size);
    return 0;
}

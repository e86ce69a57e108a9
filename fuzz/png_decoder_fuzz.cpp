// Arbitrary bytes through the PNG decoder (see decoder_fuzz.h).
#include "decoder_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvanta::imaging::fuzz::DecodeAll(orvanta::imaging::codecs::PngDecoderInfo(), data, size);
    return 0;
}

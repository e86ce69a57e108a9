// Arbitrary bytes through the BMP decoder (see decoder_fuzz.h).
#include "decoder_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvanta::imaging::fuzz::DecodeAll(orvanta::imaging::codecs::BmpDecoderInfo(), data, size,
                                      {.cornersOfHugeFrames = true});
    return 0;
}

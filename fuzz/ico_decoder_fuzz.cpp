// Feeds arbitrary bytes through the ICO decoder: create, every frame, every pixel.
#include "own_codec_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const orvanta::imaging::DecoderInfo info = orvanta::imaging::codecs::IcoDecoderInfo();
    orvanta::imaging::fuzz::DecodeAll(info, data, size);
    return 0;
}

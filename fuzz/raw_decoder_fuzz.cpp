// Arbitrary bytes through the camera raw decoder (see decoder_fuzz.h). The raw components
// share one implementation, so the catch-all one stands for them all. LibRaw is slow on
// large inputs, so inputs stop at 256 KB.
#include "decoder_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvanta::imaging;
    if (const DecoderInfo* info = ComponentList::Instance().Find(container::Raw, vendor::Orvanta)) {
        fuzz::DecodeAll(*info, data, size, {.maxInput = 256u << 10});
    }
    return 0;
}

// Feeds arbitrary bytes through the GIF decoder: make the decoder, copy every frame's
// pixels.
// Frames are copied only while the pixels stay within what the fuzzer's memory cap allows.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/codecs/codecs.h"

namespace {

using namespace orvanta;
using namespace orvanta::imaging;

// Pixels copied per input, over all frames: far under the fuzzer's memory cap.
constexpr std::uint64_t kPixelBudget = 1u << 22;

bool Copy(BitmapSource& source, std::uint64_t& budget) {
    const std::uint64_t pixels = std::uint64_t{source.Size().width} * source.Size().height;
    if (pixels > budget) {
        return false;
    }
    budget -= pixels;
    const std::size_t stride = source.RowBytes(source.Size().width);
    std::vector<std::byte> buffer(stride * source.Size().height);
    (void)source.CopyAll(stride, buffer);
    // Half the rows again, starting from the middle: the sequential restart paths.
    if (source.Size().height > 1) {
        const auto half = static_cast<std::int32_t>(source.Size().height / 2);
        (void)source.CopyPixels({0, half, static_cast<std::int32_t>(source.Size().width), 1},
                                stride, buffer);
        (void)source.CopyPixels({0, 0, 1, half}, stride, buffer);
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto bytes = FileBytes::FromMemory(std::vector<std::uint8_t>(data, data + size));
    std::unique_ptr<Decoder> decoder;
    if (codecs::GifDecoderInfo().create(bytes, decoder).Failed()) {
        return 0;
    }
    std::uint64_t budget = kPixelBudget;
    for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
        std::unique_ptr<BitmapFrame> frame;
        if (decoder->GetFrame(i, frame).Failed() || !Copy(*frame, budget)) {
            break;
        }
        (void)frame->Metadata();
    }

    return 0;
}

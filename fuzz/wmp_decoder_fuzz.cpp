// Feeds bytes through the HD Photo decoder: every frame (up to a few), all pixels, and a
// rectangle read after them, under size caps that keep the fuzzer within its memory limit.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/codecs/codecs.h"

namespace {

using namespace orvanta::imaging;

constexpr std::uint32_t kMaxFrames = 8;
constexpr std::uint64_t kMaxFuzzPixels = 1u << 22;

void CopyFrame(BitmapFrame& frame) {
    const PixelSize size = frame.Size();
    if (std::uint64_t{size.width} * size.height > kMaxFuzzPixels) {
        return;
    }
    const std::size_t stride = frame.RowBytes(size.width);
    std::vector<std::byte> pixels(stride * size.height);
    if (frame.CopyAll(stride, pixels).Failed() || frame.GetAccess() != Access::Random) {
        return;
    }
    const PixelRect middle{static_cast<std::int32_t>(size.width / 3),
                           static_cast<std::int32_t>(size.height / 3),
                           static_cast<std::int32_t>(std::max(1u, size.width / 2)),
                           static_cast<std::int32_t>(std::max(1u, size.height / 2))};
    (void)frame.CopyPixels(middle, stride, pixels);
    (void)frame.Metadata();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const DecoderInfo info = codecs::WmpDecoderInfo();
    if (info.create == nullptr) {
        return 0;
    }
    std::unique_ptr<Decoder> decoder;
    if (info.create(FileBytes::FromMemory({data, data + size}), decoder).Failed()) {
        return 0;
    }
    for (std::uint32_t i = 0; i < std::min(decoder->FrameCount(), kMaxFrames); ++i) {
        std::unique_ptr<BitmapFrame> frame;
        if (decoder->GetFrame(i, frame).Succeeded()) {
            CopyFrame(*frame);
        }
    }
    return 0;
}

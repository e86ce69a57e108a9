// Feeds bytes through the HEIF and AVIF decoders: create, decode the primary image, copy
// its pixels. Pictures above 16 megapixels are not decoded, to stay under the fuzzer's
// memory limit.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/component_list.h"

namespace {

constexpr std::size_t kMaxInput = 1u << 20;
constexpr std::uint64_t kMaxFuzzPixels = 16u << 20;

void Exercise(const orvanta::imaging::Guid& container, const std::uint8_t* data, std::size_t size) {
    using namespace orvanta::imaging;
    const DecoderInfo* info = ComponentList::Instance().Find(container, vendor::Orvanta);
    if (info == nullptr) {
        return;
    }
    std::unique_ptr<Decoder> decoder;
    if (info->create(FileBytes::FromMemory({data, data + size}), decoder).Failed()) {
        return;
    }
    for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
        std::unique_ptr<BitmapFrame> frame;
        if (decoder->GetFrame(i, frame).Failed()) {
            continue;
        }
        (void)frame->Metadata();
        const PixelSize pixels = frame->Size();
        if (static_cast<std::uint64_t>(pixels.width) * pixels.height > kMaxFuzzPixels) {
            continue;
        }
        const std::size_t stride = frame->RowBytes(pixels.width);
        std::vector<std::byte> out(stride * pixels.height);
        (void)frame->CopyAll(stride, out);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > kMaxInput) {
        return 0;
    }
    // The two components share their implementation; the input's length picks which one
    // runs, so that both containers are exercised.
    Exercise(size % 2 ? orvanta::imaging::container::Avif : orvanta::imaging::container::Heif, data,
             size);
    return 0;
}

// Feeds bytes through the JPEG XL decoder: create, decode the first frame, copy its pixels,
// read its metadata. Pictures above 16 megapixels are not decoded, to stay under the
// fuzzer's memory limit.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/component_list.h"

namespace {

constexpr std::size_t kMaxInput = 1u << 20;
constexpr std::uint64_t kMaxFuzzPixels = 16u << 20;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvanta::imaging;
    if (size > kMaxInput) {
        return 0;
    }
    const DecoderInfo* info = ComponentList::Instance().Find(container::Jxl, vendor::Orvanta);
    if (info == nullptr) {
        return 0;
    }
    std::unique_ptr<Decoder> decoder;
    if (info->create(FileBytes::FromMemory({data, data + size}), decoder).Failed()) {
        return 0;
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
    return 0;
}

// Feeds bytes through the camera raw decoder: create, develop the frame (full and half
// size), extract the preview. LibRaw is slow on large inputs, so inputs stop at 256 KB, and
// raws above 16 megapixels are not developed, to stay under the fuzzer's memory limit.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/imaging/component_list.h"

namespace {

constexpr std::size_t kMaxInput = 256u << 10;
constexpr std::uint64_t kMaxFuzzPixels = 16u << 20;

void CopyBounded(orvanta::imaging::BitmapSource& source) {
    const orvanta::imaging::PixelSize pixels = source.Size();
    if (static_cast<std::uint64_t>(pixels.width) * pixels.height > kMaxFuzzPixels) {
        return;
    }
    const std::size_t stride = source.RowBytes(pixels.width);
    std::vector<std::byte> out(stride * pixels.height);
    (void)source.CopyAll(stride, out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvanta::imaging;
    if (size > kMaxInput) {
        return 0;
    }
    const DecoderInfo* info = ComponentList::Instance().Find(container::Raw, vendor::Orvanta);
    if (info == nullptr) {
        return 0;
    }
    std::unique_ptr<Decoder> decoder;
    if (info->create(FileBytes::FromMemory({data, data + size}), decoder).Failed()) {
        return 0;
    }
    std::unique_ptr<BitmapFrame> frame;
    if (decoder->GetFrame(0, frame).Succeeded()) {
        (void)frame->Metadata();
        if (size % 2) {
            CopyBounded(*frame);
        } else if (auto half = frame->CreateVariant({1, 1}, PixelFormat::Unknown)) {
            CopyBounded(*half);
        }
    }
    std::unique_ptr<BitmapFrame> preview;
    if (decoder->GetPreview(preview) == orvanta::S_OK) {
        CopyBounded(*preview);
    }
    return 0;
}

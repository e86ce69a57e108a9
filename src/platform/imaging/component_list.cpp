#include "platform/imaging/component_list.h"

#include <algorithm>

#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging {

ComponentList& ComponentList::Instance() {
    static ComponentList list;
    return list;
}

ComponentList::ComponentList() {
    using namespace codecs;
    // The seven platform containers first, in the order the supported-pattern list asks
    // for them; an info without a create function is a codec whose library is missing.
    for (DecoderInfo (*info)() :
         {JpegDecoderInfo, WmpDecoderInfo, BmpDecoderInfo, PngDecoderInfo, IcoDecoderInfo,
          GifDecoderInfo, TiffDecoderInfo, TgaDecoderInfo, WebpDecoderInfo, HeifDecoderInfo,
          AvifDecoderInfo, JxlDecoderInfo}) {
        Register(info());
    }
    for (DecoderInfo& info : RawDecoderInfos()) {
        Register(std::move(info));
    }
}

void ComponentList::Register(DecoderInfo info) {
    if (info.create != nullptr) {
        decoders_.push_back(std::move(info));
    }
}

const DecoderInfo* ComponentList::Find(const Guid& container, const Guid& vendor) const {
    for (const DecoderInfo& info : decoders_) {
        if (info.container == container && (vendor.IsNull() || info.vendor == vendor)) {
            return &info;
        }
    }
    return nullptr;
}

const DecoderInfo* ComponentList::FindByContent(std::span<const std::uint8_t> head) const {
    head = head.first(std::min<std::size_t>(head.size(), 64));
    for (const DecoderInfo& info : decoders_) {
        if (info.matches != nullptr && info.matches(head)) {
            return &info;
        }
    }
    return nullptr;
}

Result ComponentList::CreateDecoder(const Guid& container, const Guid& vendor,
                                    std::shared_ptr<const FileBytes> bytes,
                                    std::unique_ptr<Decoder>& decoder) const {
    decoder.reset();
    const DecoderInfo* info = Find(container, vendor);
    if (info == nullptr) {
        return E_UNSUPPORTED_TYPE;
    }
    return info->create(std::move(bytes), decoder);
}

Result ComponentList::CreateDecoderByContent(std::shared_ptr<const FileBytes> bytes,
                                             std::unique_ptr<Decoder>& decoder) const {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    const DecoderInfo* info = FindByContent(bytes->Bytes());
    if (info == nullptr) {
        return E_UNSUPPORTED_TYPE;
    }
    return info->create(std::move(bytes), decoder);
}

}  // namespace orvanta::imaging

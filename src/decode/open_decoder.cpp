#include "decode/open_decoder.h"

#include "list/supported_formats.h"
#include "platform/imaging/component_list.h"

namespace orvanta::decode {

namespace {

// A file this small holds no picture a container decoder could read; only the content
// test gets a say.
constexpr std::size_t kSmallestContainerFile = 16;

}  // namespace

Result OpenPicture(const std::filesystem::path& path, OpenedPicture& picture) {
    picture = {};
    if (const Result read = imaging::FileBytes::Read(path, picture.bytes); read.Failed()) {
        return read;
    }
    const auto& components = imaging::ComponentList::Instance();
    Result result = E_UNSUPPORTED_TYPE;
    list::ContainerChoice choice;
    if (picture.bytes->Size() > kSmallestContainerFile && list::LookUpContainer(path, choice)) {
        result = components.CreateDecoder(choice.container, choice.vendor, picture.bytes,
                                          picture.decoder);
        if (result.Failed() && choice.container == imaging::container::Cr2) {
            result = components.CreateDecoder(imaging::container::RawAlternate, choice.vendor,
                                              picture.bytes, picture.decoder);
        }
    }
    if (!picture.decoder) {
        const Result byContent = components.CreateDecoderByContent(picture.bytes, picture.decoder);
        // Keep the more telling code: a container decoder's own complaint about a damaged
        // file says more than "no decoder recognised it".
        if (byContent.Succeeded() || result == E_UNSUPPORTED_TYPE) {
            result = byContent;
        }
    }
    if (!picture.decoder) {
        return result.Failed() ? result : E_FAIL;
    }
    picture.container = picture.decoder->Container();
    return S_OK;
}

}  // namespace orvanta::decode

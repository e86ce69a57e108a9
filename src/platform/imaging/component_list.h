// The list of decoders present at run time: each with container format, vendor, friendly
// name, file-extension list and a content test. Built-in decoders register only when their
// library was found at build time; plug-ins may add more before worker threads start.
// The decoders for the seven platform containers (JPEG, HD Photo, BMP, PNG, ICO, GIF,
// TIFF) register with the Microsoft vendor identifier, which here means "the built-in
// decoder of this container".
//
// Thread rules: Instance() is safe from any thread; Register() only before workers start.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/imaging/decoder.h"

namespace orvanta::imaging {

struct DecoderInfo {
    Guid container;
    Guid vendor;
    std::string name;        // "JPEG Decoder"
    std::string extensions;  // ".jpeg,.jpe,.jpg,.jfif,.exif", as the component reports them
    // True when the first bytes of a file (up to 64, fewer for a short file) look like this
    // format; used when the extension says nothing.
    bool (*matches)(std::span<const std::uint8_t> head) = nullptr;
    // Makes a decoder over the bytes; the decoder keeps them. Reads only headers: pixels are
    // decoded when a frame is copied.
    Result (*create)(std::shared_ptr<const FileBytes> bytes,
                     std::unique_ptr<Decoder>& decoder) = nullptr;
};

class ComponentList {
public:
    static ComponentList& Instance();

    std::span<const DecoderInfo> Decoders() const { return decoders_; }
    // A null vendor matches any vendor. nullptr when no such decoder is present.
    const DecoderInfo* Find(const Guid& container, const Guid& vendor) const;
    const DecoderInfo* FindByContent(std::span<const std::uint8_t> head) const;
    void Register(DecoderInfo info);

    // Creates the decoder of the given container and vendor over `bytes`.
    Result CreateDecoder(const Guid& container, const Guid& vendor,
                         std::shared_ptr<const FileBytes> bytes,
                         std::unique_ptr<Decoder>& decoder) const;
    // Chooses the decoder by the bytes' content.
    Result CreateDecoderByContent(std::shared_ptr<const FileBytes> bytes,
                                  std::unique_ptr<Decoder>& decoder) const;

private:
    ComponentList();
    std::vector<DecoderInfo> decoders_;
};

}  // namespace orvanta::imaging

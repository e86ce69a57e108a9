// Decoders and frames. A decoder is made for one file's bytes by its component (see
// component_list.h); it reports its container format, its frame count, each frame as a
// bitmap source with its own metadata blocks and colour profile, and an optional preview
// (the largest embedded preview of a raw file, or of a JPEG that carries a large one).
//
// Thread rules: a decoder and its frames are used by one thread at a time. A frame keeps
// its decoder's bytes alive; frames of one decoder may be used one after the other.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/file_bytes.h"
#include "platform/imaging/guid.h"

namespace orvanta::imaging {

// Raw metadata of a frame, for the metadata reader and the colour step. Spans point into
// the file's bytes or into storage the frame owns; they stay valid while the frame lives.
struct FrameMetadataBlocks {
    std::span<const std::uint8_t> exif;  // TIFF-structured block ("II*\0" or "MM\0*")
    std::span<const std::uint8_t> xmp;   // the XMP packet
    std::span<const std::uint8_t> iptc;  // IPTC-IIM records (from a Photoshop IRB)
    std::span<const std::uint8_t> icc;   // the embedded ICC profile
};

class BitmapFrame : public BitmapSource {
public:
    virtual FrameMetadataBlocks Metadata() const { return {}; }
    // The file's bytes and container, for readers that parse the container themselves.
    virtual const FileBytes& File() const = 0;
    // A source that decodes this frame more cheaply than a stage over it could: reduced in
    // the codec (JPEG DCT scaling, raw half size) to the smallest size whose sides are both
    // at least `minimum` ({0, 0}: full size), and/or straight into `format` (Unknown: the
    // frame's own format), as libjpeg-turbo writes BGRX from its colour converter.
    // nullptr when the codec can do neither. The new source is independent of this one.
    virtual std::unique_ptr<BitmapSource> CreateVariant(PixelSize minimum, PixelFormat format) {
        (void)minimum;
        (void)format;
        return nullptr;
    }

protected:
    using BitmapSource::BitmapSource;
};

class Decoder {
public:
    virtual ~Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    virtual Guid Container() const = 0;
    // Frames (pages of a TIFF, frames of a GIF); at least 1 for a decoder that was made.
    virtual std::uint32_t FrameCount() const = 0;
    // E_INVALIDARG for an index past the count; the codec's code when the frame is bad.
    virtual Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) = 0;
    // The largest embedded preview; S_FALSE (and no frame) when the file has none.
    virtual Result GetPreview(std::unique_ptr<BitmapFrame>& preview) {
        preview.reset();
        return S_FALSE;
    }

protected:
    Decoder() = default;
};

}  // namespace orvanta::imaging

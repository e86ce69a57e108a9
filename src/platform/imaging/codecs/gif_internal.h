// The GIF decoder's pieces. The index is one pass over the file with giflib that reads
// every record but decodes no pixels (frame rectangles, disposal and transparency from the
// graphics control extensions, the XMP application extension). The compositor draws frames
// onto the logical screen by the disposal rules and keeps the composite of the last frame
// it drew, so frames asked for in order cost one frame's decode each.
//
// Thread rules: the index is immutable once read; a compositor is shared by a decoder's
// frames, which are used one after the other on one thread.
#pragma once

#if ORVANTA_HAVE_GIF

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <gif_lib.h>

#include "platform/imaging/bitmap_source.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

// giflib reads through this: the file's bytes and a position.
struct GifReader {
    std::span<const std::uint8_t> bytes;
    std::size_t position = 0;
};

struct GifCloser {
    void operator()(GifFileType* gif) const;
};
using GifHandle = std::unique_ptr<GifFileType, GifCloser>;

// Opens `reader` (from its start) and reads the screen descriptor; nullptr when that fails.
GifHandle OpenGif(GifReader& reader);

struct GifFrameInfo {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    int disposal = DISPOSAL_UNSPECIFIED;
    int transparent = NO_TRANSPARENT_COLOR;
};

struct GifIndex {
    PixelSize screen;
    std::vector<GifFrameInfo> frames;
    std::vector<std::uint8_t> xmp;  // the first XMP packet
};

// kErrBadHeader when the file is not a GIF; kErrBadImage when it holds no image;
// kErrImageSizeOutOfRange for a screen past kMaxPixels. A file cut short keeps the frames
// whose descriptors were read.
Result ReadGifIndex(std::span<const std::uint8_t> file, GifIndex& index);

class GifCompositor {
public:
    GifCompositor(std::span<const std::uint8_t> file, std::shared_ptr<const GifIndex> index);

    // Makes the canvas hold frame `frame` as shown: earlier frames drawn and disposed of.
    Result Advance(std::uint32_t frame);
    // The screen as premultiplied BGRA (alpha is 0 or 255), rows of screen width.
    std::span<const std::uint8_t> Canvas() const { return canvas_; }
    // Some frame's data ended early or was damaged; what it had was drawn.
    bool Truncated() const { return truncated_; }

private:
    Result Seek(std::uint32_t frame);
    Result Draw(std::uint32_t frame);
    void DrawRow(const GifFileType& gif, const ColorMapObject* colors, std::int32_t row,
                 int transparent);
    void Dispose(std::uint32_t frame);
    bool SkipImageData();

    GifReader reader_;
    std::shared_ptr<const GifIndex> index_;
    GifHandle gif_;
    std::uint32_t nextImage_ = 0;  // the image the handle reads next
    std::int64_t shown_ = -1;      // the frame the canvas holds; -1 for none
    std::vector<std::uint8_t> canvas_;
    std::vector<std::uint8_t> saved_;  // what a restore-to-previous frame covered
    std::vector<GifPixelType> line_;
    bool truncated_ = false;
};

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_GIF

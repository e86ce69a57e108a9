// The frame of the JPEG decoder (and of its embedded preview): a sequential source that
// streams scanlines out of libjpeg straight into the caller's buffer. Its natural format
// is Gray8, Bgr24 or Cmyk32 (Adobe-inverted CMYK comes out upright); CreateVariant gives a
// frame reduced in the DCT (1/8 to 8/8) and/or written directly as Bgr32, Bgra32, Pbgra32,
// Rgba32, Rgb24 or Gray8 by libjpeg-turbo's colour converter. Asking for rows above the
// last one produced restarts the decode.
//
// A file cut short still decodes: libjpeg fills the missing rows gray, the copy succeeds,
// and Truncated() tells the caller so it can say the picture is incomplete.
//
// Thread rules: single-thread, like every source; variants are independent frames.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

struct JpegHeader;
struct JpegOutput;
class JpegSession;

class JpegFrame final : public BitmapFrame {
public:
    // A frame over `stream` (the whole file, or a preview inside it) whose header was read.
    static std::unique_ptr<JpegFrame> Create(std::shared_ptr<const FileBytes> file,
                                             std::span<const std::uint8_t> stream,
                                             std::shared_ptr<const JpegHeader> header);
    ~JpegFrame() override;

    FrameMetadataBlocks Metadata() const override;
    const FileBytes& File() const override { return *file_; }
    // When `format` is not one libjpeg can write for this file (CMYK into BGR, say), the
    // variant keeps this frame's format; nullptr when it would equal this frame.
    std::unique_ptr<BitmapSource> CreateVariant(PixelSize minimum, PixelFormat format) override;

    // True once a copy ran past the end of the data (the rest of the picture is gray).
    bool Truncated() const { return truncated_; }
    // The DCT scale of this frame: its size is scale/8 of the stored size.
    std::uint32_t Scale() const;

private:
    JpegFrame(std::shared_ptr<const FileBytes> file, std::span<const std::uint8_t> stream,
              std::shared_ptr<const JpegHeader> header, const JpegOutput& output,
              PixelFormat format);

    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override;
    Result Copy(const PixelRect& rect, std::size_t stride, std::span<std::byte> out);
    Result ReadRows(std::span<std::uint8_t*> rows, std::size_t offset, std::size_t bytes);

    std::shared_ptr<const FileBytes> file_;
    std::span<const std::uint8_t> stream_;
    std::shared_ptr<const JpegHeader> header_;
    std::unique_ptr<JpegOutput> output_;
    std::unique_ptr<JpegSession> session_;
    std::vector<std::uint8_t*> rowPointers_;
    std::vector<std::uint8_t> scratch_;
    bool truncated_ = false;
};

}  // namespace orvanta::imaging::codecs

// The frame of a DIB, for BMP files and for the DIB entries of icons. Uncompressed pixels are
// served straight from the file's bytes (Access::Random, no decoded copy): each row is
// converted as it is asked for, bottom-up rows mapped to the top-down rectangle. RLE
// streams are parsed into segments on the first copy (see dib_rle_internal.h).
//
// Missing data: pixels past the end of a truncated file come out as zero bytes, that is
// black in the opaque formats and transparent in Bgra32; a palette picture cut short is
// therefore given as Bgra32 rather than as indexes. Copies from a frame whose data ends
// early succeed with S_FALSE instead of S_OK, so that a viewer may say the file is cut.
//
// Alpha: a 32- or 16-bit picture whose alpha mask is non-zero but whose alpha channel is
// zero everywhere is shown opaque, as browsers do (writers that fill the fourth byte with
// zeros). In icon mode the output is always Bgra32 and the AND mask that follows the
// colour image makes its pixels transparent, unless the entry has a real alpha channel.
//
// Thread rules: one thread at a time, like every frame.
#pragma once

#include <memory>
#include <optional>

#include "platform/imaging/codecs/dib_reader_internal.h"
#include "platform/imaging/codecs/dib_rle_internal.h"
#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

// True when `image` holds all the pixel data the header describes (and the AND mask of an
// icon entry whose depth has no alpha channel). Always true for RLE, which knows only when
// its stream is parsed.
bool DibPixelsComplete(const DibHeader& header, std::size_t imageSize, bool iconMask);

class DibFrame final : public BitmapFrame {
public:
    // `image` is where the DIB lives inside the file (the whole file for a BMP, the entry for
    // an icon); the header's offsets count from its start. `format` is the header's natural
    // format or Bgra32. `iconMask`: an icon entry, whose header height counts the mask too
    // (the caller has halved `header.height`).
    DibFrame(std::shared_ptr<const FileBytes> file, std::span<const std::uint8_t> image,
             DibHeader header, PixelFormat format, bool iconMask);

    std::span<const std::uint32_t> Palette() const override;
    FrameMetadataBlocks Metadata() const override;
    const FileBytes& File() const override { return *file_; }

    // True when the file ends before the pixel data (and, for an icon, its mask) does.
    bool Truncated() const { return truncated_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override;

    std::span<const std::uint8_t> StoredRow(std::uint32_t row) const;
    std::span<const std::uint8_t> MaskRow(std::uint32_t row) const;
    bool AlphaAllZero();

    std::shared_ptr<const FileBytes> file_;
    std::span<const std::uint8_t> image_;
    DibHeader header_;
    DibRowReader reader_;
    bool iconMask_;
    bool truncated_ = false;
    std::size_t maskOffset_ = 0;
    std::size_t maskStride_ = 0;
    std::optional<bool> alphaAllZero_;  // found on the first copy that needs it
    std::optional<RleImage> rle_;       // parsed on the first copy
};

}  // namespace orvanta::imaging::codecs

// Device-independent bitmaps as BMP files, clipboard DIBs and icon entries store them: the
// header family (the 12-byte core header, the 40-byte info header and its 52/56/108/124-byte
// successors, the OS/2 2.x header of 16 to 64 bytes), masks and colour table, and the
// conversion of stored rows into the pixel formats the frames emit.
//
// Everything read from the bytes is range-checked: a header that does not fit, or that
// claims an impossible layout, gives E_FAIL; embedded JPEG/PNG, OS/2 Huffman and RLE24
// data give E_UNSUPPORTED_TYPE; more than kMaxPixels gives E_OUTOFMEMORY. Pixel data that
// ends early is not an error here: missing pixels read as zero bytes.
//
// Thread rules: DibHeader and DibRowReader are immutable values after creation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/imaging/pixel_format.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

enum class DibCompression : std::uint8_t { None, Rle8, Rle4, Bitfields };

struct DibHeader {
    std::uint32_t headerSize = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;  // rows stored (the magnitude of the header's height)
    bool topDown = false;
    std::uint16_t bitCount = 0;
    DibCompression compression = DibCompression::None;
    // Red, green, blue and alpha masks of 16- and 32-bit pixels, defaults filled in.
    std::array<std::uint32_t, 4> masks{};
    // For 1 to 8 bits per pixel: 1 << bitCount entries as 0xFFRRGGBB; entries the file's
    // table lacks are opaque black, so every stored index has a colour.
    std::vector<std::uint32_t> palette;
    std::size_t bitsOffset = 0;  // pixel data, from the start of the bytes given to the reader
    std::size_t stride = 0;      // bytes per stored row of uncompressed data (4-byte aligned)
    std::size_t iccOffset = 0;   // embedded colour profile of a V5 header; size 0 when none
    std::size_t iccSize = 0;

    bool HasAlphaMask() const { return masks[3] != 0; }
};

// Reads the header that starts at `offset`. `fileBitsOffset` is the pixel data offset a BMP
// file header gives; without one (clipboard DIB, icon entry) the pixels follow the colour
// table. A file-header offset that points into the header itself is ignored.
Result ReadDibHeader(std::span<const std::uint8_t> bytes, std::size_t offset,
                     std::optional<std::size_t> fileBitsOffset, DibHeader& header);

// True when `head` starts with a plausible DIB header: what a clipboard DIB without the
// "BM" file header looks like. Strict, so that other formats are not claimed.
bool LooksLikeDibHeader(std::span<const std::uint8_t> head);

// The format a DIB is best given in: Indexed1/2/4/8 with palette, Bgr555/Bgr565/Bgr24/Bgr32
// when the stored layout is already that, Bgra32 for alpha masks and RLE (skipped pixels
// are transparent), Bgr32 for other masks.
PixelFormat NaturalDibFormat(const DibHeader& header);

// Converts stored rows of an uncompressed DIB into `format`: the natural format, or
// Bgra32 from any depth.
class DibRowReader {
public:
    DibRowReader(const DibHeader& header, PixelFormat format);

    // Writes `count` pixels of a stored row starting at pixel `x`. `row` may be short (a
    // truncated file): pixels it lacks come out as zero bytes (transparent in Bgra32).
    // `opaque` writes alpha 255 instead of the stored alpha (an all-zero alpha channel).
    void Convert(std::span<const std::uint8_t> row, std::uint32_t x, std::uint32_t count,
                 std::uint8_t* out, bool opaque) const;
    // True when some complete pixel of the stored row has a non-zero alpha.
    bool AnyAlpha(std::span<const std::uint8_t> row) const;
    // True when the output's alpha comes from the stored pixels.
    bool HasAlpha() const { return header_.HasAlphaMask() && format_ == PixelFormat::Bgra32; }

private:
    struct Channel {
        std::uint32_t mask = 0;
        int shift = 0;
        int bits = 0;
        std::uint8_t Scale(std::uint32_t pixel) const;
    };
    enum class Mode : std::uint8_t { CopyBits, CopyBytes, Palette, Expand24, Masks };

    std::uint32_t StoredPixel(std::span<const std::uint8_t> row, std::uint32_t x) const;

    DibHeader header_;
    PixelFormat format_;
    Mode mode_ = Mode::CopyBytes;
    std::array<Channel, 4> channels_{};
};

}  // namespace orvanta::imaging::codecs

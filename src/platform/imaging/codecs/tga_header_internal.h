// The layout of a TGA file: the 18-byte header, image ID, colour map, pixel data, and the
// footer and extension area that newer writers append. TGA has no signature at its start,
// so the content test is strict: every header field must hold a value a writer produces.
// A decode by extension checks only what the decoder needs.
//
// Thread rules: TgaLayout is an immutable value after reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/result.h"

namespace orvanta::imaging::codecs {

enum class TgaAlpha : std::uint8_t {
    None,
    Straight,
    Premultiplied,
};

struct TgaLayout {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t bytesPerPixel = 0;
    std::uint32_t depth = 0;  // 8, 15, 16, 24 or 32
    bool colorMapped = false;
    bool gray = false;
    bool rle = false;
    bool topDown = false;
    bool rightToLeft = false;
    TgaAlpha alpha = TgaAlpha::None;
    // The alpha comes only from the header's attribute-bit count, not from an extension
    // area: an all-zero alpha channel then means "opaque" (writers that leave it empty).
    bool alphaGuessed = false;
    // Colour-mapped: 256 entries as 0xAARRGGBB (straight alpha), by stored index.
    std::vector<std::uint32_t> palette;
    std::size_t dataOffset = 0;
};

// True when the head's 18 header bytes look like a TGA header.
bool LooksLikeTga(std::span<const std::uint8_t> head);

// Reads the header, colour map and extension area. E_FAIL for a header that cannot be
// decoded (or whose colour map is cut), E_UNSUPPORTED_TYPE for the Huffman-coded types and
// 16-bit indexes, E_OUTOFMEMORY above kMaxPixels.
Result ReadTgaLayout(std::span<const std::uint8_t> file, TgaLayout& layout);

// Walks the RLE packets (headers only) and returns how many pixels the stream covers, at
// most width * height; `truncated` is set when the data ends before the picture does.
std::uint64_t CountRlePixels(std::span<const std::uint8_t> data, const TgaLayout& layout,
                             bool& truncated);

}  // namespace orvanta::imaging::codecs

// Run-length coded DIBs (RLE8 and RLE4). The stream is parsed once into segments (a run of
// one colour, or a literal stretch of stored indexes) per stored row, sorted by row and
// column; rows are then painted from the segments on demand. Memory grows with the stream,
// never with the size the header claims: a few bytes of deltas or an early end-of-bitmap
// may leave most of a huge picture untouched, and those pixels stay transparent.
//
// Runs and literals that pass the row end are clipped there; a delta or end-of-line past
// the last row ends the picture. A stream that stops before its end-of-bitmap while rows
// remain is reported as truncated.
//
// Thread rules: an RleImage is immutable after parsing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/imaging/codecs/dib_reader_internal.h"

namespace orvanta::imaging::codecs {

// 16 bytes: a segment comes from at least two stream bytes, so the list stays within eight
// times the stream's size.
struct RleSegment {
    std::uint32_t row = 0;  // stored row (0 is the bottom row)
    std::uint32_t x = 0;
    std::uint32_t source = 0;  // literal: offset of its first stored byte in the stream
    std::uint8_t count = 0;    // pixels after clipping at the row end
    std::uint8_t value = 0;    // run: the index byte (RLE4: two alternating indexes)
    bool literal = false;
};

struct RleImage {
    std::vector<RleSegment> segments;
    bool truncated = false;
};

// Parses the stream `data` (the pixel data to the end of the file or entry; only its first
// 4 GiB, as the offsets a BMP header can give are 32-bit).
RleImage ParseRle(std::span<const std::uint8_t> data, const DibHeader& header);

// Paints `count` pixels of stored row `row` from pixel `x` as Bgra32; pixels no segment
// covers are transparent black.
void PaintRleRow(const RleImage& image, std::span<const std::uint8_t> data, const DibHeader& header,
                 std::uint32_t row, std::uint32_t x, std::uint32_t count, std::uint8_t* out);

}  // namespace orvanta::imaging::codecs

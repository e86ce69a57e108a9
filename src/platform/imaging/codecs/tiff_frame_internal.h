// One page of a TIFF file as a bitmap frame. The frame has its own libtiff handle on the
// page's IFD and decodes a band (a strip or a row of tiles) at a time, keeping the last
// band: random access costs at most one band decode per jump. A page stored as one huge
// compressed strip is read row by row instead (sequential access; libtiff restarts the
// strip when rows already passed are asked for again).
//
// Thread rules: single-thread, like every frame.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/imaging/codecs/tiff_structure_internal.h"
#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

// Makes the frame of page `index` (< structure.pages.size()).
Result CreateTiffFrame(std::shared_ptr<const FileBytes> bytes, const TiffStructure& structure,
                       std::uint32_t index, std::unique_ptr<BitmapFrame>& frame);

}  // namespace orvanta::imaging::codecs

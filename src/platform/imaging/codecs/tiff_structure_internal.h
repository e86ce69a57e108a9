// The outline of a TIFF file, read straight from its bytes without libtiff: byte order,
// classic or BigTIFF, the offsets of the top-level IFD chain (the pages) and the data of
// single tags. The TIFF decoder counts pages with it and finds the metadata blocks of a
// page as spans into the file. Every offset and count is checked against the file length;
// a loop in the chain ends the walk. Pure functions over immutable bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace orvanta::imaging::codecs {

// Pages beyond this are ignored: the walk must stay cheap on a hostile chain.
inline constexpr std::uint32_t kMaxTiffPages = 65535;

struct TiffStructure {
    bool bigEndian = false;
    bool bigTiff = false;
    std::vector<std::uint64_t> pages;  // IFD offsets of the top-level chain, in order
};

// True when the bytes start like a TIFF or BigTIFF header.
bool LooksLikeTiff(std::span<const std::uint8_t> head);

// nullopt when the header is not TIFF or the first IFD is unreadable. A chain that breaks
// later keeps the pages read so far.
std::optional<TiffStructure> ReadTiffStructure(std::span<const std::uint8_t> bytes,
                                               std::uint32_t maxPages = kMaxTiffPages);

// The value bytes of `tag` in the IFD at `ifdOffset` (inline or at its offset); empty when
// the tag is absent or its data does not lie inside the file.
std::span<const std::uint8_t> TiffTagData(std::span<const std::uint8_t> bytes,
                                          const TiffStructure& structure, std::uint64_t ifdOffset,
                                          std::uint16_t tag);

}  // namespace orvanta::imaging::codecs

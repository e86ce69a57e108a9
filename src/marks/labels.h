// Colour labels: the names that a label index has under each labelling convention (what
// sidecars and embedded XMP hold in xmp:Label), and reading such a name back into an index.
// Conventions: 0 has five colours, 1 and 2 have nine in different orders. Pure functions
// over constant tables (LabelIndexFromName(text) also reads the current
// LabellingConvention setting); thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

namespace orvanta::marks {

// "Red", "Yellow", ... for index 1..9 under convention 0..2; "" for any other index or
// convention, and for indices the convention has no colour for.
std::string_view LabelName(std::int32_t index, std::uint32_t convention);

// The index a label text stands for under `convention`: a leading digit 1..9 is read as a
// number (1..5 only under convention 0), a colour name or one of the Select/Second/
// Approved/Review/To Do names is looked up without regard to case ("Grey" as "Gray");
// -1 for an empty text and for anything the convention does not know.
std::int32_t LabelIndexFromName(std::string_view text, std::uint32_t convention);
// The same under the current LabellingConvention setting.
std::int32_t LabelIndexFromName(std::string_view text);

}  // namespace orvanta::marks

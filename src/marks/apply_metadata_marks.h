// Taking the culling marks that a picture's metadata carries into its list entry, run by
// the decode worker after a successful decode. Stars 1..5, labels and urgencies 1..9 are
// taken; anything else (0, the percent rating, values out of range) leaves the mark unset
// (-1). A label records the labelling convention in force when it was read.
//
// Thread rules: the caller holds the entry's decode lock; reads the LabellingConvention
// setting.
#pragma once

namespace orvanta::list {
struct PictureEntry;
}
namespace orvanta::metadata {
struct PictureMetadata;
}

namespace orvanta::marks {

// Does nothing unless the record's marks bit is set.
void ApplyMetadataMarks(list::PictureEntry& entry, const metadata::PictureMetadata& record);

}  // namespace orvanta::marks

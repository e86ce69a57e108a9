#include "marks/apply_metadata_marks.h"

#include "list/picture_entry.h"
#include "metadata/picture_metadata.h"
#include "settings/settings.h"

namespace orvanta::marks {

namespace {

std::int32_t InRange(std::int32_t value, std::int32_t high) {
    return value >= 1 && value <= high ? value : -1;
}

}  // namespace

void ApplyMetadataMarks(list::PictureEntry& entry, const metadata::PictureMetadata& record) {
    if ((record.validFields & metadata::ValidField::kMarks) == 0) {
        return;
    }
    entry.marks.rating = InRange(record.rating, 5);
    entry.marks.label = InRange(record.label, 9);
    if (entry.marks.label != -1) {
        entry.marks.labellingConvention =
            static_cast<std::int32_t>(settings::LabellingConvention.Get());
    }
    entry.marks.urgency = InRange(record.urgency, 9);
}

}  // namespace orvanta::marks

// The seam through which the metadata reader takes culling marks from an XMP sidecar file.
// The sidecar reader lives with the marks; start-up installs it here before any decode
// worker runs. Until one is installed no sidecar is read. Installing is thread-safe; the
// reader installed must be safe to call from several decode workers at once.
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/result.h"

namespace orvanta::metadata {

// The four marks in the order the sidecar reader fills them; -1 means none.
struct SidecarMarks {
    std::int16_t ratingPercent = -1;
    std::int16_t rating = -1;
    std::int16_t label = -1;
    std::int16_t urgency = -1;
};

// Reads the sidecar of `picture` (its path with the extension replaced by ".xmp") and
// writes only the marks it finds. S_OK when at least one was found, S_FALSE when none was
// or there is no sidecar, a failure code when the sidecar cannot be loaded.
using SidecarMarksReader = Result (*)(const std::filesystem::path& picture, SidecarMarks& marks);

// nullptr removes the reader.
void SetSidecarMarksReader(SidecarMarksReader reader);
// Runs the installed reader; S_FALSE when none is installed.
Result ReadSidecarMarks(const std::filesystem::path& picture, SidecarMarks& marks);

}  // namespace orvanta::metadata

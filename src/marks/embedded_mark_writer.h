// Writing a mark into the picture file itself, as XMP, EXIF and IPTC values that other
// photo tools read: JPEG and TIFF files only (exiv2 has no writer for HD Photo; PNG and
// camera raw files are refused). exiv2 rewrites the metadata segments and copies the
// compressed picture data as it is; the new file replaces the old one atomically, keeping
// its last-write time unless UpdateLastWriteTimeWhenRating is set.
//
// A file another program holds for writing (a POSIX record lock, or a flock(), on it)
// gives E_SHARING_VIOLATION, which the mark writer retries: this is how the platform's
// deny-write sharing mode shows on this system. Thread rules: the mark writer thread (or
// orvanta-cli) only; one write per file at a time.
#pragma once

#include <filesystem>

#include "marks/mark_request.h"
#include "platform/result.h"

namespace orvanta::marks {

// E_UNSUPPORTED_TYPE, the file untouched, for a container that cannot carry the mark, and
// for a TIFF whose pages the library would not all keep; S_FALSE for a file without frames.
Result WriteEmbeddedMarkToFile(const std::filesystem::path& file, const MarkRequest& request,
                               const MarkTime& time);

}  // namespace orvanta::marks

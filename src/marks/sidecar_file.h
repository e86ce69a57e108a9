// XMP sidecar files: the marks read from the sidecar beside a picture, a new sidecar made
// from fixed templates, and a mark put into an existing sidecar in place. Updates find the
// namespaces by their URI, whatever prefix the file binds them to, keep the form a property
// has (element or attribute) and leave everything else in the file alone. A sidecar that
// does not parse is never written over. Every write replaces the file atomically.
//
// Thread rules: the reader may run on several decode workers at once; creating and updating
// happen on the mark writer thread only. Neither side locks the file: a reader that meets a
// half-replaced sidecar cannot, since the replacement is a rename.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "marks/mark_request.h"
#include "metadata/sidecar_marks.h"
#include "platform/result.h"

namespace orvanta::marks {

// The picture's path with its extension replaced by ".xmp".
std::filesystem::path SidecarPathOf(const std::filesystem::path& picture);

// The marks a sidecar's text holds. S_OK when one was found, S_FALSE when none was,
// E_UNEXPECTED when the text does not parse as a sidecar.
Result ReadSidecarText(std::span<const std::uint8_t> text, metadata::SidecarMarks& marks);
// The same for the sidecar of `picture`; S_FALSE when it has none. This is the reader that
// InstallSidecarReader() gives the metadata reader.
Result ReadSidecarFile(const std::filesystem::path& picture, metadata::SidecarMarks& marks);
void InstallSidecarReader();

// The text of a new sidecar holding the mark.
std::string NewSidecarText(const MarkRequest& request, const MarkTime& time);
// The sidecar's text with the mark put in: E_UNEXPECTED when it does not parse or has no
// x:xmpmeta element, `updated` then left empty.
Result UpdateSidecarText(std::span<const std::uint8_t> text, const MarkRequest& request,
                         const MarkTime& time, std::vector<std::uint8_t>& updated);

Result CreateSidecarFile(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime& time);
Result UpdateSidecarFile(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime& time);

}  // namespace orvanta::marks

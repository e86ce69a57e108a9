// The places a mark is written to, as the mark writer calls them: the XMP sidecar beside the
// picture and the picture file itself. Each call returns a result and shows nothing; the
// writer decides what to tell the user. Tests give the writer stores of their own to inject
// failures (sharing violations, full disks).
//
// Thread rules: only the mark writer thread (or orvanta-cli) calls the stores.
#pragma once

#include <filesystem>

#include "marks/mark_request.h"
#include "platform/result.h"

namespace orvanta::marks {

class MarkStores {
public:
    virtual ~MarkStores() = default;
    // A new sidecar from the templates; the system error of the write when it fails.
    virtual Result CreateSidecar(const std::filesystem::path& sidecar, const MarkRequest& request,
                                 const MarkTime& time) = 0;
    // The mark put into an existing sidecar, everything else in it left alone; the file is
    // replaced atomically or not at all.
    virtual Result UpdateSidecar(const std::filesystem::path& sidecar, const MarkRequest& request,
                                 const MarkTime& time) = 0;
    // The mark written into one picture file: E_UNSUPPORTED_TYPE for a container that cannot
    // carry it (the file untouched), E_SHARING_VIOLATION when the file is held, S_OK when
    // written. Sets the entry's self-replaced flag before a replaced file is renamed into place.
    virtual Result WriteEmbeddedMark(const std::filesystem::path& file, const MarkRequest& request,
                                     const MarkTime& time) = 0;
};

// The stores over the real files.
MarkStores& FileMarkStores();

}  // namespace orvanta::marks

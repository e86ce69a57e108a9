// The four maker-note readers on arbitrary blobs: they must stay inside the blob.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "metadata/maker_notes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // An exact-size copy, so that a read one byte past the blob is caught.
    const std::vector<std::uint8_t> blob(data, data + size);
    const std::span<const std::uint8_t> note(blob);
    volatile std::int32_t sink = 0;
    sink = sink + orvanta::metadata::NikonIsoFromMakerNote(note);
    sink = sink + orvanta::metadata::NikonColourSpaceFromMakerNote(note);
    sink = sink + orvanta::metadata::CanonColourSpaceFromMakerNote(note);
    sink = sink + orvanta::metadata::OlympusColourSpaceFromMakerNote(note);
    return 0;
}

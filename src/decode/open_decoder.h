// Making the decoder for a picture file: the decoder of the container its extension maps
// to (a Canon raw falls back to the alternate raw container), given the file only when it
// is larger than 16 bytes; otherwise, or when that fails, the decoder chosen by content.
// Reads the file once; the bytes stay with the decoder. Thread-safe; the decoder it
// returns is used by one thread.
#pragma once

#include <filesystem>
#include <memory>

#include "platform/imaging/decoder.h"
#include "platform/imaging/file_bytes.h"

namespace orvanta::decode {

struct OpenedPicture {
    std::shared_ptr<const imaging::FileBytes> bytes;
    std::unique_ptr<imaging::Decoder> decoder;
    imaging::Guid container;  // as the decoder reports it
};

// E_UNSUPPORTED_TYPE (0x8007065E) when no decoder reads the file; the read's error when the
// file cannot be read; otherwise the last decoder's failure.
Result OpenPicture(const std::filesystem::path& path, OpenedPicture& picture);

}  // namespace orvanta::decode

// The seam between the decode workers and the decode step: a worker hands an entry and the
// sibling file it chose to an EntryDecoder, which stores the picture, its size, metadata and
// result in the entry. PipelineDecoder is the real one (DecodeEntry with the options the
// settings give); tests put in decoders of their own.
//
// Thread rules: Decode is called by several workers at once, each on its own entry with that
// entry's decode lock held; implementations must be safe for that.
#pragma once

#include <string_view>

#include "decode/decode_entry.h"
#include "platform/result.h"

namespace orvanta::list {
struct PictureEntry;
}

namespace orvanta::decode {

class EntryDecoder {
public:
    virtual ~EntryDecoder() = default;
    // `decodeKind` is the chosen file's extension (lower case, no dot); `raw` lets a raw
    // file's large embedded preview stand in for it.
    virtual Result Decode(list::PictureEntry& entry, std::string_view decodeKind, bool raw) = 0;
};

class PipelineDecoder final : public EntryDecoder {
public:
    PipelineDecoder(imaging::PixelFormat outputFormat, bool accelerated,
                    const MonitorProfileProvider* monitor = nullptr)
        : outputFormat_(outputFormat), accelerated_(accelerated), monitor_(monitor) {}
    Result Decode(list::PictureEntry& entry, std::string_view decodeKind, bool raw) override;
    // The options a decode started now would use.
    DecodeOptions Options(bool raw) const;

private:
    imaging::PixelFormat outputFormat_;
    bool accelerated_;
    const MonitorProfileProvider* monitor_;
};

}  // namespace orvanta::decode

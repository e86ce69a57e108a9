// A head start for the picture shown first. The program knows the file it opens with long
// before the list has found it and a worker has taken it, so that file's decode begins at
// once on a thread of its own while the window is being made. When a worker later decodes
// the same file with the same options, it takes the picture made ahead (waiting for the rest
// of that decode) instead of decoding the file again; the first decode of any other file, or
// of that file with other options, lets the head start go (aborted, its picture freed).
//
// Thread rules: Begin on the thread that owns the decoder; Decode on the workers, like the
// decoder it wraps. The pending head start is guarded by the decoder's lock; a taken one by
// its own. The destructor aborts a running head start and joins its thread.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "decode/entry_decoder.h"

namespace orvanta::decode {

class HeadStartDecoder final : public EntryDecoder {
public:
    // `inner` gives the options and outlives this; `decodeFile` makes every picture, the
    // one made ahead included (DecodePicture when empty).
    explicit HeadStartDecoder(PipelineDecoder& inner, PictureDecodeFunction decodeFile = {});
    ~HeadStartDecoder() override;
    HeadStartDecoder(const HeadStartDecoder&) = delete;
    HeadStartDecoder& operator=(const HeadStartDecoder&) = delete;

    // Starts decoding frame 0 of `file` with the options the settings give now; a head start
    // not yet taken is let go.
    void Begin(const std::filesystem::path& file);
    Result Decode(list::PictureEntry& entry, std::string_view decodeKind, bool raw) override;
    // A head start is waiting to be taken.
    bool Pending() const;

private:
    struct Run;

    // The pending run when it decodes `path`'s frame `frameIndex` with `options`; the pending
    // run goes either way.
    std::shared_ptr<Run> Take(const std::filesystem::path& path, std::uint16_t frameIndex,
                              const DecodeOptions& options);

    PipelineDecoder& inner_;
    PictureDecodeFunction decodeFile_;
    mutable std::mutex mutex_;  // guards run_
    std::shared_ptr<Run> run_;
    std::jthread thread_;  // the latest run's; set and joined by the owner's thread only
};

}  // namespace orvanta::decode

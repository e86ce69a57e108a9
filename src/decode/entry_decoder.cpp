#include "decode/entry_decoder.h"

namespace orvanta::decode {

Result PipelineDecoder::Decode(list::PictureEntry& entry, std::string_view decodeKind, bool raw) {
    // Read per decode: the user may change EnableICC or the orientation setting at any time.
    return DecodeEntry(entry, decodeKind, Options(raw));
}

DecodeOptions PipelineDecoder::Options(bool raw) const {
    DecodeOptions options = DecodeOptions::FromSettings(outputFormat_, accelerated_, monitor_);
    options.raw = raw;
    return options;
}

}  // namespace orvanta::decode

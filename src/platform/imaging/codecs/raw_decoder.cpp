#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging::codecs {

// Not built yet: no raw components.
std::vector<DecoderInfo> RawDecoderInfos() { return {}; }

}  // namespace orvanta::imaging::codecs

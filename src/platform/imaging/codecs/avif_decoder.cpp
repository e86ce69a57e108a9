#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging::codecs {

// Not built yet: an empty info registers nothing.
DecoderInfo AvifDecoderInfo() { return {}; }

}  // namespace orvanta::imaging::codecs

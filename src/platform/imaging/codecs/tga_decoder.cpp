#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging::codecs {

// Not built yet: an empty info registers nothing.
DecoderInfo TgaDecoderInfo() { return {}; }

}  // namespace orvanta::imaging::codecs

#include "platform/imaging/codecs/codecs.h"

namespace orvanta::imaging::codecs {

// Not built yet: an empty info registers nothing.
DecoderInfo JpegDecoderInfo() { return {}; }

}  // namespace orvanta::imaging::codecs

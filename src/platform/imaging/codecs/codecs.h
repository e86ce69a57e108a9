// The built-in decoders. Each codec file defines its Info function only when its library
// was found (ORVANTA_HAVE_<LIB>); the component list registers what is there, in this
// order (the seven platform containers first).
#pragma once

#include "platform/imaging/component_list.h"

namespace orvanta::imaging::codecs {

DecoderInfo JpegDecoderInfo();  // libjpeg-turbo
DecoderInfo WmpDecoderInfo();   // jxrlib (HD Photo / JPEG XR)
DecoderInfo BmpDecoderInfo();   // own
DecoderInfo PngDecoderInfo();   // libspng
DecoderInfo IcoDecoderInfo();   // own (PNG entries through PngDecoderInfo's library)
DecoderInfo GifDecoderInfo();   // giflib
DecoderInfo TiffDecoderInfo();  // libtiff
DecoderInfo TgaDecoderInfo();   // own
DecoderInfo WebpDecoderInfo();  // libwebp
DecoderInfo HeifDecoderInfo();  // libheif (HEIF)
DecoderInfo AvifDecoderInfo();  // libheif (AVIF)
DecoderInfo JxlDecoderInfo();   // libjxl
// LibRaw: one component per raw container of the formats table, and one for the other
// extensions LibRaw reads.
std::vector<DecoderInfo> RawDecoderInfos();

}  // namespace orvanta::imaging::codecs

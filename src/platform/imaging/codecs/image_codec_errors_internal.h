// Failure codes the built-in codecs return for bad files, with the platform imaging
// component's numeric values so that logs and the command-line tool print the codes a
// user of the platform's decoders would recognise. Constants only; free to share.
#pragma once

#include "platform/result.h"

namespace orvanta::imaging::codecs {

inline constexpr Result kErrImageSizeOutOfRange{0x88982F51u};  // larger than kMaxPixels
inline constexpr Result kErrBadImage{0x88982F60u};             // pixel data unusable
inline constexpr Result kErrBadHeader{0x88982F61u};            // header missing or corrupt
inline constexpr Result kErrFrameMissing{0x88982F62u};
inline constexpr Result kErrBadStreamData{0x88982F70u};  // data ends or breaks early
inline constexpr Result kErrUnsupportedPixelFormat{0x88982F80u};
inline constexpr Result kErrUnsupportedOperation{0x88982F81u};

}  // namespace orvanta::imaging::codecs

#include "decode/output_format.h"

namespace orvanta::decode {

using imaging::PixelFormat;

PixelFormat OutputFormatForBackBuffer(BackBufferFormat format) {
    switch (format) {
        case BackBufferFormat::R8G8B8:
            return PixelFormat::Bgr24;
        case BackBufferFormat::A8R8G8B8:
            return PixelFormat::Bgra32;
        case BackBufferFormat::R5G6B5:
            return PixelFormat::Bgr565;
        case BackBufferFormat::X1R5G5B5:
            return PixelFormat::Bgr555;
        default:
            return PixelFormat::Pbgra32;
    }
}

PixelFormat OutputFormatForScreen(const ScreenDepth& screen) {
    if (screen.bitsPerPixel == 16 && !screen.palette && screen.planes * screen.bitsPerPixel != 24) {
        return screen.greenMaskBits == 6 ? PixelFormat::Bgr565 : PixelFormat::Bgr555;
    }
    if (screen.bitsPerPixel == 24) {
        return PixelFormat::Bgr24;
    }
    return PixelFormat::Pbgra32;
}

}  // namespace orvanta::decode

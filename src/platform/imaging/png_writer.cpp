#include "platform/imaging/png_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#if ORVANTA_HAVE_SPNG
#include <spng.h>
#endif

namespace orvanta::imaging {

Result WritePng(const std::filesystem::path& path, PixelSize size, PixelFormat format,
                std::size_t stride, std::span<const std::byte> pixels) {
#if ORVANTA_HAVE_SPNG
    if (format != PixelFormat::Pbgra32 && format != PixelFormat::Bgra32 &&
        format != PixelFormat::Bgr32 && format != PixelFormat::Bgr24) {
        return E_INVALIDARG;
    }
    const unsigned step = format == PixelFormat::Bgr24 ? 3 : 4;
    if (!AcceptableSize(size) || stride < size.width * static_cast<std::size_t>(step) ||
        pixels.size() < stride * (size.height - 1ull) + size.width * step) {
        return E_INVALIDARG;
    }
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(size.width) * size.height * 4);
    for (std::uint32_t y = 0; y < size.height; ++y) {
        const auto* in = reinterpret_cast<const std::uint8_t*>(pixels.data()) + y * stride;
        std::uint8_t* out = rgba.data() + static_cast<std::size_t>(y) * size.width * 4;
        for (std::uint32_t x = 0; x < size.width; ++x, in += step, out += 4) {
            const unsigned a = step == 3 || format == PixelFormat::Bgr32 ? 255 : in[3];
            if (format == PixelFormat::Pbgra32 && a != 255) {
                // Undo premultiplication, rounding to nearest; transparent stays black.
                for (int c = 0; c < 3; ++c) {
                    out[2 - c] =
                        a == 0
                            ? 0
                            : static_cast<std::uint8_t>(std::min(255u, (in[c] * 255u + a / 2) / a));
                }
            } else {
                out[0] = in[2];
                out[1] = in[1];
                out[2] = in[0];
            }
            out[3] = static_cast<std::uint8_t>(a);
        }
    }

    std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> ctx(spng_ctx_new(SPNG_CTX_ENCODER),
                                                            &spng_ctx_free);
    if (!ctx) {
        return E_OUTOFMEMORY;
    }
    spng_set_option(ctx.get(), SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr ihdr{};
    ihdr.width = size.width;
    ihdr.height = size.height;
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    spng_set_ihdr(ctx.get(), &ihdr);
    if (spng_encode_image(ctx.get(), rgba.data(), rgba.size(), SPNG_FMT_PNG,
                          SPNG_ENCODE_FINALIZE) != 0) {
        return E_FAIL;
    }
    std::size_t length = 0;
    int error = 0;
    std::unique_ptr<void, decltype(&std::free)> encoded(
        spng_get_png_buffer(ctx.get(), &length, &error), &std::free);
    if (!encoded || error != 0) {
        return E_FAIL;
    }

    const std::filesystem::path temporary = path.string() + ".tmp-orvanta";
    std::FILE* file = std::fopen(temporary.c_str(), "wb");
    if (file == nullptr) {
        return ResultFromErrno(errno);
    }
    const bool written = std::fwrite(encoded.get(), 1, length, file) == length;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed) {
        const Result failure = ResultFromErrno(errno);
        std::remove(temporary.c_str());
        return failure.Failed() ? failure : E_FAIL;
    }
    std::error_code renameError;
    std::filesystem::rename(temporary, path, renameError);
    if (renameError) {
        std::remove(temporary.c_str());
        return ResultFromErrno(renameError.value());
    }
    return S_OK;
#else
    (void)path, (void)size, (void)format, (void)stride, (void)pixels;
    return E_NOTIMPL;
#endif
}

}  // namespace orvanta::imaging

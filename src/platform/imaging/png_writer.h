// Writes 32-bit pixels as an 8-bit RGBA PNG file (libspng): the way the command-line tool
// saves what a decode produced. Written to a temporary file beside the target and renamed
// into place. Thread-safe.
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>

#include "platform/imaging/bitmap_source.h"

namespace orvanta::imaging {

// `format` is Pbgra32, Bgra32, Bgr32 or Bgr24; premultiplied colour is divided back out.
Result WritePng(const std::filesystem::path& path, PixelSize size, PixelFormat format,
                std::size_t stride, std::span<const std::byte> pixels);

}  // namespace orvanta::imaging

// One libjpeg decompressor reading a JPEG stream from memory, scanline by scanline, in the
// output colour space and DCT scale a frame asks for. libjpeg reports errors by calling
// longjmp; each operation here catches them with setjmp in a single C-style function that
// holds no C++ object, and turns them into a Result.
//
// Thread rules: single-thread; a session belongs to one frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/imaging/bitmap_source.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

enum class JpegColor : std::uint8_t {
    Gray,  // Gray8
    Bgr,   // Bgr24
    Rgb,   // Rgb24
    Bgrx,  // Bgr32
    Bgra,  // Bgra32 and Pbgra32 (opaque, so premultiplied equals straight)
    Rgba,  // Rgba32
    Cmyk,  // Cmyk32, as stored (Adobe writers store it inverted)
};

struct JpegOutput {
    JpegColor color = JpegColor::Bgr;
    std::uint32_t scaleNum = 8;  // output is scaleNum/8 of the stored size
    PixelSize size;              // the size this output must have
};

struct JpegState;

class JpegSession {
public:
    JpegSession();
    ~JpegSession();
    JpegSession(const JpegSession&) = delete;
    JpegSession& operator=(const JpegSession&) = delete;

    // Starts (or restarts) decoding `stream` from its first row. kErrBadHeader when libjpeg
    // refuses the headers, kErrBadImage when it fails before the first row.
    Result Start(std::span<const std::uint8_t> stream, const JpegOutput& output);
    // Decodes the next `rows.size()` rows into the given row pointers.
    Result Read(std::span<std::uint8_t*> rows);
    // Passes over `count` rows without producing them.
    Result Skip(std::uint32_t count);

    bool Started() const { return started_; }
    std::uint32_t NextRow() const;
    // The data ended before the last row; the missing part came out gray.
    bool Truncated() const;
    // libjpeg saw an Adobe segment (four-component data is stored inverted).
    bool SawAdobeMarker() const;

private:
    std::unique_ptr<JpegState> state_;
    bool started_ = false;
};

}  // namespace orvanta::imaging::codecs

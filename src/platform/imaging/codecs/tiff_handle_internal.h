// A libtiff handle reading from a file's bytes in memory. Each handle has its own error
// and warning handlers (libtiff's per-handle handlers with user data), so decoders on
// several threads never share libtiff's global handlers, and its own memory cap. The
// handle is opened without reading a directory; SelectPage reads one page's IFD.
//
// Thread rules: one handle per thread at a time; the bytes must outlive the handle.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include <tiffio.h>

namespace orvanta::imaging::codecs {

// libtiff refuses any single allocation above this (strip buffers of hostile headers).
inline constexpr std::int64_t kTiffMaxSingleAllocation = 256ll << 20;

class TiffHandle {
public:
    // nullptr when libtiff refuses the header.
    static std::unique_ptr<TiffHandle> Open(std::span<const std::uint8_t> bytes);
    ~TiffHandle();
    TiffHandle(const TiffHandle&) = delete;
    TiffHandle& operator=(const TiffHandle&) = delete;

    TIFF* Get() const { return tiff_; }
    // Reads the IFD at `offset` as the current directory.
    bool SelectPage(std::uint64_t offset);
    // The last error libtiff reported on this handle (for logs and tests).
    const std::string& LastError() const { return state_.lastError; }

    // The client state libtiff calls back with; public only for the C callbacks.
    struct State {
        std::span<const std::uint8_t> bytes;
        std::uint64_t position = 0;
        std::string lastError;
    };

private:
    TiffHandle() = default;

    State state_;
    TIFF* tiff_ = nullptr;
};

}  // namespace orvanta::imaging::codecs

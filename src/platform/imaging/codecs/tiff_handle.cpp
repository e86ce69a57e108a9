// Built only with libtiff.
#if ORVANTA_HAVE_TIFF

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/imaging/codecs/tiff_handle_internal.h"

namespace orvanta::imaging::codecs {

namespace {

using State = TiffHandle::State;

tmsize_t ReadProc(thandle_t handle, void* buffer, tmsize_t size) {
    auto* state = static_cast<State*>(handle);
    if (size <= 0 || state->position >= state->bytes.size()) {
        return 0;
    }
    const std::uint64_t available = state->bytes.size() - state->position;
    const std::uint64_t count =
        std::min<std::uint64_t>(available, static_cast<std::uint64_t>(size));
    std::memcpy(buffer, state->bytes.data() + state->position, count);
    state->position += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t WriteProc(thandle_t, void*, tmsize_t) {
    return -1;
}

toff_t SeekProc(thandle_t handle, toff_t offset, int whence) {
    auto* state = static_cast<State*>(handle);
    std::uint64_t base = 0;
    switch (whence) {
        case SEEK_SET:
            base = 0;
            break;
        case SEEK_CUR:
            base = state->position;
            break;
        case SEEK_END:
            base = state->bytes.size();
            break;
        default:
            return static_cast<toff_t>(-1);
    }
    std::uint64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target > (1ull << 62)) {
        return static_cast<toff_t>(-1);
    }
    // Past the end is allowed, as for a file; reads there return nothing.
    state->position = target;
    return target;
}

int CloseProc(thandle_t) {
    return 0;
}

toff_t SizeProc(thandle_t handle) {
    return static_cast<State*>(handle)->bytes.size();
}

// No mapping: libtiff then copies raw strips instead of pointing into the shared bytes.
int MapProc(thandle_t, void**, toff_t*) {
    return 0;
}
void UnmapProc(thandle_t, void*, toff_t) {
}

int ErrorHandler(TIFF*, void* userData, const char* module, const char* format, va_list args) {
    auto* state = static_cast<State*>(userData);
    char message[512];
    std::vsnprintf(message, sizeof message, format, args);
    state->lastError = module != nullptr ? std::string(module) + ": " + message : message;
    return 1;  // handled: libtiff's global handler stays silent
}

int WarningHandler(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

struct OptionsDeleter {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

}  // namespace

std::unique_ptr<TiffHandle> TiffHandle::Open(std::span<const std::uint8_t> bytes) {
    std::unique_ptr<TiffHandle> handle(new TiffHandle());
    handle->state_.bytes = bytes;
    const std::unique_ptr<TIFFOpenOptions, OptionsDeleter> options(TIFFOpenOptionsAlloc());
    if (!options) {
        return nullptr;
    }
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kTiffMaxSingleAllocation);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), ErrorHandler, &handle->state_);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), WarningHandler, &handle->state_);
    // "h": header only, the caller picks the page; "m": no mapping; "C": chop large
    // uncompressed strips into small ones so that a page never needs one huge buffer.
    handle->tiff_ =
        TIFFClientOpenExt("memory", "rhmC", &handle->state_, ReadProc, WriteProc, SeekProc,
                          CloseProc, SizeProc, MapProc, UnmapProc, options.get());
    if (handle->tiff_ == nullptr) {
        return nullptr;
    }
    return handle;
}

TiffHandle::~TiffHandle() {
    if (tiff_ != nullptr) {
        TIFFClose(tiff_);
    }
}

bool TiffHandle::SelectPage(std::uint64_t offset) {
    return TIFFSetSubDirectory(tiff_, offset) == 1;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_TIFF

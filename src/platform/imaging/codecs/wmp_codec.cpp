// Built only with jxrlib.
#if ORVANTA_HAVE_JXR

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/imaging/codecs/wmp_codec_internal.h"
#include "platform/imaging/guid.h"
#include "platform/imaging/pixel_format.h"

// jxrlib last: its macros must not reach the headers above.
#include <JXRGlue.h>
#undef min
#undef max
#undef Failed

namespace orvanta::imaging::codecs {

namespace {

// Formats jxrlib writes that have no format of ours but an easy one next to them.
constexpr Guid kRgbx32 = MakeGuid("d98c6b95-3efe-47d6-bb25-eb1748ab0cf1");   // 32bppRGB
constexpr Guid kPrgba32 = MakeGuid("3cc4a650-a527-4d37-a916-3142c7ebedba");  // 32bppPRGBA

enum class Fixup : std::uint8_t { None, DropFourth, SwapRedBlue };

// The container stores the GUID's first three fields little-endian.
Guid GuidFromStored(const std::array<std::uint8_t, 16>& stored) {
    Guid guid;
    constexpr int kOrder[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    for (int i = 0; i < 16; ++i) {
        guid.bytes[i] = stored[kOrder[i]];
    }
    return guid;
}

bool Native(PixelFormat format) {
    switch (format) {
        case PixelFormat::BlackWhite:
        case PixelFormat::Gray8:
        case PixelFormat::Gray16:
        case PixelFormat::Bgr555:
        case PixelFormat::Bgr565:
        case PixelFormat::Bgr24:
        case PixelFormat::Rgb24:
        case PixelFormat::Bgr32:
        case PixelFormat::Bgra32:
        case PixelFormat::Pbgra32:
        case PixelFormat::Rgba32:
        case PixelFormat::Rgb48:
        case PixelFormat::Rgba64:
        case PixelFormat::Prgba64:
        case PixelFormat::Cmyk32:
        case PixelFormat::Cmyk64:
            return true;
        default:
            return false;
    }
}

// A stream over the file that shows the cleaned directory in place of the file's own.
// Positions past the end are allowed and read as zeros, as with jxrlib's memory stream:
// its bit reader reads whole packets ahead of the data it needs and ignores errors.
struct OverlayStream {
    WMPStream stream;  // first member: jxrlib hands this pointer back to the callbacks
    std::span<const std::uint8_t> file;
    std::span<const std::uint8_t> overlay;
    std::size_t overlayOffset = 0;
    std::size_t position = 0;
};
static_assert(std::is_standard_layout_v<OverlayStream>);

OverlayStream* Self(WMPStream* stream) {
    return reinterpret_cast<OverlayStream*>(stream);
}

ERR StreamRead(WMPStream* stream, void* buffer, size_t count) {
    OverlayStream* self = Self(stream);
    auto* out = static_cast<std::uint8_t*>(buffer);
    const std::size_t position = std::min(self->position, self->file.size());
    const std::size_t available = std::min(count, self->file.size() - position);
    std::memcpy(out, self->file.data() + position, available);
    const std::size_t from = std::max(position, self->overlayOffset);
    const std::size_t to =
        std::min(position + available, self->overlayOffset + self->overlay.size());
    if (from < to) {
        std::memcpy(out + (from - position), self->overlay.data() + (from - self->overlayOffset),
                    to - from);
    }
    std::memset(out + available, 0, count - available);
    self->position += available;
    return WMP_errSuccess;
}

ERR StreamWrite(WMPStream*, const void*, size_t) {
    return WMP_errFileIO;
}

ERR StreamSetPos(WMPStream* stream, size_t position) {
    Self(stream)->position = position;
    return WMP_errSuccess;
}

ERR StreamGetPos(WMPStream* stream, size_t* position) {
    *position = Self(stream)->position;
    return WMP_errSuccess;
}

Bool StreamEnd(WMPStream* stream) {
    OverlayStream* self = Self(stream);
    return self->position >= self->file.size();
}

// The stream belongs to the codec: closing it is a no-op.
ERR StreamClose(WMPStream**) {
    return WMP_errSuccess;
}

// A damaged codestream may also keep jxrlib busy for ever: the child gets far longer than
// a healthy decode needs (half a minute plus a second per megapixel), then is killed.
int DecodeDeadline(const PKRect& rect) {
    const std::uint64_t megapixels =
        static_cast<std::uint64_t>(rect.Width) * static_cast<std::uint64_t>(rect.Height) >> 20;
    return static_cast<int>(std::min<std::uint64_t>(30 + megapixels, 3600) * 1000);
}

// True when the child ended within `milliseconds`; also true when the wait cannot be timed
// (no pidfd on this kernel), and the caller then waits without a limit.
bool AwaitChild(pid_t child, int milliseconds) {
    // Through syscall(): glibc's declaration lacks C linkage for C++ callers.
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    if (descriptor < 0) {
        return true;
    }
    pollfd wait{descriptor, POLLIN, 0};
    int ready = 0;
    while ((ready = poll(&wait, 1, milliseconds)) < 0 && errno == EINTR) {
    }
    close(descriptor);
    return ready != 0;
}

struct SharedPixels {
    void* address = MAP_FAILED;
    std::size_t size = 0;
    ~SharedPixels() {
        if (address != MAP_FAILED) {
            munmap(address, size);
        }
    }
};

// jxrlib's entropy decoder reads out of bounds on damaged codestreams, which no check of
// ours can foresee. The pixels are therefore decoded in a child process that writes into
// shared memory: a crash there is a failed decode here. The child only runs jxrlib (C,
// malloc and memcpy) and leaves with _exit, and fatal signals get their default action so
// that no crash handler of the program runs for it.
Result DecodeIsolated(PKImageDecode* decoder, const PKRect& rect, std::uint8_t* target,
                      std::size_t stride) {
    SharedPixels shared;
    shared.size = stride * static_cast<std::size_t>(rect.Height);
    shared.address =
        mmap(nullptr, shared.size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared.address == MAP_FAILED) {
        return E_OUTOFMEMORY;
    }
    const pid_t child = fork();
    if (child < 0) {
        return E_OUTOFMEMORY;
    }
    if (child == 0) {
        for (int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
            std::signal(signal, SIG_DFL);
        }
        const ERR error = decoder->Copy(decoder, &rect, static_cast<U8*>(shared.address),
                                        static_cast<U32>(stride));
        _exit(error == WMP_errSuccess ? 0 : 1);
    }
    if (!AwaitChild(child, DecodeDeadline(rect))) {
        kill(child, SIGKILL);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return E_FAIL;
        }
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return E_FAIL;
    }
    std::memcpy(target, shared.address, shared.size);
    return S_OK;
}

}  // namespace

struct WmpCodec::Impl {
    std::vector<std::uint8_t> directory;  // the stream's overlay, owned here
    OverlayStream stream{};
    PKImageDecode* decoder = nullptr;
    PixelFormat format = PixelFormat::Unknown;
    Fixup fixup = Fixup::None;
    std::size_t decodeBitsPerPixel = 0;
    bool decoded = false;

    ~Impl() {
        if (decoder != nullptr) {
            decoder->Release(&decoder);
        }
    }
};

WmpCodec::WmpCodec(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {
}
WmpCodec::~WmpCodec() = default;

Result WmpCodec::Open(std::span<const std::uint8_t> bytes, const WmpContainer& container,
                      std::unique_ptr<WmpCodec>& codec) {
    codec.reset();
    auto impl = std::make_unique<Impl>();
    const Guid format = GuidFromStored(container.pixelFormat);
    impl->format = PixelFormatFromGuid(format);
    if (format == kRgbx32) {
        impl->format = PixelFormat::Rgb24;
        impl->fixup = Fixup::DropFourth;
    } else if (format == kPrgba32) {
        impl->format = PixelFormat::Pbgra32;
        impl->fixup = Fixup::SwapRedBlue;
    } else if (!Native(impl->format)) {
        return E_UNSUPPORTED_TYPE;
    }

    OverlayStream& stream = impl->stream;
    stream.file = bytes;
    impl->directory = container.directory;
    stream.overlay = impl->directory;
    stream.overlayOffset = container.directoryOffset;
    stream.stream.Close = StreamClose;
    stream.stream.EOS = StreamEnd;
    stream.stream.Read = StreamRead;
    stream.stream.Write = StreamWrite;
    stream.stream.SetPos = StreamSetPos;
    stream.stream.GetPos = StreamGetPos;

    if (PKImageDecode_Create_WMP(&impl->decoder) != WMP_errSuccess || impl->decoder == nullptr) {
        return E_OUTOFMEMORY;
    }
    PKImageDecode* decoder = impl->decoder;
    if (decoder->Initialize(decoder, &stream.stream) != WMP_errSuccess) {
        return E_FAIL;
    }
    decoder->fStreamOwner = FALSE;
    const PixelSize size{decoder->uWidth, decoder->uHeight};
    if (!AcceptableSize(size)) {
        return size.width == 0 || size.height == 0 ? E_FAIL : E_OUTOFMEMORY;
    }
    // The codestream says what it holds; a container that names another format would
    // have jxrlib write pixels of one layout into rows sized for the other.
    PKPixelInfo info{};
    info.pGUIDPixFmt = &decoder->guidPixFormat;
    if (PixelFormatLookup(&info, LOOKUP_FORWARD) != WMP_errSuccess ||
        info.cfColorFormat != decoder->WMP.wmiI.cfColorFormat ||
        info.bdBitDepth != decoder->WMP.wmiI.bdBitDepth || info.cbitUnit == 0) {
        return E_FAIL;
    }
    impl->decodeBitsPerPixel = info.cbitUnit;
    codec.reset(new WmpCodec(std::move(impl)));
    return S_OK;
}

PixelSize WmpCodec::Size() const {
    return {impl_->decoder->uWidth, impl_->decoder->uHeight};
}

PixelFormat WmpCodec::Format() const {
    return impl_->format;
}

std::size_t WmpCodec::DecodeRowBytes() const {
    return (std::size_t{impl_->decoder->uWidth} * impl_->decodeBitsPerPixel + 7) / 8;
}

Result WmpCodec::Decode(std::uint8_t* target, std::size_t stride) {
    if (impl_->decoded || stride > UINT32_MAX || stride < DecodeRowBytes()) {
        return E_UNEXPECTED;
    }
    impl_->decoded = true;
    PKImageDecode* decoder = impl_->decoder;
    PKPixelInfo info{};
    info.pGUIDPixFmt = &decoder->guidPixFormat;
    if (PixelFormatLookup(&info, LOOKUP_FORWARD) != WMP_errSuccess) {
        return E_FAIL;
    }
    CWMImageInfo& image = decoder->WMP.wmiI;
    image.cfColorFormat = info.cfColorFormat;
    image.bdBitDepth = info.bdBitDepth;
    image.cBitsPerUnit = info.cbitUnit;
    image.cThumbnailWidth = image.cWidth;
    image.cThumbnailHeight = image.cHeight;
    image.bSkipFlexbits = FALSE;
    image.cROILeftX = 0;
    image.cROITopY = 0;
    image.cROIWidth = image.cWidth;
    image.cROIHeight = image.cHeight;
    // Stored orientation: the container's transformation is left to the caller.
    image.oOrientation = O_NONE;
    image.cPostProcStrength = 0;
    decoder->WMP.wmiSCP.uAlphaMode = (info.grBit & PK_pixfmtHasAlpha) != 0 ? 2 : 0;
    decoder->WMP.wmiSCP.sbSubband = SB_ALL;
    decoder->WMP.wmiSCP.bVerbose = FALSE;
    decoder->WMP.bIgnoreOverlap = FALSE;

    const PKRect rect{0, 0, static_cast<I32>(decoder->uWidth), static_cast<I32>(decoder->uHeight)};
    if (Result r = DecodeIsolated(decoder, rect, target, stride); r.Failed()) {
        return r;
    }
    const PixelSize size = Size();
    for (std::uint32_t y = 0; y < size.height && impl_->fixup != Fixup::None; ++y) {
        std::uint8_t* row = target + y * stride;
        for (std::uint32_t x = 0; x < size.width; ++x) {
            if (impl_->fixup == Fixup::DropFourth) {
                std::memmove(row + x * 3, row + x * 4, 3);
            } else {
                std::swap(row[x * 4], row[x * 4 + 2]);
            }
        }
    }
    return S_OK;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_JXR

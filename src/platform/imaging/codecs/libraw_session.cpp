#include "platform/imaging/codecs/libraw_session_internal.h"

#if ORVANTA_HAVE_RAW

#include <libraw/libraw.h>

#include "platform/checked.h"
#include "platform/result.h"

namespace orvanta::imaging::codecs {

namespace {

// Enough for the raw buffer of a 500-megapixel 16-bit mosaic; LibRaw refuses to allocate a
// larger one, whatever the header claims.
constexpr unsigned kMaxRawMemoryMb = 1024;

Result FromLibRaw(int code) {
    switch (code) {
        case LIBRAW_SUCCESS:
            return S_OK;
        case LIBRAW_FILE_UNSUPPORTED:
            return E_UNSUPPORTED_TYPE;
        case LIBRAW_UNSUFFICIENT_MEMORY:
            return E_OUTOFMEMORY;
        default:
            return E_FAIL;
    }
}

void Check(int code) {
    if (code != LIBRAW_SUCCESS) {
        throw ResultError(FromLibRaw(code));
    }
}

bool WithinLimits(std::uint64_t width, std::uint64_t height) {
    return width > 0 && height > 0 && width * height <= kMaxPixels;
}

}  // namespace

LibRawSession::LibRawSession(const FileBytes& bytes, DevelopSettings settings)
    : raw_(std::make_unique<LibRaw>(LIBRAW_OPTIONS_NONE)),
      settings_(settings),
      fileSize_(bytes.Size()) {
    // LibRaw's own handlers print to stderr; ours count, so that a development that ran
    // out of data fails instead of showing whatever the buffers held.
    raw_->set_dataerror_handler(&LibRawSession::OnDataError, this);
    raw_->set_memerror_handler(&LibRawSession::OnMemoryError, this);
    libraw_output_params_t& params = raw_->imgdata.params;
    params.use_camera_wb = 1;
    params.use_auto_wb = 0;
    params.use_camera_matrix = 1;
    params.output_color = 1;  // sRGB
    params.gamm[0] = 1.0 / 2.4;
    params.gamm[1] = 12.92;
    params.no_auto_bright = 1;
    params.highlight = 0;
    params.user_qual = 3;
    params.half_size = settings.halfSize ? 1 : 0;
    params.output_bps = settings.deep ? 16 : 8;
    params.max_raw_memory_mb = kMaxRawMemoryMb;
    // LibRaw reads the buffer and never writes it.
    Check(raw_->open_buffer(const_cast<std::uint8_t*>(bytes.Bytes().data()), bytes.Size()));
    const libraw_image_sizes_t& sizes = raw_->imgdata.sizes;
    if (!WithinLimits(sizes.raw_width, sizes.raw_height) ||
        !WithinLimits(sizes.width, sizes.height)) {
        throw ResultError(E_FAIL);
    }
}

LibRawSession::~LibRawSession() = default;

RawFacts LibRawSession::Facts() const {
    RawFacts facts;
    // Read before user_flip is set: LibRaw replaces the file's value with it when developing.
    facts.flip = raw_->imgdata.sizes.flip >= 0 ? raw_->imgdata.sizes.flip & 7 : 0;
    facts.gray = raw_->imgdata.idata.colors == 1;
    const libraw_iparams_t& info = raw_->imgdata.idata;
    if (info.xmpdata != nullptr && info.xmplen > 0) {
        facts.xmp.assign(info.xmpdata, info.xmpdata + info.xmplen);
    }
    return facts;
}

PixelSize LibRawSession::OutputSize() {
    raw_->imgdata.params.user_flip = 0;
    Check(raw_->adjust_sizes_info_only());
    const PixelSize size{raw_->imgdata.sizes.iwidth, raw_->imgdata.sizes.iheight};
    if (!AcceptableSize(size)) {
        throw ResultError(E_FAIL);
    }
    return size;
}

void LibRawSession::Develop(PixelSize size, std::uint32_t colors,
                            std::vector<std::uint8_t>& pixels) {
    raw_->imgdata.params.user_flip = 0;
    // A file cut before its raw data begins (a camera still writing it, or a stripped
    // sample) has nothing to unpack; LibRaw would fill a full-size buffer with nothing.
    if (raw_->get_internal_data_pointer()->unpacker_data.data_offset >=
        static_cast<INT64>(fileSize_)) {
        throw ResultError(E_FAIL);
    }
    Check(raw_->unpack());
    if (dataErrors_ > 0) {
        throw ResultError(E_FAIL);
    }
    Check(raw_->dcraw_process());
    int width = 0;
    int height = 0;
    int outColors = 0;
    int bits = 0;
    raw_->get_mem_image_format(&width, &height, &outColors, &bits);
    const int wantedBits = settings_.deep ? 16 : 8;
    if (width != static_cast<int>(size.width) || height != static_cast<int>(size.height) ||
        outColors != static_cast<int>(colors) || bits != wantedBits) {
        throw ResultError(E_FAIL);
    }
    const auto rowBytes = CheckedMul<std::size_t>(size.width, colors * (bits / 8));
    const auto total = rowBytes ? CheckedMul<std::size_t>(*rowBytes, size.height) : std::nullopt;
    if (!total || *rowBytes > static_cast<std::size_t>(INT32_MAX)) {
        throw ResultError(E_FAIL);
    }
    pixels.resize(*total);
    Check(raw_->copy_mem_image(pixels.data(), static_cast<int>(*rowBytes), 0));
    raw_->recycle();  // the working buffers are several times the output's size
}

std::optional<RawThumbnail> LibRawSession::UnpackThumbnail() {
    const int code = raw_->unpack_thumb();
    if (code == LIBRAW_NO_THUMBNAIL || code == LIBRAW_UNSUPPORTED_THUMBNAIL) {
        return std::nullopt;
    }
    Check(code);
    const libraw_thumbnail_t& thumbnail = raw_->imgdata.thumbnail;
    if (thumbnail.thumb == nullptr || thumbnail.tlength == 0) {
        return std::nullopt;
    }
    RawThumbnail out;
    out.bytes = {reinterpret_cast<const std::uint8_t*>(thumbnail.thumb), thumbnail.tlength};
    if (thumbnail.tformat == LIBRAW_THUMBNAIL_JPEG) {
        out.jpeg = true;
        return out;
    }
    if (thumbnail.tformat != LIBRAW_THUMBNAIL_BITMAP ||
        (thumbnail.tcolors != 1 && thumbnail.tcolors != 3)) {
        return std::nullopt;
    }
    out.size = {thumbnail.twidth, thumbnail.theight};
    out.colors = static_cast<std::uint32_t>(thumbnail.tcolors);
    const std::uint64_t expected =
        static_cast<std::uint64_t>(out.size.width) * out.size.height * out.colors;
    if (!AcceptableSize(out.size) || expected != thumbnail.tlength) {
        throw ResultError(E_FAIL);
    }
    return out;
}

void LibRawSession::OnDataError(void* session, const char*, int) {
    ++static_cast<LibRawSession*>(session)->dataErrors_;
}

void LibRawSession::OnMemoryError(void*, const char*, const char*) {
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_RAW

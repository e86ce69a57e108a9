#include "platform/imaging/codecs/jpeg_session_internal.h"

#if ORVANTA_HAVE_JPEG

// clang-format off
#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include "platform/imaging/codecs/image_codec_errors_internal.h"

namespace orvanta::imaging::codecs {

// Plain C data only: libjpeg longjmps out of its own frames into the functions below.
struct JpegState {
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr error;
    jpeg_progress_mgr progress;
    std::jmp_buf jump;
    int failure;  // what a longjmp out of the current step means
    bool created;
    bool truncated;
};

namespace {

// A progressive file can hold any number of scans, each costing a pass over the whole
// coefficient buffer; a few hundred is far beyond what any encoder writes, so a file with
// more is hostile (the same limit libjpeg-turbo's own tools apply).
constexpr int kMaxScans = 500;

enum StepCode : int { kStepOk = 0, kStepHeaderFailed, kStepFailed };

JpegState* StateOf(j_common_ptr cinfo) {
    return static_cast<JpegState*>(cinfo->client_data);
}

[[noreturn]] void OnError(j_common_ptr cinfo) {
    std::longjmp(StateOf(cinfo)->jump, 1);
}

void OnMessage(j_common_ptr cinfo, int level) {
    if (level < 0) {
        ++cinfo->err->num_warnings;
        if (cinfo->err->msg_code == JWRN_JPEG_EOF) {
            StateOf(cinfo)->truncated = true;
        }
    }
}

void OnOutput(j_common_ptr) {
}

void OnProgress(j_common_ptr cinfo) {
    if (cinfo->is_decompressor &&
        reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > kMaxScans) {
        cinfo->err->msg_code = JERR_NOTIMPL;
        cinfo->err->error_exit(cinfo);
    }
}

J_COLOR_SPACE ColorSpaceOf(JpegColor color) {
    switch (color) {
        case JpegColor::Gray:
            return JCS_GRAYSCALE;
        case JpegColor::Bgr:
            return JCS_EXT_BGR;
        case JpegColor::Rgb:
            return JCS_EXT_RGB;
        case JpegColor::Bgrx:
            return JCS_EXT_BGRX;
        case JpegColor::Bgra:
            return JCS_EXT_BGRA;
        case JpegColor::Rgba:
            return JCS_EXT_RGBA;
        case JpegColor::Cmyk:
            return JCS_CMYK;
    }
    return JCS_UNKNOWN;
}

// The C-style steps: each catches libjpeg's longjmp in its own frame and touches only the
// plain state and its arguments, so nothing with a destructor is ever jumped over.
int StartStep(JpegState* s, const unsigned char* data, unsigned long size, J_COLOR_SPACE space,
              unsigned int scaleNum) {
    s->failure = kStepFailed;
    if (setjmp(s->jump) != 0) {
        return s->failure;
    }
    if (!s->created) {
        jpeg_create_decompress(&s->cinfo);
        // A progressive file keeps every coefficient of the picture; without a cap a
        // header that claims a near-gigapixel picture makes libjpeg allocate gigabytes.
        // Over the cap libjpeg-turbo fails cleanly (it has no backing store).
        s->cinfo.mem->max_memory_to_use = 2000L * 1024 * 1024;
        s->created = true;
        s->cinfo.progress = &s->progress;
    } else {
        jpeg_abort_decompress(&s->cinfo);
    }
    s->truncated = false;
    s->error.num_warnings = 0;
    jpeg_mem_src(&s->cinfo, data, size);
    s->failure = kStepHeaderFailed;
    jpeg_read_header(&s->cinfo, TRUE);
    s->failure = kStepFailed;
    s->cinfo.out_color_space = space;
    s->cinfo.scale_num = scaleNum;
    s->cinfo.scale_denom = 8;
    s->cinfo.dct_method = JDCT_ISLOW;
    s->cinfo.do_fancy_upsampling = TRUE;
    jpeg_start_decompress(&s->cinfo);
    return kStepOk;
}

int ReadStep(JpegState* s, JSAMPARRAY rows, JDIMENSION count) {
    if (setjmp(s->jump) != 0) {
        return kStepFailed;
    }
    const JDIMENSION first = s->cinfo.output_scanline;
    while (s->cinfo.output_scanline - first < count) {
        const JDIMENSION done = s->cinfo.output_scanline - first;
        if (jpeg_read_scanlines(&s->cinfo, rows + done, count - done) == 0) {
            return kStepFailed;  // no progress: never loop on it
        }
    }
    return kStepOk;
}

int SkipStep(JpegState* s, JDIMENSION count) {
    if (setjmp(s->jump) != 0) {
        return kStepFailed;
    }
    return jpeg_skip_scanlines(&s->cinfo, count) == count ? kStepOk : kStepFailed;
}

}  // namespace

JpegSession::JpegSession() : state_(std::make_unique<JpegState>()) {
    JpegState& s = *state_;
    s.cinfo.err = jpeg_std_error(&s.error);
    s.error.error_exit = OnError;
    s.error.emit_message = OnMessage;
    s.error.output_message = OnOutput;
    s.cinfo.client_data = &s;
    s.progress.progress_monitor = OnProgress;
}

JpegSession::~JpegSession() {
    if (state_->created) {
        jpeg_destroy_decompress(&state_->cinfo);
    }
}

Result JpegSession::Start(std::span<const std::uint8_t> stream, const JpegOutput& output) {
    started_ = false;
    const int step = StartStep(state_.get(), stream.data(), stream.size(),
                               ColorSpaceOf(output.color), output.scaleNum);
    if (step == kStepHeaderFailed) {
        return kErrBadHeader;
    }
    if (step != kStepOk) {
        return kErrBadImage;
    }
    // The marker walk and libjpeg must agree on what the rows look like.
    const jpeg_decompress_struct& cinfo = state_->cinfo;
    if (cinfo.output_width != output.size.width || cinfo.output_height != output.size.height) {
        return kErrBadHeader;
    }
    started_ = true;
    return S_OK;
}

Result JpegSession::Read(std::span<std::uint8_t*> rows) {
    if (!started_ || NextRow() + rows.size() > state_->cinfo.output_height) {
        return E_UNEXPECTED;
    }
    if (ReadStep(state_.get(), rows.data(), static_cast<JDIMENSION>(rows.size())) != kStepOk) {
        started_ = false;
        return kErrBadImage;
    }
    return S_OK;
}

Result JpegSession::Skip(std::uint32_t count) {
    if (!started_ || NextRow() + count > state_->cinfo.output_height) {
        return E_UNEXPECTED;
    }
    if (count == 0) {
        return S_OK;
    }
    if (SkipStep(state_.get(), count) != kStepOk) {
        started_ = false;
        return kErrBadImage;
    }
    return S_OK;
}

std::uint32_t JpegSession::NextRow() const {
    return state_->cinfo.output_scanline;
}

bool JpegSession::Truncated() const {
    return state_->truncated;
}

bool JpegSession::SawAdobeMarker() const {
    return state_->cinfo.saw_Adobe_marker;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_JPEG

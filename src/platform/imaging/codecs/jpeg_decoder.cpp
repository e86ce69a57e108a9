#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_JPEG

#include <new>

#include "platform/imaging/codecs/jpeg_frame.h"
#include "platform/imaging/codecs/jpeg_markers_internal.h"

namespace orvanta::imaging::codecs {

namespace {

class JpegDecoder final : public Decoder {
public:
    JpegDecoder(std::shared_ptr<const FileBytes> file, std::shared_ptr<const JpegHeader> header)
        : file_(std::move(file)), header_(std::move(header)) {}

    Guid Container() const override { return container::Jpeg; }
    std::uint32_t FrameCount() const override { return 1; }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        frame = JpegFrame::Create(file_, file_->Bytes(), header_);
        return S_OK;
    }

    Result GetPreview(std::unique_ptr<BitmapFrame>& preview) override {
        preview.reset();
        const auto stream = FindLargestPreview(file_->Bytes(), *header_);
        if (!stream) {
            return S_FALSE;
        }
        auto header = std::make_shared<JpegHeader>();
        if (const Result read = ReadJpegHeader(*stream, *header); read.Failed()) {
            return S_FALSE;
        }
        preview = JpegFrame::Create(file_, *stream, std::move(header));
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> file_;
    std::shared_ptr<const JpegHeader> header_;
};

bool MatchesJpeg(std::span<const std::uint8_t> head) {
    return head.size() >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
}

Result CreateJpegDecoder(std::shared_ptr<const FileBytes> bytes,
                         std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        auto header = std::make_shared<JpegHeader>();
        if (const Result read = ReadJpegHeader(bytes->Bytes(), *header); read.Failed()) {
            return read;
        }
        decoder = std::make_unique<JpegDecoder>(std::move(bytes), std::move(header));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

DecoderInfo JpegDecoderInfo() {
    return {container::Jpeg, vendor::Microsoft, "JPEG Decoder", ".jpeg,.jpe,.jpg,.jfif,.exif",
            MatchesJpeg,     CreateJpegDecoder};
}

}  // namespace orvanta::imaging::codecs

#else

namespace orvanta::imaging::codecs {

DecoderInfo JpegDecoderInfo() {
    return {};
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_JPEG

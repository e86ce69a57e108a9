#include <cstring>
#include <vector>

#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_JXL
#include <jxl/decode.h>

#include "platform/imaging/codecs/exif_payload_internal.h"
#include "platform/imaging/codecs/upright_frame.h"
#include "platform/imaging/codecs/whole_image_frame_internal.h"
#endif

namespace orvanta::imaging::codecs {

#if ORVANTA_HAVE_JXL

namespace {

// A metadata box larger than this is dropped: real EXIF and XMP stay far below it, and a
// compressed box must not inflate without bound.
constexpr std::size_t kMaxMetadataBox = 64u << 20;

struct JxlDeleter {
    void operator()(JxlDecoder* decoder) const { JxlDecoderDestroy(decoder); }
};
using JxlDecoderPtr = std::unique_ptr<JxlDecoder, JxlDeleter>;

bool MatchesJxl(std::span<const std::uint8_t> head) {
    static constexpr std::uint8_t kContainer[] = {0,   0,   0,    0x0C, 'J',  'X',
                                                  'L', ' ', 0x0D, 0x0A, 0x87, 0x0A};
    return (head.size() >= 2 && head[0] == 0xFF && head[1] == 0x0A) ||
           (head.size() >= sizeof kContainer &&
            std::memcmp(head.data(), kContainer, sizeof kContainer) == 0);
}

// A decoder over the whole file, with the input closed so that running out of bytes is an
// error rather than a request for more. No parallel runner: one pipeline, one thread.
JxlDecoderPtr OpenDecoder(const FileBytes& bytes, int events) {
    JxlDecoderPtr decoder(JxlDecoderCreate(nullptr));
    if (!decoder || JxlDecoderSubscribeEvents(decoder.get(), events) != JXL_DEC_SUCCESS ||
        JxlDecoderSetInput(decoder.get(), bytes.Bytes().data(), bytes.Size()) != JXL_DEC_SUCCESS) {
        throw ResultError(E_OUTOFMEMORY);
    }
    JxlDecoderCloseInput(decoder.get());
    return decoder;
}

struct JxlHeader {
    PixelSize size;
    PixelFormat format = PixelFormat::Unknown;
    JxlPixelFormat output{};
    std::vector<std::uint8_t> icc;
    std::vector<std::uint8_t> exifPayload;
    std::size_t exifStart = 0;
    std::vector<std::uint8_t> xmp;
};

void ChooseFormat(const JxlBasicInfo& info, JxlHeader& header) {
    const bool gray = info.num_color_channels == 1;
    const bool alpha = info.alpha_bits > 0;
    const bool deep = info.bits_per_sample > 8;
    if (gray) {
        header.format = deep ? (alpha ? PixelFormat::GrayAlpha32 : PixelFormat::Gray16)
                             : (alpha ? PixelFormat::GrayAlpha16 : PixelFormat::Gray8);
    } else {
        header.format = deep ? (alpha ? PixelFormat::Rgba64 : PixelFormat::Rgb48)
                             : (alpha ? PixelFormat::Rgba32 : PixelFormat::Rgb24);
    }
    header.output.num_channels = (gray ? 1 : 3) + (alpha ? 1 : 0);
    header.output.data_type = deep ? JXL_TYPE_UINT16 : JXL_TYPE_UINT8;
    header.output.endianness = JXL_NATIVE_ENDIAN;
    header.output.align = 0;
}

// The profile of the pixels the decoder hands out. For most files that is the original
// profile; for a lossy file whose original profile cannot be expressed in the codestream's
// own terms it is the space libjxl converts to, and the original would mislabel the pixels.
void ReadIcc(JxlDecoder* decoder, JxlHeader& header) {
    std::size_t size = 0;
    if (JxlDecoderGetICCProfileSize(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA, &size) !=
            JXL_DEC_SUCCESS ||
        size == 0 || size > kMaxMetadataBox) {
        return;
    }
    std::vector<std::uint8_t> icc(size);
    if (JxlDecoderGetColorAsICCProfile(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA, icc.data(),
                                       icc.size()) == JXL_DEC_SUCCESS) {
        header.icc = std::move(icc);
    }
}

// Collects the content of one metadata box through libjxl's box events, growing the buffer
// while the decoder asks for more output.
class BoxReader {
public:
    void Start(JxlDecoder* decoder, std::vector<std::uint8_t>* target) {
        std::uint64_t rawSize = 0;
        (void)JxlDecoderGetBoxSizeRaw(decoder, &rawSize);
        // The raw size includes the header; 0 means "to the end of the file". A compressed
        // box grows past it, which NeedMore handles.
        const std::uint64_t guess = rawSize == 0 ? 65536 : rawSize;
        target_ = target;
        buffer_.assign(static_cast<std::size_t>(std::min<std::uint64_t>(guess, kMaxMetadataBox)),
                       0);
        used_ = 0;
        if (JxlDecoderSetBoxBuffer(decoder, buffer_.data(), buffer_.size()) != JXL_DEC_SUCCESS) {
            target_ = nullptr;
        }
    }

    void NeedMore(JxlDecoder* decoder) {
        if (target_ == nullptr) {
            return;
        }
        const std::size_t left = JxlDecoderReleaseBoxBuffer(decoder);
        used_ = buffer_.size() - left;
        if (buffer_.size() >= kMaxMetadataBox) {
            target_ = nullptr;  // the rest of the box is skipped and the box dropped
            return;
        }
        buffer_.resize(std::min(buffer_.size() * 2, kMaxMetadataBox));
        if (JxlDecoderSetBoxBuffer(decoder, buffer_.data() + used_, buffer_.size() - used_) !=
            JXL_DEC_SUCCESS) {
            target_ = nullptr;
        }
    }

    void Finish(JxlDecoder* decoder) {
        if (target_ == nullptr) {
            return;
        }
        const std::size_t left = JxlDecoderReleaseBoxBuffer(decoder);
        buffer_.resize(buffer_.size() - left);
        *target_ = std::move(buffer_);
        target_ = nullptr;
    }

private:
    std::vector<std::uint8_t>* target_ = nullptr;
    std::vector<std::uint8_t> buffer_;
    std::size_t used_ = 0;
};

// Reads the basic information, the colour profile and the EXIF and XMP boxes. libjxl skips
// the image data itself because no pixel event is subscribed.
JxlHeader ReadHeader(const FileBytes& bytes) {
    JxlDecoderPtr decoder =
        OpenDecoder(bytes, JXL_DEC_BASIC_INFO | JXL_DEC_COLOR_ENCODING | JXL_DEC_BOX);
    (void)JxlDecoderSetDecompressBoxes(decoder.get(), JXL_TRUE);
    JxlHeader header;
    bool haveInfo = false;
    BoxReader box;
    for (;;) {
        const JxlDecoderStatus status = JxlDecoderProcessInput(decoder.get());
        switch (status) {
            case JXL_DEC_BASIC_INFO: {
                JxlBasicInfo info;
                if (JxlDecoderGetBasicInfo(decoder.get(), &info) != JXL_DEC_SUCCESS) {
                    throw ResultError(E_FAIL);
                }
                header.size = {info.xsize, info.ysize};
                if (!AcceptableSize(header.size)) {
                    throw ResultError(E_FAIL);
                }
                ChooseFormat(info, header);
                haveInfo = true;
                break;
            }
            case JXL_DEC_COLOR_ENCODING:
                ReadIcc(decoder.get(), header);
                break;
            case JXL_DEC_BOX: {
                box.Finish(decoder.get());
                JxlBoxType type;
                if (JxlDecoderGetBoxType(decoder.get(), type, JXL_TRUE) != JXL_DEC_SUCCESS) {
                    break;
                }
                if (std::memcmp(type, "Exif", 4) == 0 && header.exifPayload.empty()) {
                    box.Start(decoder.get(), &header.exifPayload);
                } else if (std::memcmp(type, "xml ", 4) == 0 && header.xmp.empty()) {
                    box.Start(decoder.get(), &header.xmp);
                }
                break;
            }
            case JXL_DEC_BOX_NEED_MORE_OUTPUT:
                box.NeedMore(decoder.get());
                break;
            case JXL_DEC_SUCCESS:
                box.Finish(decoder.get());
                [[fallthrough]];
            case JXL_DEC_NEED_MORE_INPUT:
                // A file cut after its headers still makes a decoder; its pixels will fail.
                if (!haveInfo) {
                    throw ResultError(E_FAIL);
                }
                if (const auto start = FindExifTiffHeader(header.exifPayload)) {
                    header.exifStart = *start;
                } else {
                    header.exifPayload.clear();
                }
                return header;
            default:
                throw ResultError(E_FAIL);
        }
    }
}

struct SharedHeader {
    std::shared_ptr<const FileBytes> bytes;
    JxlHeader header;
};

class JxlFrame final : public WholeImageFrame<UprightFrame> {
public:
    explicit JxlFrame(std::shared_ptr<const SharedHeader> shared)
        : WholeImageFrame(shared->header.size, shared->header.format), shared_(std::move(shared)) {}

    bool TransformsApplied() const override { return true; }
    const FileBytes& File() const override { return *shared_->bytes; }
    FrameMetadataBlocks Metadata() const override {
        const JxlHeader& header = shared_->header;
        FrameMetadataBlocks blocks;
        if (!header.exifPayload.empty()) {
            blocks.exif = std::span(header.exifPayload).subspan(header.exifStart);
        }
        blocks.xmp = header.xmp;
        blocks.icc = header.icc;
        return blocks;
    }

private:
    // libjxl applies the codestream's orientation itself (the default), so the pixels and
    // the size of the basic information are upright. Only the first frame of an animation
    // is decoded.
    Result DecodeWhole(DecodedPixels& pixels) override {
        JxlDecoderPtr decoder = OpenDecoder(*shared_->bytes, JXL_DEC_FULL_IMAGE);
        const JxlPixelFormat& format = shared_->header.output;
        const std::size_t rowBytes = RowBytes(Size().width);
        for (;;) {
            switch (JxlDecoderProcessInput(decoder.get())) {
                case JXL_DEC_NEED_IMAGE_OUT_BUFFER: {
                    std::size_t size = 0;
                    if (JxlDecoderImageOutBufferSize(decoder.get(), &format, &size) !=
                            JXL_DEC_SUCCESS ||
                        size != rowBytes * Size().height) {
                        return E_FAIL;
                    }
                    buffer_.resize(size);
                    if (JxlDecoderSetImageOutBuffer(decoder.get(), &format, buffer_.data(),
                                                    buffer_.size()) != JXL_DEC_SUCCESS) {
                        return E_FAIL;
                    }
                    break;
                }
                case JXL_DEC_FULL_IMAGE:
                    pixels = {buffer_.data(), rowBytes};
                    return S_OK;
                default:
                    return E_FAIL;  // corrupt, or cut before the first frame's end
            }
        }
    }

    std::shared_ptr<const SharedHeader> shared_;
    std::vector<std::uint8_t> buffer_;
};

class JxlFileDecoder final : public Decoder {
public:
    explicit JxlFileDecoder(std::shared_ptr<const SharedHeader> shared)
        : shared_(std::move(shared)) {}

    Guid Container() const override { return container::Jxl; }
    std::uint32_t FrameCount() const override { return 1; }
    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        frame = std::make_unique<JxlFrame>(shared_);
        return S_OK;
    }

private:
    std::shared_ptr<const SharedHeader> shared_;
};

Result CreateJxlDecoder(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        auto shared = std::make_shared<SharedHeader>();
        shared->header = ReadHeader(*bytes);
        shared->bytes = std::move(bytes);
        decoder = std::make_unique<JxlFileDecoder>(std::move(shared));
        return S_OK;
    } catch (const ResultError& error) {
        return error.GetResult();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

DecoderInfo JxlDecoderInfo() {
    return {container::Jxl, vendor::Orvanta, "JPEG XL Decoder",
            ".jxl",         MatchesJxl,      CreateJxlDecoder};
}

#else

DecoderInfo JxlDecoderInfo() {
    return {};
}

#endif  // ORVANTA_HAVE_JXL

}  // namespace orvanta::imaging::codecs

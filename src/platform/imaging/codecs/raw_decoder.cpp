#include <cstring>
#include <string_view>

#include "platform/imaging/codecs/codecs.h"

#if ORVANTA_HAVE_RAW
#include "platform/imaging/codecs/exif_payload_internal.h"
#include "platform/imaging/codecs/libraw_session_internal.h"
#include "platform/imaging/codecs/raw_frame.h"
#include "platform/imaging/codecs/whole_image_frame_internal.h"
#endif

namespace orvanta::imaging::codecs {

#if ORVANTA_HAVE_RAW

namespace {

bool StartsWith(std::span<const std::uint8_t> head, std::string_view magic, std::size_t at = 0) {
    return head.size() >= at + magic.size() &&
           std::memcmp(head.data() + at, magic.data(), magic.size()) == 0;
}

// TIFF-based raws (NEF, CR2, PEF, ARW, DNG) look like any TIFF from their first bytes and
// are left to the TIFF decoder's content test; only raws with a magic of their own are
// claimed here.
bool MatchesCrw(std::span<const std::uint8_t> head) {
    using namespace std::string_view_literals;
    return StartsWith(head, "II\x1a\0\0\0HEAPCCDR"sv);
}

bool MatchesOrf(std::span<const std::uint8_t> head) {
    return StartsWith(head, "IIRO") || StartsWith(head, "IIRS") || StartsWith(head, "MMOR");
}

bool MatchesRw2(std::span<const std::uint8_t> head) {
    using namespace std::string_view_literals;
    return StartsWith(head, "IIU\0"sv);
}

bool MatchesOtherRaw(std::span<const std::uint8_t> head) {
    using namespace std::string_view_literals;
    return StartsWith(head, "FUJIFILMCCD-RAW") ||                         // RAF
           StartsWith(head, "\0MRM"sv) ||                                 // MRW
           (StartsWith(head, "ftyp", 4) && StartsWith(head, "crx ", 8));  // CR3
}

// What a decoder and its frames share; immutable once made.
struct RawFile {
    std::shared_ptr<const FileBytes> bytes;
    Guid container;
    RawFacts facts;
    PixelSize size;  // of a full development, in the sensor's orientation
};

// The EXIF block of a TIFF-based raw is the file itself; other raws give none here and
// the metadata reader parses the file.
FrameMetadataBlocks RawMetadata(const RawFile& file) {
    FrameMetadataBlocks blocks;
    if (StartsWithTiffHeader(file.bytes->Bytes())) {
        blocks.exif = file.bytes->Bytes();
    }
    blocks.xmp = file.facts.xmp;
    return blocks;
}

PixelFormat DevelopedFormat(const RawFile& file, bool deep) {
    if (file.facts.gray) {
        return deep ? PixelFormat::Gray16 : PixelFormat::Gray8;
    }
    return deep ? PixelFormat::Rgb48 : PixelFormat::Rgb24;
}

// The developed picture: LibRaw unpacks and develops it on the first copy.
class DevelopedFrame final : public WholeImageFrame<RawFrame> {
public:
    DevelopedFrame(std::shared_ptr<const RawFile> file, PixelSize size, DevelopSettings settings)
        : WholeImageFrame(size, DevelopedFormat(*file, settings.deep)),
          file_(std::move(file)),
          settings_(settings) {}

    int RawFlip() const override { return file_->facts.flip; }
    const FileBytes& File() const override { return *file_->bytes; }
    FrameMetadataBlocks Metadata() const override { return RawMetadata(*file_); }

    // Half size when both sides of it still reach `minimum`; 16-bit samples when asked for
    // the 16-bit format of the same colours.
    std::unique_ptr<BitmapSource> CreateVariant(PixelSize minimum, PixelFormat format) override {
        DevelopSettings wanted = settings_;
        wanted.deep = format == DevelopedFormat(*file_, true) ||
                      (format != DevelopedFormat(*file_, false) && settings_.deep);
        PixelSize size = Size();
        if (!settings_.halfSize && minimum.width > 0 && minimum.height > 0 &&
            minimum.width <= Size().width / 2 && minimum.height <= Size().height / 2) {
            try {
                LibRawSession session(*file_->bytes, {true, wanted.deep});
                const PixelSize half = session.OutputSize();
                if (half.width >= minimum.width && half.height >= minimum.height &&
                    half.width < Size().width && half.height < Size().height) {
                    wanted.halfSize = true;
                    size = half;
                }
            } catch (const ResultError&) {
            } catch (const std::bad_alloc&) {
            }
        }
        if (wanted == settings_) {
            return nullptr;
        }
        return std::make_unique<DevelopedFrame>(file_, size, wanted);
    }

private:
    Result DecodeWhole(DecodedPixels& pixels) override {
        LibRawSession session(*file_->bytes, settings_);
        session.Develop(Size(), Info(Format()).channels, buffer_);
        pixels = {buffer_.data(), RowBytes(Size().width)};
        return S_OK;
    }

    std::shared_ptr<const RawFile> file_;
    DevelopSettings settings_;
    std::vector<std::uint8_t> buffer_;
};

// An embedded bitmap preview, already unpacked.
class BitmapPreviewFrame final : public WholeImageFrame<RawFrame> {
public:
    BitmapPreviewFrame(std::shared_ptr<const RawFile> file, const RawThumbnail& thumbnail)
        : WholeImageFrame(thumbnail.size,
                          thumbnail.colors == 1 ? PixelFormat::Gray8 : PixelFormat::Rgb24),
          file_(std::move(file)),
          pixels_(thumbnail.bytes.begin(), thumbnail.bytes.end()) {}

    int RawFlip() const override { return file_->facts.flip; }
    const FileBytes& File() const override { return *file_->bytes; }
    FrameMetadataBlocks Metadata() const override { return RawMetadata(*file_); }

private:
    Result DecodeWhole(DecodedPixels& pixels) override {
        pixels = {pixels_.data(), RowBytes(Size().width)};
        return S_OK;
    }

    std::shared_ptr<const RawFile> file_;
    std::vector<std::uint8_t> pixels_;
};

// An embedded JPEG preview, decoded by the JPEG component over the preview's own bytes. It
// owns that decoder as well as its frame, so it does not depend on how long the JPEG
// decoder's frames may outlive their decoder.
class JpegPreviewFrame final : public RawFrame {
public:
    JpegPreviewFrame(int flip, std::unique_ptr<Decoder> decoder, std::unique_ptr<BitmapFrame> frame)
        : RawFrame(frame->Size(), frame->Format(), frame->GetAccess()),
          flip_(flip),
          decoder_(std::move(decoder)),
          frame_(std::move(frame)) {}

    int RawFlip() const override { return flip_; }
    std::span<const std::uint32_t> Palette() const override { return frame_->Palette(); }
    const FileBytes& File() const override { return frame_->File(); }
    FrameMetadataBlocks Metadata() const override { return frame_->Metadata(); }
    std::unique_ptr<BitmapSource> CreateVariant(PixelSize minimum, PixelFormat format) override {
        return frame_->CreateVariant(minimum, format);
    }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        return frame_->CopyPixels(rect, stride, out);
    }

    int flip_;
    std::unique_ptr<Decoder> decoder_;  // declared first: destroyed after its frame
    std::unique_ptr<BitmapFrame> frame_;
};

Result MakeJpegPreview(const RawFile& file, std::span<const std::uint8_t> jpeg,
                       std::unique_ptr<BitmapFrame>& preview) {
    const DecoderInfo* info = ComponentList::Instance().Find(container::Jpeg, vendor::Microsoft);
    if (info == nullptr) {
        return E_UNSUPPORTED_TYPE;
    }
    std::unique_ptr<Decoder> decoder;
    const Result created = info->create(
        FileBytes::FromMemory(std::vector<std::uint8_t>(jpeg.begin(), jpeg.end())), decoder);
    if (created.Failed()) {
        return created;
    }
    std::unique_ptr<BitmapFrame> frame;
    const Result got = decoder->GetFrame(0, frame);
    if (got.Failed()) {
        return got;
    }
    preview =
        std::make_unique<JpegPreviewFrame>(file.facts.flip, std::move(decoder), std::move(frame));
    return S_OK;
}

class RawDecoder final : public Decoder {
public:
    RawDecoder(std::shared_ptr<const RawFile> file, std::unique_ptr<LibRawSession> opened)
        : file_(std::move(file)), opened_(std::move(opened)) {}

    Guid Container() const override { return file_->container; }
    std::uint32_t FrameCount() const override { return 1; }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        frame = std::make_unique<DevelopedFrame>(file_, file_->size, DevelopSettings{});
        return S_OK;
    }

    Result GetPreview(std::unique_ptr<BitmapFrame>& preview) override {
        preview.reset();
        try {
            // The session that identified the file serves the first preview: opening a raw
            // costs as much as unpacking its thumbnail.
            std::unique_ptr<LibRawSession> session = std::move(opened_);
            if (!session) {
                session = std::make_unique<LibRawSession>(*file_->bytes, DevelopSettings{});
            }
            const std::optional<RawThumbnail> thumbnail = session->UnpackThumbnail();
            if (!thumbnail) {
                return S_FALSE;
            }
            if (thumbnail->jpeg) {
                return MakeJpegPreview(*file_, thumbnail->bytes, preview);
            }
            preview = std::make_unique<BitmapPreviewFrame>(file_, *thumbnail);
            return S_OK;
        } catch (const ResultError& error) {
            return error.GetResult();
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

private:
    std::shared_ptr<const RawFile> file_;
    std::unique_ptr<LibRawSession> opened_;  // reads file_->bytes, so declared after it
};

Result CreateRawDecoder(const Guid& container, std::shared_ptr<const FileBytes> bytes,
                        std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        auto file = std::make_shared<RawFile>();
        file->container = container;
        auto session = std::make_unique<LibRawSession>(*bytes, DevelopSettings{});
        file->facts = session->Facts();
        file->size = session->OutputSize();
        file->bytes = std::move(bytes);
        decoder = std::make_unique<RawDecoder>(std::move(file), std::move(session));
        return S_OK;
    } catch (const ResultError& error) {
        return error.GetResult();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

template <const Guid& kContainer>
DecoderInfo RawInfo(std::string name, std::string extensions,
                    bool (*matches)(std::span<const std::uint8_t>)) {
    return {kContainer,
            vendor::Orvanta,
            std::move(name),
            std::move(extensions),
            matches,
            [](std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
                return CreateRawDecoder(kContainer, std::move(bytes), decoder);
            }};
}

}  // namespace

std::vector<DecoderInfo> RawDecoderInfos() {
    std::vector<DecoderInfo> infos;
    infos.push_back(RawInfo<container::Nef>("Nikon Raw Decoder", ".nef,.nrw", nullptr));
    infos.push_back(RawInfo<container::Cr2>("Canon Raw Decoder", ".cr2,.crw", MatchesCrw));
    infos.push_back(RawInfo<container::Pef>("Pentax Raw Decoder", ".pef", nullptr));
    infos.push_back(RawInfo<container::Orf>("Olympus Raw Decoder", ".orf", MatchesOrf));
    infos.push_back(RawInfo<container::Arw>("Sony Raw Decoder", ".arw,.sr2,.srf", nullptr));
    infos.push_back(RawInfo<container::Dng>("DNG Decoder", ".dng", nullptr));
    infos.push_back(RawInfo<container::Rw2>("Panasonic Raw Decoder", ".rw2", MatchesRw2));
    // The other formats of LibRaw 0.20 as Debian builds it (no Sigma X3F there).
    infos.push_back(RawInfo<container::Raw>(
        "Camera Raw Decoder",
        ".raf,.3fr,.fff,.dcr,.kdc,.mrw,.mos,.raw,.rwl,.srw,.erf,.mef,.iiq,.cap,.cr3",
        MatchesOtherRaw));
    return infos;
}

#else

std::vector<DecoderInfo> RawDecoderInfos() {
    return {};
}

#endif  // ORVANTA_HAVE_RAW

}  // namespace orvanta::imaging::codecs

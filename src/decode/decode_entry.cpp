#include "decode/decode_entry.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

#include "decode/abortable_copy.h"
#include "decode/colour_transform.h"
#include "decode/downscale.h"
#include "decode/open_decoder.h"
#include "list/picture_entry.h"
#include "list/supported_formats.h"
#include "metadata/orientation_transform.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/codecs/upright_frame.h"
#include "platform/imaging/flip_rotator.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/metadata_query_reader.h"
#include "platform/imaging/scaler.h"
#include "settings/settings.h"

namespace orvanta::decode {

namespace {

using imaging::BitmapFrame;
using imaging::BitmapSource;
using imaging::PixelFormat;
using imaging::PixelSize;

// An embedded preview smaller than this on either side would show visibly less than the
// screen holds; the raw file is then developed in full.
constexpr std::uint32_t kMinPreviewSide = 768;

bool Aborted(const std::atomic<std::uint32_t>& abortFlag) {
    return abortFlag.load(std::memory_order_relaxed) != 0;
}

// Containers whose pictures come from cameras and carry a camera colour space: their
// colours are managed whenever colour management is on, and only they raise warnings.
bool IsCameraColourContainer(const imaging::Guid& container) {
    return container == imaging::container::Jpeg || container == imaging::container::Tiff ||
           container == imaging::container::Wmp || list::IsRawContainer(container);
}

// Formats that may hold transparency the raster path draws over the view's background.
bool IsComposedContainer(const imaging::Guid& container) {
    return container == imaging::container::Png || container == imaging::container::Gif ||
           container == imaging::container::Ico;
}

bool Landscape(PixelSize size) {
    return size.width >= size.height;
}

// A frame whose codec turned it upright already (HEIF, AVIF, JPEG XL) must not be turned
// again by its EXIF orientation.
bool AlreadyUpright(const BitmapFrame& frame) {
    const auto* upright = dynamic_cast<const imaging::codecs::UprightFrame*>(&frame);
    return upright != nullptr && upright->TransformsApplied();
}

// Lets the pipeline keep the abortable copy it built while a later stage owns it: the
// materialized source under a rotation drops its input as soon as every row is in, and the
// histogram is read from the copy after that.
class SharedStage final : public BitmapSource {
public:
    explicit SharedStage(std::shared_ptr<BitmapSource> input)
        : BitmapSource(input->Size(), input->Format(), input->GetAccess()),
          input_(std::move(input)) {}

    std::span<const std::uint32_t> Palette() const override { return input_->Palette(); }

private:
    Result DoCopyPixels(const imaging::PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        return input_->CopyPixels(rect, stride, out);
    }

    std::shared_ptr<BitmapSource> input_;
};

std::uint8_t Over(std::uint32_t colour, std::uint32_t background, std::uint32_t alpha,
                  bool premultiplied) {
    const std::uint32_t rest = background * (255 - alpha);
    if (premultiplied) {
        return static_cast<std::uint8_t>(std::min<std::uint32_t>(255, colour + (rest + 127) / 255));
    }
    return static_cast<std::uint8_t>((colour * alpha + rest + 127) / 255);
}

// Draws a picture with alpha over the opaque `background` (0xAARRGGBB); formats without
// alpha are left as they are.
void ComposeOverBackground(imaging::PixelBuffer& pixels, std::uint32_t background) {
    const PixelFormat format = pixels.Format();
    if (format != PixelFormat::Pbgra32 && format != PixelFormat::Bgra32) {
        return;
    }
    const bool premultiplied = format == PixelFormat::Pbgra32;
    const std::uint32_t bg[3] = {background & 0xFF, (background >> 8) & 0xFF,
                                 (background >> 16) & 0xFF};
    const PixelSize size = pixels.Size();
    for (std::uint32_t y = 0; y < size.height; ++y) {
        auto* p = reinterpret_cast<std::uint8_t*>(pixels.Row(y));
        for (std::uint32_t x = 0; x < size.width; ++x, p += 4) {
            const std::uint32_t alpha = p[3];
            if (alpha == 255) {
                continue;
            }
            for (int c = 0; c < 3; ++c) {
                p[c] = Over(p[c], bg[c], alpha, premultiplied);
            }
            p[3] = 255;
        }
    }
}

class Pipeline {
public:
    Pipeline(const std::filesystem::path& path, std::uint16_t frameIndex,
             const DecodeOptions& options, const std::atomic<std::uint32_t>& abortFlag,
             DecodedPicture& picture, metadata::PictureMetadata& record, DecodeReport& report)
        : path_(path),
          frameIndex_(frameIndex),
          options_(options),
          abortFlag_(abortFlag),
          picture_(picture),
          record_(record),
          report_(report) {}

    Result Run();

private:
    Result ChooseSource(std::unique_ptr<BitmapSource>& source);
    void ManageColour(std::unique_ptr<BitmapSource>& source);
    Result Downscale(std::unique_ptr<BitmapSource>& source);
    Result Copy(std::unique_ptr<BitmapSource> source);
    const imaging::MetadataQueryReader* Reader();

    const std::filesystem::path& path_;
    const std::uint16_t frameIndex_;
    const DecodeOptions& options_;
    const std::atomic<std::uint32_t>& abortFlag_;
    DecodedPicture& picture_;
    metadata::PictureMetadata& record_;
    DecodeReport& report_;

    OpenedPicture opened_;
    bool cameraColour_ = false;
    std::unique_ptr<BitmapFrame> frame_;  // the entry's frame, kept for its metadata
    bool fromPreview_ = false;
    bool orientationAllowed_ = true;
    std::unique_ptr<imaging::MetadataQueryReader> reader_;
    bool readerTried_ = false;
};

const imaging::MetadataQueryReader* Pipeline::Reader() {
    if (!readerTried_) {
        readerTried_ = true;
        // A file whose metadata cannot be parsed is still shown, upright or not.
        (void)imaging::MetadataQueryReader::Create(frame_->File().Bytes(), opened_.container,
                                                   frameIndex_, frame_->Metadata(), reader_);
    }
    return reader_.get();
}

Result Pipeline::ChooseSource(std::unique_ptr<BitmapSource>& source) {
    if (const Result got = opened_.decoder->GetFrame(frameIndex_, frame_); got.Failed()) {
        return got;
    }
    if (!frame_) {
        return E_FAIL;
    }
    if (options_.raw) {
        std::unique_ptr<BitmapFrame> preview;
        if (opened_.decoder->GetPreview(preview) == S_OK && preview &&
            preview->Size().width >= kMinPreviewSide && preview->Size().height >= kMinPreviewSide) {
            // A preview in portrait beside a landscape frame was turned upright by the camera.
            orientationAllowed_ = Landscape(preview->Size()) && Landscape(frame_->Size());
            fromPreview_ = true;
            source = std::move(preview);
            return S_OK;
        }
    }
    orientationAllowed_ = !AlreadyUpright(*frame_);
    // The pipeline gets a frame of its own: stages may drop their input (a frame that offers
    // a cheaper variant is replaced by it), while the metadata steps still need this one.
    std::unique_ptr<BitmapFrame> own;
    if (const Result got = opened_.decoder->GetFrame(frameIndex_, own); got.Failed()) {
        return got;
    }
    if (!own) {
        return E_FAIL;
    }
    source = std::move(own);
    return S_OK;
}

void Pipeline::ManageColour(std::unique_ptr<BitmapSource>& source) {
    if (!options_.enableIcc || !(cameraColour_ || options_.colour.CustomTarget())) {
        return;
    }
    const ColourRequest request{cameraColour_ && options_.warnOnInvalidProfile,
                                options_.outputFormat};
    ColourOutcome outcome =
        fromPreview_
            ? TransformForRawPreview(std::move(source), *frame_, Reader(), request, options_.colour)
            : TransformForFrame(std::move(source), *frame_, Reader(), request, options_.colour);
    source = std::move(outcome.source);
    picture_.profileDescription = std::move(outcome.profileDescription);
    report_.colourTransformed = outcome.transformed;
}

Result Pipeline::Downscale(std::unique_ptr<BitmapSource>& source) {
    if (options_.downscale == 0) {
        return S_OK;
    }
    const DownscalePlan plan = PlanDownscale(source->Size(), options_.downscale,
                                             imaging::BitsPerPixel(options_.outputFormat));
    if (!plan.downscale) {
        return S_OK;
    }
    // The scaler works on 8-bit samples; a deeper frame is reduced to the output format
    // first, which the next step would do anyway.
    if (!imaging::CanScale(source->Format())) {
        source = imaging::Converted(std::move(source), options_.outputFormat);
        if (!source) {
            return WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT;
        }
    }
    source = imaging::Scaled(std::move(source), plan.size, plan.interpolation);
    if (!source) {
        return E_FAIL;
    }
    picture_.downscaled = true;
    return S_OK;
}

Result Pipeline::Copy(std::unique_ptr<BitmapSource> source) {
    std::shared_ptr<AbortableSource> copy = AbortableSource::Create(std::move(source));
    if (Aborted(abortFlag_)) {
        return E_ABORT;
    }
    copy->SetCallback([this](std::uint32_t percent) {
        if (options_.progress) {
            options_.progress(percent);
        }
        return Aborted(abortFlag_) ? E_ABORT : S_OK;
    });
    source = std::make_unique<SharedStage>(copy);

    if (options_.autoRotate && orientationAllowed_ && Reader() != nullptr) {
        const std::uint32_t transform = metadata::ReadOrientationTransform(*Reader());
        if (transform != 0) {
            source = imaging::FlipRotated(std::move(source), imaging::Transform{transform});
            if (!source) {
                return E_FAIL;
            }
            picture_.rotated = true;
        }
    }

    const PixelSize size = source->Size();
    if (Aborted(abortFlag_)) {
        return E_ABORT;
    }
    if (const Result made =
            imaging::PixelBuffer::Create(size, options_.outputFormat, 0, picture_.pixels);
        made.Failed()) {
        return made;
    }
    const Result copied = source->CopyAll(picture_.pixels.Stride(), picture_.pixels.Bytes());
    if (copied.Failed()) {
        picture_.pixels.Reset();
        return copied;
    }
    report_.truncated = copied == S_FALSE;
    picture_.width = size.width;
    picture_.height = size.height;
    // The histogram describes the decoded pixels, before anything is drawn under them.
    if (copy->Counts()) {
        record_.histogram = copy->Histogram();
        record_.validFields |= metadata::ValidField::kHistogram;
    }
    if (options_.composeOverBackground && IsComposedContainer(opened_.container)) {
        ComposeOverBackground(picture_.pixels, options_.background);
    }
    return S_OK;
}

Result Pipeline::Run() {
    if (Aborted(abortFlag_)) {
        return E_ABORT;
    }
    if (const Result opened = OpenPicture(path_, opened_); opened.Failed()) {
        return opened;
    }
    report_.container = opened_.container;
    cameraColour_ = IsCameraColourContainer(opened_.container);
    report_.frameCount = opened_.decoder->FrameCount();
    if (report_.frameCount == 0 || report_.frameCount <= frameIndex_) {
        return S_FALSE;
    }

    std::unique_ptr<BitmapSource> source;
    if (const Result chosen = ChooseSource(source); chosen.Failed()) {
        return chosen;
    }
    report_.fromPreview = fromPreview_;
    ManageColour(source);
    if (!source) {
        return E_FAIL;
    }

    picture_.sourcePixelFormat = frame_->Format();
    picture_.sourceBitsPerPixel = imaging::BitsPerPixel(frame_->Format());
    imaging::InitialiseMetadata();
    // Metadata that cannot be read leaves its fields empty; the picture is still shown.
    (void)metadata::ReadPictureMetadata(path_, &record_, frame_.get(), opened_.decoder.get(),
                                        frameIndex_, picture_.profileDescription);

    if (const Result scaled = Downscale(source); scaled.Failed()) {
        return scaled;
    }
    if (source->Format() != options_.outputFormat) {
        source = imaging::Converted(std::move(source), options_.outputFormat);
        if (!source) {
            return WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT;
        }
    }
    if (const Result copied = Copy(std::move(source)); copied.Failed()) {
        return copied;
    }
    record_.decodedSize = {picture_.width, picture_.height};
    record_.sourceBitsPerPixel = picture_.sourceBitsPerPixel;
    return S_OK;
}

}  // namespace

DecodeOptions DecodeOptions::FromSettings(imaging::PixelFormat outputFormat, bool accelerated,
                                          const MonitorProfileProvider* monitor) {
    DecodeOptions options;
    options.outputFormat = outputFormat;
    options.accelerated = accelerated;
    options.enableIcc = settings::EnableICC.On();
    options.autoRotate = settings::EnableExifAutoRotate.On();
    options.downscale = settings::DownscaleLargeImages.Get();
    options.colour = ColourSettings::FromProcess(monitor);
    options.warnOnInvalidProfile = settings::WarnOnInvalidProfile.On();
    // Only the raster path draws transparent pictures over the view's background at decode
    // time; the accelerated path blends when it draws.
    options.composeOverBackground = !accelerated;
    return options;
}

Result DecodePicture(const std::filesystem::path& path, std::uint16_t frameIndex,
                     const DecodeOptions& options, const std::atomic<std::uint32_t>& abortFlag,
                     DecodedPicture& picture, metadata::PictureMetadata& record,
                     DecodeReport* report) {
    DecodeReport scratch;
    DecodeReport& out = report != nullptr ? *report : scratch;
    out = {};
    picture = DecodedPicture{};
    Result result = E_FAIL;
    try {
        result = Pipeline(path, frameIndex, options, abortFlag, picture, record, out).Run();
    } catch (const ResultError& error) {
        result = error.GetResult();
    } catch (const std::bad_alloc&) {
        result = E_OUTOFMEMORY;
    }
    if (result != S_OK) {
        picture.pixels.Reset();
        picture.width = picture.height = 0;
        record.validFields &= ~metadata::ValidField::kHistogram;
    }
    picture.result = result;
    return result;
}

Result DecodeEntry(list::PictureEntry& entry, std::string_view decodeKind,
                   const DecodeOptions& options) {
    return DecodeEntry(entry, decodeKind, options,
                       [](const std::filesystem::path& path, std::uint16_t frameIndex,
                          const DecodeOptions& decodeOptions,
                          const std::atomic<std::uint32_t>& abortFlag, DecodedPicture& picture,
                          metadata::PictureMetadata& record) {
                           return DecodePicture(path, frameIndex, decodeOptions, abortFlag,
                                                picture, record);
                       });
}

Result DecodeEntry(list::PictureEntry& entry, std::string_view decodeKind,
                   const DecodeOptions& options, const PictureDecodeFunction& decodeFile) {
    // The list lock guards the kind: a caller that records it under that lock before the
    // decode finds it unchanged here.
    if (entry.decodeKind != decodeKind) {
        entry.decodeKind = decodeKind;
    }
    if (Aborted(entry.abortFlag)) {
        return E_ABORT;
    }
    const Result last{static_cast<std::uint32_t>(entry.decodeResult)};
    Result result = last;
    bool decode = false;
    entry.decodedPicture.reset();
    if (options.accelerated) {
        if (entry.systemMemoryCopy) {
            // The picture survived a device reset in system memory: no decode needed.
            entry.decodedPicture = std::move(entry.systemMemoryCopy);
            entry.systemMemoryCopy.reset();
            result = S_OK;
        } else {
            // Running out of memory is worth another try once the cache has made room.
            decode = !last.Failed() || last == E_OUTOFMEMORY;
        }
    } else {
        entry.systemMemoryCopy.reset();
        decode = !last.Failed();
    }
    if (decode) {
        auto picture = std::make_shared<DecodedPicture>();
        auto record = std::make_shared<metadata::PictureMetadata>();
        const std::filesystem::path path = entry.BasePathCopy() + "." + std::string(decodeKind);
        result = decodeFile(path, entry.frameIndex, options, entry.abortFlag, *picture, *record);
        if (result == S_OK) {
            entry.width = picture->width;
            entry.height = picture->height;
            entry.decodedPicture = std::move(picture);
            entry.metadata = std::move(record);
        }
    }
    entry.decodeResult = static_cast<std::int32_t>(result.Code());
    entry.decoding.store(false);
    return result;
}

}  // namespace orvanta::decode

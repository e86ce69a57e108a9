#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/imaging/codecs/exif_payload_internal.h"
#include "platform/imaging/codecs/heif_family_internal.h"
#include "platform/imaging/codecs/upright_frame.h"
#include "platform/imaging/codecs/whole_image_frame_internal.h"

#if ORVANTA_HAVE_HEIF
#include <libheif/heif.h>
#endif

namespace orvanta::imaging::codecs {

namespace {

std::uint32_t ReadBigEndian32(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

bool IsOneOf(std::span<const std::uint8_t> brand, std::initializer_list<std::string_view> list) {
    const std::string_view text(reinterpret_cast<const char*>(brand.data()), 4);
    return std::find(list.begin(), list.end(), text) != list.end();
}

}  // namespace

HeifBrand ClassifyHeifBrands(std::span<const std::uint8_t> head) {
    // size, "ftyp", major brand, minor version, then compatible brands to the box's end
    if (head.size() < 16 || std::memcmp(head.data() + 4, "ftyp", 4) != 0) {
        return HeifBrand::None;
    }
    const std::size_t boxSize = ReadBigEndian32(head);
    if (boxSize < 16) {
        return HeifBrand::None;
    }
    const std::size_t end = std::min(boxSize, head.size());
    bool heif = false;
    for (std::size_t at = 8; at + 4 <= end; at += 4) {
        if (at == 12) {
            continue;  // minor version
        }
        const auto brand = head.subspan(at, 4);
        if (IsOneOf(brand, {"avif", "avis"})) {
            return HeifBrand::Avif;
        }
        heif = heif || IsOneOf(brand, {"heic", "heix", "hevc", "hevx", "heim", "heis", "hevm",
                                       "hevs", "mif1", "msf1"});
    }
    return heif ? HeifBrand::Heif : HeifBrand::None;
}

#if ORVANTA_HAVE_HEIF

namespace {

// libheif refuses images with a side above this while it parses the file; with the
// one-gigapixel check on the product this bounds what a hostile header can make it
// allocate.
constexpr int kMaxSide = 32768;

struct ContextDeleter {
    void operator()(heif_context* context) const { heif_context_free(context); }
};
struct HandleDeleter {
    void operator()(const heif_image_handle* handle) const { heif_image_handle_release(handle); }
};
struct ImageDeleter {
    void operator()(const heif_image* image) const { heif_image_release(image); }
};
struct OptionsDeleter {
    void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
};

// heif_init registers the built-in codecs; libheif's lazy registration on first use is not
// guarded, so it happens once, here, before any decoder of ours touches the library. The
// library stays initialised for the life of the process.
void EnsureLibheif() {
    static const bool ready = [] {
        (void)heif_init(nullptr);
        return true;
    }();
    (void)ready;
}

Result FromHeifError(const heif_error& error) {
    switch (error.code) {
        case heif_error_Ok:
            return S_OK;
        case heif_error_Memory_allocation_error:
            return E_OUTOFMEMORY;
        case heif_error_Unsupported_filetype:
        case heif_error_Unsupported_feature:
            return E_UNSUPPORTED_TYPE;
        case heif_error_Decoder_plugin_error:
            return error.subcode == heif_suberror_Unsupported_codec ? E_UNSUPPORTED_TYPE : E_FAIL;
        default:
            return E_FAIL;
    }
}

void ThrowIfFailed(const heif_error& error) {
    if (error.code != heif_error_Ok) {
        throw ResultError(FromHeifError(error));
    }
}

// What the decoder and its frame share: the bytes libheif reads in place (they must outlive
// the context), the parsed file and the primary image's metadata. Members are destroyed in
// reverse order, so the handle goes before the context and both before the bytes.
struct HeifFile {
    std::shared_ptr<const FileBytes> bytes;
    std::unique_ptr<heif_context, ContextDeleter> context;
    std::unique_ptr<heif_image_handle, HandleDeleter> primary;
    std::vector<std::uint8_t> exifPayload;
    std::size_t exifStart = 0;
    std::vector<std::uint8_t> xmp;
    std::vector<std::uint8_t> icc;
};

// Reads every metadata block libheif links to the primary image; the first EXIF block and
// the first XMP packet win. A block larger than the whole file cannot be real.
void ReadMetadata(HeifFile& file) {
    heif_image_handle* handle = file.primary.get();
    const int count = heif_image_handle_get_number_of_metadata_blocks(handle, nullptr);
    if (count <= 0) {
        return;
    }
    std::vector<heif_item_id> ids(static_cast<std::size_t>(count));
    const int listed =
        heif_image_handle_get_list_of_metadata_block_IDs(handle, nullptr, ids.data(), count);
    ids.resize(static_cast<std::size_t>(std::clamp(listed, 0, count)));
    for (const heif_item_id id : ids) {
        const std::string_view type = heif_image_handle_get_metadata_type(handle, id);
        const std::string_view contentType =
            heif_image_handle_get_metadata_content_type(handle, id);
        const bool exif = type == "Exif" && file.exifPayload.empty();
        const bool xmp = type == "mime" && contentType == "application/rdf+xml" && file.xmp.empty();
        if (!exif && !xmp) {
            continue;
        }
        const std::size_t size = heif_image_handle_get_metadata_size(handle, id);
        if (size == 0 || size > file.bytes->Size()) {
            continue;
        }
        std::vector<std::uint8_t> data(size);
        if (heif_image_handle_get_metadata(handle, id, data.data()).code != heif_error_Ok) {
            continue;
        }
        if (exif) {
            if (const auto start = FindExifTiffHeader(data)) {
                file.exifStart = *start;
                file.exifPayload = std::move(data);
            }
        } else {
            file.xmp = std::move(data);
        }
    }
}

void ReadIccProfile(HeifFile& file) {
    const heif_color_profile_type type =
        heif_image_handle_get_color_profile_type(file.primary.get());
    if (type != heif_color_profile_type_rICC && type != heif_color_profile_type_prof) {
        return;
    }
    const std::size_t size = heif_image_handle_get_raw_color_profile_size(file.primary.get());
    if (size == 0 || size > file.bytes->Size()) {
        return;
    }
    std::vector<std::uint8_t> icc(size);
    if (heif_image_handle_get_raw_color_profile(file.primary.get(), icc.data()).code ==
        heif_error_Ok) {
        file.icc = std::move(icc);
    }
}

// Deep images arrive as 16-bit words holding `bits`-bit values; the frame's formats carry
// the full 16-bit range, so each value is rescaled in place.
void WidenSamples(std::uint8_t* plane, std::size_t stride, std::size_t rowSamples,
                  std::uint32_t height, int bits) {
    const std::uint32_t maximum = (1u << bits) - 1;
    for (std::uint32_t row = 0; row < height; ++row) {
        std::uint8_t* at = plane + row * stride;
        for (std::size_t i = 0; i < rowSamples; ++i, at += 2) {
            std::uint16_t value;
            std::memcpy(&value, at, 2);
            const std::uint32_t clamped = std::min<std::uint32_t>(value, maximum);
            value = static_cast<std::uint16_t>((clamped * 65535u + maximum / 2) / maximum);
            std::memcpy(at, &value, 2);
        }
    }
}

class HeifFrame final : public WholeImageFrame<UprightFrame> {
public:
    HeifFrame(std::shared_ptr<const HeifFile> file, PixelSize size, PixelFormat format)
        : WholeImageFrame(size, format), file_(std::move(file)) {}

    bool TransformsApplied() const override { return true; }
    const FileBytes& File() const override { return *file_->bytes; }
    FrameMetadataBlocks Metadata() const override {
        FrameMetadataBlocks blocks;
        if (!file_->exifPayload.empty()) {
            blocks.exif = std::span(file_->exifPayload).subspan(file_->exifStart);
        }
        blocks.xmp = file_->xmp;
        blocks.icc = file_->icc;
        return blocks;
    }

private:
    Result DecodeWhole(DecodedPixels& pixels) override {
        const PixelFormatInfo& info = Info(Format());
        const bool deep = info.bitsPerChannel == 16;
        constexpr bool little = std::endian::native == std::endian::little;
        heif_chroma chroma;
        if (deep) {
            chroma = info.hasAlpha ? (little ? heif_chroma_interleaved_RRGGBBAA_LE
                                             : heif_chroma_interleaved_RRGGBBAA_BE)
                                   : (little ? heif_chroma_interleaved_RRGGBB_LE
                                             : heif_chroma_interleaved_RRGGBB_BE);
        } else {
            chroma = info.hasAlpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
        }
        std::unique_ptr<heif_decoding_options, OptionsDeleter> options(
            heif_decoding_options_alloc());
        if (!options) {
            return E_OUTOFMEMORY;
        }
        options->ignore_transformations = 0;  // the rotation and mirror items make it upright
        options->convert_hdr_to_8bit = 0;
        heif_image* decoded = nullptr;
        const heif_error error = heif_decode_image(file_->primary.get(), &decoded,
                                                   heif_colorspace_RGB, chroma, options.get());
        image_.reset(decoded);
        ThrowIfFailed(error);
        if (!image_) {
            return E_FAIL;
        }
        int stride = 0;
        std::uint8_t* plane = heif_image_get_plane(image_.get(), heif_channel_interleaved, &stride);
        const int width = heif_image_get_width(image_.get(), heif_channel_interleaved);
        const int height = heif_image_get_height(image_.get(), heif_channel_interleaved);
        // The handle announced the size of the transformed image; a file whose coded image
        // does not agree is refused rather than served with a different size.
        if (plane == nullptr || width != static_cast<int>(Size().width) ||
            height != static_cast<int>(Size().height) || stride <= 0 ||
            static_cast<std::size_t>(stride) < RowBytes(Size().width)) {
            return E_FAIL;
        }
        if (deep) {
            const int bits =
                heif_image_get_bits_per_pixel_range(image_.get(), heif_channel_interleaved);
            if (bits > 8 && bits < 16) {
                WidenSamples(plane, static_cast<std::size_t>(stride),
                             static_cast<std::size_t>(width) * info.channels, Size().height, bits);
            }
        }
        pixels = {plane, static_cast<std::size_t>(stride)};
        return S_OK;
    }

    std::shared_ptr<const HeifFile> file_;
    std::unique_ptr<heif_image, ImageDeleter> image_;
};

class HeifDecoder final : public Decoder {
public:
    HeifDecoder(const Guid& container, std::shared_ptr<const HeifFile> file, PixelSize size,
                PixelFormat format)
        : container_(container), file_(std::move(file)), size_(size), format_(format) {}

    Guid Container() const override { return container_; }
    std::uint32_t FrameCount() const override { return 1; }
    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        frame = std::make_unique<HeifFrame>(file_, size_, format_);
        return S_OK;
    }

private:
    Guid container_;
    std::shared_ptr<const HeifFile> file_;
    PixelSize size_;
    PixelFormat format_;
};

Result CreateOrThrow(const Guid& container, std::shared_ptr<const FileBytes> bytes,
                     std::unique_ptr<Decoder>& decoder) {
    EnsureLibheif();
    auto file = std::make_shared<HeifFile>();
    file->bytes = std::move(bytes);
    file->context.reset(heif_context_alloc());
    if (!file->context) {
        return E_OUTOFMEMORY;
    }
    heif_context_set_maximum_image_size_limit(file->context.get(), kMaxSide);
    // Grid tiles are decoded on the calling thread: one pipeline, one worker.
    heif_context_set_max_decoding_threads(file->context.get(), 0);
    const std::span<const std::uint8_t> data = file->bytes->Bytes();
    ThrowIfFailed(heif_context_read_from_memory_without_copy(file->context.get(), data.data(),
                                                             data.size(), nullptr));
    heif_image_handle* primary = nullptr;
    const heif_error error = heif_context_get_primary_image_handle(file->context.get(), &primary);
    file->primary.reset(primary);
    ThrowIfFailed(error);
    if (!file->primary) {
        return E_FAIL;
    }
    const int width = heif_image_handle_get_width(primary);
    const int height = heif_image_handle_get_height(primary);
    if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide) {
        return E_FAIL;
    }
    const PixelSize size{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
    if (!AcceptableSize(size)) {
        return E_FAIL;
    }
    const bool alpha = heif_image_handle_has_alpha_channel(primary) != 0;
    const bool deep = heif_image_handle_get_luma_bits_per_pixel(primary) > 8;
    const PixelFormat format = deep ? (alpha ? PixelFormat::Rgba64 : PixelFormat::Rgb48)
                                    : (alpha ? PixelFormat::Rgba32 : PixelFormat::Rgb24);
    ReadMetadata(*file);
    ReadIccProfile(*file);
    decoder = std::make_unique<HeifDecoder>(container, std::move(file), size, format);
    return S_OK;
}

}  // namespace

Result CreateHeifFamilyDecoder(const Guid& container, std::shared_ptr<const FileBytes> bytes,
                               std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    try {
        return CreateOrThrow(container, std::move(bytes), decoder);
    } catch (const ResultError& error) {
        return error.GetResult();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

#endif  // ORVANTA_HAVE_HEIF

}  // namespace orvanta::imaging::codecs

#include "platform/imaging/codecs/png_frame_internal.h"

#if ORVANTA_HAVE_SPNG

#include <cstring>
#include <string_view>

#include <spng.h>

#include "platform/checked.h"
#include "platform/imaging/codecs/image_codec_errors_internal.h"

namespace orvanta::imaging::codecs {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
// No single ancillary chunk of a real file comes near these; a profile or text that
// inflates past them is an attack on memory.
constexpr std::size_t kMaxChunkBytes = 32u << 20;
constexpr std::size_t kMaxCachedBytes = 64u << 20;
constexpr std::string_view kXmpKeyword = "XML:com.adobe.xmp";

enum ColorType : std::uint8_t { Gray = 0, Rgb = 2, Indexed = 3, GrayAlpha = 4, Rgba = 6 };

std::uint32_t Be32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

bool IsTiff(Bytes data) {
    return data.size() >= 8 &&
           (std::memcmp(data.data(), "II*\0", 4) == 0 || std::memcmp(data.data(), "MM\0*", 4) == 0);
}

// Our own pass over the chunk list: the total compressed size (to judge, before a whole
// interlaced image is allocated, whether the data could fill it) and the eXIf chunk, which
// writers put before or after the image data alike.
void WalkChunks(Bytes file, PngInfo& info) {
    std::size_t pos = sizeof(kSignature);
    while (RangeInside(pos, 8, file.size())) {
        const std::size_t length = Be32(file.data() + pos);
        const std::uint8_t* type = file.data() + pos + 4;
        const std::size_t dataAt = pos + 8;
        const bool complete = RangeInside(dataAt, length, file.size());
        if (std::memcmp(type, "IDAT", 4) == 0) {
            info.compressedBytes += complete ? length : file.size() - dataAt;
        } else if (std::memcmp(type, "eXIf", 4) == 0 && complete && info.exif.empty() &&
                   IsTiff(file.subspan(dataAt, length))) {
            info.exif = file.subspan(dataAt, length);
        } else if (std::memcmp(type, "IEND", 4) == 0) {
            return;
        }
        if (!complete || !RangeInside(dataAt + length, 4, file.size())) {
            return;
        }
        pos = dataAt + length + 4;
    }
}

std::vector<std::uint32_t> GrayPalette(std::uint32_t depth) {
    const std::uint32_t entries = 1u << depth;
    std::vector<std::uint32_t> palette(entries);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint32_t gray = i * 255 / (entries - 1);
        palette[i] = 0xFF000000u | gray << 16 | gray << 8 | gray;
    }
    return palette;
}

Result ReadPalette(spng_ctx* context, std::uint32_t depth, const spng_trns* trns, PngInfo& info) {
    spng_plte plte{};
    if (spng_get_plte(context, &plte) != 0 || plte.n_entries == 0) {
        return kErrBadHeader;
    }
    // Indexes past the table read as opaque black, so converters never index past it.
    info.palette.assign(std::size_t{1} << depth, 0xFF000000u);
    for (std::uint32_t i = 0; i < plte.n_entries && i < info.palette.size(); ++i) {
        const spng_plte_entry& e = plte.entries[i];
        std::uint32_t alpha = 0xFF;
        if (trns != nullptr && i < trns->n_type3_entries) {
            alpha = trns->type3_alpha[i];
        }
        info.palette[i] =
            alpha << 24 | std::uint32_t{e.red} << 16 | std::uint32_t{e.green} << 8 | e.blue;
    }
    return S_OK;
}

PixelFormat IndexedFormat(std::uint32_t depth) {
    switch (depth) {
        case 1:
            return PixelFormat::Indexed1;
        case 2:
            return PixelFormat::Indexed2;
        case 4:
            return PixelFormat::Indexed4;
        default:
            return PixelFormat::Indexed8;
    }
}

Result ChooseFormat(spng_ctx* context, PngInfo& info) {
    spng_trns trns{};
    const bool keyed = spng_get_trns(context, &trns) == 0;
    const std::uint32_t depth = info.bitDepth;
    const bool wide = depth == 16;
    info.decodeFormat = SPNG_FMT_PNG;
    switch (info.colorType) {
        case Gray:
            if (depth < 8) {
                // Low-depth gray is a palette of gray levels (the key becomes one entry's
                // alpha); plain 1-bit gray is black and white as it stands.
                if (depth == 1 && !keyed) {
                    info.format = PixelFormat::BlackWhite;
                    return S_OK;
                }
                info.format = IndexedFormat(depth);
                info.palette = GrayPalette(depth);
                if (keyed && trns.gray < info.palette.size()) {
                    info.palette[trns.gray] &= 0x00FFFFFFu;
                }
                return S_OK;
            }
            info.grayKey = keyed;
            info.keyGray = trns.gray;
            info.format = keyed ? (wide ? PixelFormat::GrayAlpha32 : PixelFormat::GrayAlpha16)
                                : (wide ? PixelFormat::Gray16 : PixelFormat::Gray8);
            return S_OK;
        case Rgb:
            if (keyed) {
                info.decodeFormat = wide ? SPNG_FMT_RGBA16 : SPNG_FMT_RGBA8;
                info.decodeTransparency = true;
                info.format = wide ? PixelFormat::Rgba64 : PixelFormat::Rgba32;
            } else {
                info.format = wide ? PixelFormat::Rgb48 : PixelFormat::Rgb24;
            }
            return S_OK;
        case Indexed:
            info.format = IndexedFormat(depth);
            return ReadPalette(context, depth, keyed ? &trns : nullptr, info);
        case GrayAlpha:
            info.format = wide ? PixelFormat::GrayAlpha32 : PixelFormat::GrayAlpha16;
            return S_OK;
        case Rgba:
            info.format = wide ? PixelFormat::Rgba64 : PixelFormat::Rgba32;
            return S_OK;
        default:
            return kErrBadHeader;
    }
}

void ReadMetadata(spng_ctx* context, PngInfo& info) {
    spng_iccp iccp{};
    if (spng_get_iccp(context, &iccp) == 0 && iccp.profile != nullptr) {
        const auto* profile = reinterpret_cast<const std::uint8_t*>(iccp.profile);
        info.icc.assign(profile, profile + iccp.profile_len);
    }
    std::uint32_t count = 0;
    if (spng_get_text(context, nullptr, &count) != 0 || count == 0) {
        return;
    }
    std::vector<spng_text> texts(count);
    if (spng_get_text(context, texts.data(), &count) != 0) {
        return;
    }
    for (const spng_text& text : texts) {
        if (text.keyword == kXmpKeyword && text.text != nullptr) {
            const auto* packet = reinterpret_cast<const std::uint8_t*>(text.text);
            info.xmp.assign(packet, packet + text.length);
            return;
        }
    }
}

}  // namespace

void SpngContextDeleter::operator()(spng_ctx* context) const {
    spng_ctx_free(context);
}

SpngContext OpenSpng(Bytes file) {
    SpngContext context(spng_ctx_new(0));
    if (!context) {
        return nullptr;
    }
    spng_set_chunk_limits(context.get(), kMaxChunkBytes, kMaxCachedBytes);
    spng_set_crc_action(context.get(), SPNG_CRC_ERROR, SPNG_CRC_DISCARD);
    if (spng_set_png_buffer(context.get(), file.data(), file.size()) != 0) {
        return nullptr;
    }
    return context;
}

Result ReadPngInfo(Bytes file, PngInfo& info) {
    info = {};
    if (file.size() < sizeof(kSignature) ||
        std::memcmp(file.data(), kSignature, sizeof(kSignature)) != 0) {
        return kErrBadHeader;
    }
    SpngContext context = OpenSpng(file);
    if (!context) {
        return E_OUTOFMEMORY;
    }
    spng_ihdr ihdr{};
    // Reading the IHDR alone checks neither its checksum nor that image data follows; the
    // chunks up to the first IDAT are read (and checked) before the header is believed.
    int error = spng_get_ihdr(context.get(), &ihdr);
    if (error == 0) {
        error = spng_decode_chunks(context.get());
    }
    if (error != 0) {
        return error == SPNG_EMEM ? E_OUTOFMEMORY : kErrBadHeader;
    }
    info.size = {ihdr.width, ihdr.height};
    if (!AcceptableSize(info.size)) {
        return kErrImageSizeOutOfRange;
    }
    info.bitDepth = ihdr.bit_depth;
    info.colorType = ihdr.color_type;
    info.interlaced = ihdr.interlace_method != SPNG_INTERLACE_NONE;
    if (const Result chosen = ChooseFormat(context.get(), info); chosen.Failed()) {
        return chosen;
    }
    ReadMetadata(context.get(), info);
    WalkChunks(file, info);
    return S_OK;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_SPNG

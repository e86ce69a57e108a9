#include "platform/imaging/codecs/gif_internal.h"

#if ORVANTA_HAVE_GIF

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/checked.h"
#include "platform/imaging/codecs/image_codec_errors_internal.h"

namespace orvanta::imaging::codecs {

namespace {

// Real animations run to a few thousand frames; a file that lists more is refused rather
// than indexed, so the index stays small whatever the file claims.
constexpr std::size_t kMaxFrames = 1u << 16;
constexpr std::string_view kXmpApplication = "XMP DataXMP";
// The XMP packet of a GIF ends with a 258-byte "magic trailer" (bytes 0x01, 0xFF down to
// 0x00, 0x00) that lets readers that know nothing of it skip the packet as sub-blocks.
constexpr std::string_view kPacketEnd = "<?xpacket end=";
constexpr std::string_view kTrailerStart = "\x01\xFF\xFE";

int ReadBytes(GifFileType* gif, GifByteType* out, int length) {
    auto* reader = static_cast<GifReader*>(gif->UserData);
    const std::size_t left = reader->bytes.size() - reader->position;
    const std::size_t count = std::min(left, static_cast<std::size_t>(std::max(length, 0)));
    if (count > 0) {
        std::memcpy(out, reader->bytes.data() + reader->position, count);
    }
    reader->position += count;
    return static_cast<int>(count);
}

// The packet is stored raw, its own bytes serving as sub-block lengths (the first being the
// '<' of "<?xpacket"). Writers that got this wrong store it as ordinary sub-blocks; both
// are read, and whatever follows the packet's end is dropped.
std::vector<std::uint8_t> CleanPacket(std::vector<std::uint8_t> packet) {
    const std::string_view text(reinterpret_cast<const char*>(packet.data()), packet.size());
    std::size_t end = text.rfind(kPacketEnd);
    if (end != std::string_view::npos) {
        const std::size_t close = text.find("?>", end);
        end = close == std::string_view::npos ? std::string_view::npos : close + 2;
    } else {
        end = text.find(kTrailerStart);
    }
    if (end != std::string_view::npos) {
        packet.resize(end);
    }
    return packet;
}

// Reads the sub-blocks of an extension; the XMP application's go into `xmp`.
bool ReadExtension(GifFileType* gif, int code, GifByteType* block, GifFrameInfo& pending,
                   std::vector<std::uint8_t>& xmp) {
    bool isXmp = false;
    if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr) {
        GraphicsControlBlock control{};
        if (DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
            pending.disposal = control.DisposalMode;
            pending.transparent = control.TransparentColor;
        }
    } else if (code == APPLICATION_EXT_FUNC_CODE && block != nullptr &&
               block[0] == kXmpApplication.size() && xmp.empty() &&
               std::memcmp(block + 1, kXmpApplication.data(), kXmpApplication.size()) == 0) {
        isXmp = true;
    }
    std::vector<std::uint8_t> packet;
    bool raw = false;
    while (block != nullptr) {
        if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) {
            return false;
        }
        if (isXmp && block != nullptr) {
            if (packet.empty()) {
                raw = block[0] == '<';
            }
            packet.insert(packet.end(), block + (raw ? 0 : 1), block + 1 + block[0]);
        }
    }
    if (isXmp) {
        xmp = CleanPacket(std::move(packet));
    }
    return true;
}

// Passes over an image's compressed data without decoding it.
bool SkipCode(GifFileType* gif) {
    int codeSize = 0;
    GifByteType* block = nullptr;
    if (DGifGetCode(gif, &codeSize, &block) == GIF_ERROR) {
        return false;
    }
    while (block != nullptr) {
        if (DGifGetCodeNext(gif, &block) == GIF_ERROR) {
            return false;
        }
    }
    return true;
}

}  // namespace

void GifCloser::operator()(GifFileType* gif) const {
    int error = 0;
    DGifCloseFile(gif, &error);
}

GifHandle OpenGif(GifReader& reader) {
    reader.position = 0;
    int error = 0;
    return GifHandle(DGifOpen(&reader, ReadBytes, &error));
}

Result ReadGifIndex(std::span<const std::uint8_t> file, GifIndex& index) {
    index = {};
    GifReader reader{file, 0};
    GifHandle gif = OpenGif(reader);
    if (!gif) {
        return kErrBadHeader;
    }
    GifFrameInfo pending;
    bool done = false;
    while (!done && index.frames.size() < kMaxFrames) {
        GifRecordType record = UNDEFINED_RECORD_TYPE;
        if (DGifGetRecordType(gif.get(), &record) == GIF_ERROR) {
            break;
        }
        switch (record) {
            case IMAGE_DESC_RECORD_TYPE: {
                if (DGifGetImageDesc(gif.get()) == GIF_ERROR) {
                    done = true;
                    break;
                }
                const GifImageDesc& image = gif->Image;
                GifFrameInfo frame = pending;
                frame.left = image.Left;
                frame.top = image.Top;
                frame.width = image.Width;
                frame.height = image.Height;
                index.frames.push_back(frame);
                pending = {};
                // A frame whose data is cut short still shows what it has.
                done = !SkipCode(gif.get());
                break;
            }
            case EXTENSION_RECORD_TYPE: {
                int code = 0;
                GifByteType* block = nullptr;
                done = DGifGetExtension(gif.get(), &code, &block) == GIF_ERROR ||
                       !ReadExtension(gif.get(), code, block, pending, index.xmp);
                break;
            }
            default:
                done = true;  // the trailer, or a record type no writer uses
                break;
        }
    }
    if (index.frames.empty()) {
        return kErrBadImage;
    }
    if (index.frames.size() >= kMaxFrames) {
        return kErrImageSizeOutOfRange;
    }
    index.screen = {static_cast<std::uint32_t>(std::max(gif->SWidth, 0)),
                    static_cast<std::uint32_t>(std::max(gif->SHeight, 0))};
    // Some writers leave the screen size at zero: the frames then define it.
    if (index.screen.width == 0 || index.screen.height == 0) {
        for (const GifFrameInfo& frame : index.frames) {
            index.screen.width =
                std::max<std::uint32_t>(index.screen.width, frame.left + frame.width);
            index.screen.height =
                std::max<std::uint32_t>(index.screen.height, frame.top + frame.height);
        }
    }
    if (!AcceptableSize(index.screen)) {
        return index.screen.width == 0 || index.screen.height == 0 ? kErrBadImage
                                                                   : kErrImageSizeOutOfRange;
    }
    return S_OK;
}

}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_GIF

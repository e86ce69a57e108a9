#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "platform/checked.h"
#include "platform/imaging/codecs/image_codec_errors_internal.h"
#include "platform/imaging/codecs/jpeg_markers_internal.h"

namespace orvanta::imaging::codecs {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t kSoi = 0xD8;
constexpr std::uint8_t kEoi = 0xD9;
constexpr std::uint8_t kSos = 0xDA;
constexpr std::uint8_t kApp1 = 0xE1;
constexpr std::uint8_t kApp2 = 0xE2;
constexpr std::uint8_t kApp13 = 0xED;
constexpr std::uint8_t kApp14 = 0xEE;

constexpr std::string_view kExifId{"Exif\0\0", 6};
constexpr std::string_view kXmpId{"http://ns.adobe.com/xap/1.0/\0", 29};
constexpr std::string_view kIccId{"ICC_PROFILE\0", 12};
constexpr std::string_view kMpfId{"MPF\0", 4};
constexpr std::string_view kPhotoshopId{"Photoshop 3.0\0", 14};
constexpr std::string_view kAdobeId{"Adobe", 5};
constexpr std::uint16_t kIptcResource = 0x0404;

std::uint16_t Be16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}
std::uint32_t Be32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

bool StartsWith(Bytes data, std::string_view prefix) {
    return data.size() >= prefix.size() &&
           std::memcmp(data.data(), prefix.data(), prefix.size()) == 0;
}

bool IsTiffHeader(Bytes data) {
    return StartsWith(data, std::string_view("II*\0", 4)) ||
           StartsWith(data, std::string_view("MM\0*", 4));
}

// Frame headers: every SOFn except DHT (C4), JPG (C8) and DAC (CC).
bool IsFrameHeader(std::uint8_t marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

bool IsLossless(std::uint8_t marker) {
    return marker == 0xC3 || marker == 0xC7 || marker == 0xCB || marker == 0xCF;
}

// The IPTC records inside a Photoshop image-resource block: a list of "8BIM" resources,
// each with an id, a padded Pascal name and a padded length-prefixed body.
Bytes FindIptc(Bytes irb) {
    std::size_t pos = 0;
    while (RangeInside(pos, 7, irb.size())) {
        if (std::memcmp(irb.data() + pos, "8BIM", 4) != 0) {
            return {};
        }
        const std::uint16_t id = Be16(irb.data() + pos + 4);
        const std::size_t nameLength = irb[pos + 6];
        // The name with its length byte is padded to an even size.
        const std::size_t nameBytes = (nameLength + 2) & ~std::size_t{1};
        const std::size_t sizeAt = pos + 4 + 2 + nameBytes;
        if (!RangeInside(sizeAt, 4, irb.size())) {
            return {};
        }
        const std::size_t length = Be32(irb.data() + sizeAt);
        const std::size_t bodyAt = sizeAt + 4;
        if (!RangeInside(bodyAt, length, irb.size())) {
            return {};
        }
        if (id == kIptcResource) {
            return irb.subspan(bodyAt, length);
        }
        pos = bodyAt + length + (length & 1);
    }
    return {};
}

struct IccChunk {
    std::uint8_t sequence;
    std::uint8_t count;
    Bytes data;
};

// Chunks numbered 1..count, each once, all agreeing on the count; anything else is a
// profile we cannot trust, and the frame goes without one.
std::vector<std::uint8_t> JoinIcc(std::vector<IccChunk>& chunks) {
    if (chunks.empty()) {
        return {};
    }
    std::sort(chunks.begin(), chunks.end(),
              [](const IccChunk& a, const IccChunk& b) { return a.sequence < b.sequence; });
    const std::size_t count = chunks.front().count;
    if (count != chunks.size()) {
        return {};
    }
    std::size_t total = 0;
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        if (chunks[i].count != count || chunks[i].sequence != i + 1) {
            return {};
        }
        total += chunks[i].data.size();
    }
    std::vector<std::uint8_t> icc;
    icc.reserve(total);
    for (const IccChunk& chunk : chunks) {
        icc.insert(icc.end(), chunk.data.begin(), chunk.data.end());
    }
    return icc;
}

Result ReadFrameHeader(std::uint8_t marker, Bytes body, JpegHeader& header) {
    if (body.size() < 6) {
        return kErrBadHeader;
    }
    const std::uint32_t precision = body[0];
    header.size = {Be16(body.data() + 3), Be16(body.data() + 1)};
    header.components = body[5];
    header.progressive = marker == 0xC2 || marker == 0xC6 || marker == 0xCA || marker == 0xCE;
    if (body.size() < 6 + 3 * std::size_t{header.components}) {
        return kErrBadHeader;
    }
    // A zero height means the height comes later in a DNL segment, which libjpeg refuses.
    if (header.size.width == 0 || header.size.height == 0) {
        return kErrBadHeader;
    }
    if (!AcceptableSize(header.size)) {
        return kErrImageSizeOutOfRange;
    }
    if (precision != 8 || IsLossless(marker) ||
        (header.components != 1 && header.components != 3 && header.components != 4)) {
        return kErrUnsupportedPixelFormat;
    }
    return S_OK;
}

void ReadApplicationSegment(std::uint8_t marker, Bytes body, std::size_t bodyOffset,
                            JpegHeader& header, std::vector<IccChunk>& iccChunks) {
    switch (marker) {
        case kApp1:
            // The EXIF block is handed on as a TIFF structure: anything else is not one.
            if (header.exif.empty() && StartsWith(body, kExifId) &&
                IsTiffHeader(body.subspan(kExifId.size()))) {
                header.exif = body.subspan(kExifId.size());
            } else if (header.xmp.empty() && StartsWith(body, kXmpId)) {
                header.xmp = body.subspan(kXmpId.size());
            }
            break;
        case kApp2:
            if (StartsWith(body, kIccId) && body.size() >= kIccId.size() + 2) {
                iccChunks.push_back({body[kIccId.size()], body[kIccId.size() + 1],
                                     body.subspan(kIccId.size() + 2)});
            } else if (header.mpf.empty() && StartsWith(body, kMpfId)) {
                header.mpf = body.subspan(kMpfId.size());
                header.mpfOffset = bodyOffset + kMpfId.size();
            }
            break;
        case kApp13:
            if (header.iptc.empty() && StartsWith(body, kPhotoshopId)) {
                header.iptc = FindIptc(body.subspan(kPhotoshopId.size()));
            }
            break;
        case kApp14:
            if (StartsWith(body, kAdobeId)) {
                header.adobe = true;
            }
            break;
        default:
            break;
    }
}

}  // namespace

Result ReadJpegHeader(Bytes stream, JpegHeader& header) {
    header = {};
    if (stream.size() < 4 || stream[0] != 0xFF || stream[1] != kSoi) {
        return kErrBadHeader;
    }
    std::vector<IccChunk> iccChunks;
    bool sawFrame = false;
    std::size_t pos = 2;
    while (true) {
        // Bytes between segments are junk that libjpeg skips with a warning; so do we.
        while (pos < stream.size() && stream[pos] != 0xFF) {
            ++pos;
        }
        // Any number of fill bytes may precede a marker.
        while (pos < stream.size() && stream[pos] == 0xFF) {
            ++pos;
        }
        if (pos >= stream.size()) {
            return kErrBadHeader;
        }
        const std::uint8_t marker = stream[pos++];
        if (marker == 0x00 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
            continue;  // stuffed byte, TEM and restart markers carry no segment
        }
        if (marker == kSoi || marker == kEoi) {
            return kErrBadHeader;  // a second start, or an end before any scan
        }
        if (!RangeInside(pos, 2, stream.size())) {
            return kErrBadHeader;
        }
        const std::size_t length = Be16(stream.data() + pos);
        if (length < 2 || !RangeInside(pos, length, stream.size())) {
            return kErrBadHeader;
        }
        const std::size_t bodyOffset = pos + 2;
        const Bytes body = stream.subspan(bodyOffset, length - 2);
        pos += length;
        if (IsFrameHeader(marker)) {
            if (sawFrame) {
                return kErrBadHeader;
            }
            sawFrame = true;
            if (const Result result = ReadFrameHeader(marker, body, header); result.Failed()) {
                return result;
            }
        } else if (marker == kSos) {
            if (!sawFrame) {
                return kErrBadHeader;
            }
            header.icc = JoinIcc(iccChunks);
            return S_OK;
        } else if (marker >= 0xE0 && marker <= 0xEF) {
            ReadApplicationSegment(marker, body, bodyOffset, header, iccChunks);
        }
    }
}

}  // namespace orvanta::imaging::codecs

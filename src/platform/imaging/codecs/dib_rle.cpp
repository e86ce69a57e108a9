#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/imaging/codecs/dib_rle_internal.h"

namespace orvanta::imaging::codecs {

RleImage ParseRle(std::span<const std::uint8_t> data, const DibHeader& header) {
    data =
        data.first(std::min<std::size_t>(data.size(), std::numeric_limits<std::uint32_t>::max()));
    RleImage image;
    const bool four = header.compression == DibCompression::Rle4;
    const std::uint32_t width = header.width;
    std::uint32_t row = 0;
    std::uint32_t x = 0;  // stays <= width: whatever passes the row end is clipped
    auto add = [&](bool literal, std::uint32_t count, std::uint8_t value, std::size_t source) {
        if (x < width && count > 0) {
            image.segments.push_back(
                RleSegment{row, x, static_cast<std::uint32_t>(source),
                           static_cast<std::uint8_t>(std::min(count, width - x)), value, literal});
        }
        x = static_cast<std::uint32_t>(std::min<std::uint64_t>(std::uint64_t{x} + count, width));
    };
    std::size_t p = 0;
    while (row < header.height) {
        if (data.size() - std::min(p, data.size()) < 2) {
            image.truncated = true;
            break;
        }
        const std::uint8_t first = data[p];
        const std::uint8_t second = data[p + 1];
        p += 2;
        if (first != 0) {
            add(false, first, second, 0);
            continue;
        }
        if (second == 0) {  // end of line
            ++row;
            x = 0;
        } else if (second == 1) {  // end of bitmap
            break;
        } else if (second == 2) {  // delta: right and up
            if (data.size() - p < 2) {
                image.truncated = true;
                break;
            }
            x = static_cast<std::uint32_t>(
                std::min<std::uint64_t>(std::uint64_t{x} + data[p], width));
            row += data[p + 1];
            p += 2;
        } else {  // a literal stretch of `second` pixels, padded to a 16-bit boundary
            const std::size_t bytes = four ? (second + 1u) / 2 : second;
            const std::size_t left = data.size() - p;
            if (left < bytes) {
                add(true, static_cast<std::uint32_t>(four ? left * 2 : left), 0, p);
                image.truncated = true;
                break;
            }
            add(true, second, 0, p);
            p += (bytes + 1) & ~std::size_t{1};
        }
    }
    return image;
}

void PaintRleRow(const RleImage& image, std::span<const std::uint8_t> data, const DibHeader& header,
                 std::uint32_t row, std::uint32_t x, std::uint32_t count, std::uint8_t* out) {
    std::memset(out, 0, std::size_t{count} * 4);
    const bool four = header.compression == DibCompression::Rle4;
    const std::uint64_t end = std::uint64_t{x} + count;
    auto it = std::partition_point(image.segments.begin(), image.segments.end(),
                                   [row](const RleSegment& s) { return s.row < row; });
    for (; it != image.segments.end() && it->row == row; ++it) {
        const std::uint64_t from = std::max<std::uint64_t>(it->x, x);
        const std::uint64_t to = std::min<std::uint64_t>(std::uint64_t{it->x} + it->count, end);
        for (std::uint64_t px = from; px < to; ++px) {
            const std::size_t i = static_cast<std::size_t>(px - it->x);
            std::uint32_t index = 0;
            if (it->literal) {
                const std::uint8_t b = data[it->source + (four ? i / 2 : i)];
                index = four ? ((i & 1) ? b & 15u : b >> 4) : b;
            } else {
                index = four ? ((i & 1) ? it->value & 15u : it->value >> 4) : it->value;
            }
            const std::uint32_t c = header.palette[index];
            std::uint8_t* o = out + (px - x) * 4;
            o[0] = static_cast<std::uint8_t>(c);
            o[1] = static_cast<std::uint8_t>(c >> 8);
            o[2] = static_cast<std::uint8_t>(c >> 16);
            o[3] = 0xFF;
        }
    }
}

}  // namespace orvanta::imaging::codecs

// Icons and cursors: a directory of images of several sizes and depths. The decoder shows one
// frame, the entry with the most pixels and then the most bits per pixel, judged from each
// entry's own header (the directory's sizes and depths are often wrong, and a cursor's
// directory holds its hot spot where an icon's holds planes and depth). Entries are DIBs,
// whose colour rows are followed by a 1-bit AND mask, or complete PNG files, which go
// through the PNG component. The frame is always Bgra32.
//
// Entries that point outside the file or whose header is unreadable are skipped; an entry
// cut by the end of the file still counts, its missing pixels transparent.
#include <algorithm>
#include <array>
#include <new>

#include "platform/checked.h"
#include "platform/imaging/codecs/bgra_rows_internal.h"
#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/dib_frame_internal.h"
#include "platform/imaging/codecs/little_endian_internal.h"

namespace orvanta::imaging::codecs {

namespace {

constexpr std::size_t kDirectoryHeaderSize = 6;
constexpr std::size_t kEntrySize = 16;
constexpr std::array<std::uint8_t, 8> kPngSignature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// Rows of a PNG entry converted per pull, to bound the scratch buffer.
constexpr std::size_t kBandBytes = std::size_t{1} << 20;

std::uint32_t LoadBe32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return (std::uint32_t{bytes[offset]} << 24) | (std::uint32_t{bytes[offset + 1]} << 16) |
           (std::uint32_t{bytes[offset + 2]} << 8) | bytes[offset + 3];
}

bool MatchesIco(std::span<const std::uint8_t> head) {
    if (head.size() < kDirectoryHeaderSize || LoadLe16(head, 0) != 0) {
        return false;
    }
    const std::uint16_t type = LoadLe16(head, 2);
    const std::uint16_t count = LoadLe16(head, 4);
    if ((type != 1 && type != 2) || count == 0) {
        return false;
    }
    // The first entry, when the head reaches it: a reserved byte of 0 (255 from a few
    // writers), and an image that does not overlap the directory.
    if (head.size() > 9 && head[9] != 0 && head[9] != 255) {
        return false;
    }
    if (head.size() >= kDirectoryHeaderSize + kEntrySize) {
        const std::uint32_t size = LoadLe32(head, 14);
        const std::uint32_t offset = LoadLe32(head, 18);
        return size != 0 && offset >= kDirectoryHeaderSize + kEntrySize * count;
    }
    return true;
}

struct Entry {
    std::span<const std::uint8_t> bytes;  // the entry, cut at the end of the file
    bool png = false;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t bits = 0;
    DibHeader dib;
};

// Bits per pixel of a PNG from its colour type and sample depth.
std::uint32_t PngBits(std::uint8_t colorType, std::uint8_t depth) {
    switch (colorType) {
        case 2:
            return depth * 3u;
        case 4:
            return depth * 2u;
        case 6:
            return depth * 4u;
        default:
            return depth;  // gray, palette
    }
}

std::optional<Entry> ReadEntry(std::span<const std::uint8_t> file, std::size_t record) {
    const std::uint32_t size = LoadLe32(file, record + 8);
    const std::uint32_t offset = LoadLe32(file, record + 12);
    if (size == 0 || offset >= file.size()) {
        return std::nullopt;
    }
    Entry entry;
    entry.bytes = file.subspan(offset, std::min<std::size_t>(size, file.size() - offset));
    const auto bytes = entry.bytes;
    if (bytes.size() >= kPngSignature.size() &&
        std::equal(kPngSignature.begin(), kPngSignature.end(), bytes.begin())) {
        // The IHDR chunk must come first.
        if (bytes.size() < 33 || LoadBe32(bytes, 8) != 13 || bytes[12] != 'I' || bytes[13] != 'H' ||
            bytes[14] != 'D' || bytes[15] != 'R') {
            return std::nullopt;
        }
        entry.png = true;
        entry.width = LoadBe32(bytes, 16);
        entry.height = LoadBe32(bytes, 20);
        entry.bits = PngBits(bytes[25], bytes[24]);
        if (!AcceptableSize({entry.width, entry.height})) {
            return std::nullopt;
        }
        return entry;
    }
    if (ReadDibHeader(bytes, 0, std::nullopt, entry.dib).Failed()) {
        return std::nullopt;
    }
    // The header's height counts the colour rows and the mask rows.
    entry.dib.height /= 2;
    if (entry.dib.height == 0) {
        return std::nullopt;
    }
    if (entry.dib.bitCount == 32 && entry.dib.compression == DibCompression::None) {
        entry.dib.masks[3] = 0xFF000000u;  // an icon's fourth byte is alpha
    }
    entry.width = entry.dib.width;
    entry.height = entry.dib.height;
    entry.bits = entry.dib.bitCount;
    return entry;
}

bool Better(const Entry& a, const Entry& b) {
    const std::uint64_t pixelsA = std::uint64_t{a.width} * a.height;
    const std::uint64_t pixelsB = std::uint64_t{b.width} * b.height;
    return pixelsA != pixelsB ? pixelsA > pixelsB : a.bits > b.bits;
}

// A PNG entry: pulls rows from the PNG component's frame and converts them to Bgra32.
class PngEntryFrame final : public BitmapFrame {
public:
    PngEntryFrame(std::shared_ptr<const FileBytes> file, std::unique_ptr<Decoder> decoder,
                  std::unique_ptr<BitmapFrame> inner)
        : BitmapFrame(inner->Size(), PixelFormat::Bgra32, inner->GetAccess()),
          file_(std::move(file)),
          decoder_(std::move(decoder)),
          inner_(std::move(inner)) {}

    FrameMetadataBlocks Metadata() const override { return inner_->Metadata(); }
    const FileBytes& File() const override { return *file_; }

private:
    Result DoCopyPixels(const PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        const PixelFormat format = inner_->Format();
        if (format == PixelFormat::Bgra32) {
            return inner_->CopyPixels(rect, stride, out);
        }
        const std::size_t rowBytes = inner_->RowBytes(static_cast<std::uint32_t>(rect.width));
        const auto band = static_cast<std::int32_t>(std::clamp<std::size_t>(
            kBandBytes / rowBytes, 1, static_cast<std::size_t>(rect.height)));
        try {
            scratch_.resize(rowBytes * static_cast<std::size_t>(band));
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        Result worst = S_OK;
        for (std::int32_t y = 0; y < rect.height; y += band) {
            const std::int32_t rows = std::min(band, rect.height - y);
            const Result result =
                inner_->CopyPixels({rect.x, rect.y + y, rect.width, rows}, rowBytes,
                                   std::as_writable_bytes(std::span(scratch_)));
            if (result.Failed()) {
                return result;
            }
            if (result != S_OK) {
                worst = result;
            }
            for (std::int32_t i = 0; i < rows; ++i) {
                auto* dst = reinterpret_cast<std::uint8_t*>(out.data()) +
                            stride * static_cast<std::size_t>(y + i);
                ConvertRowToBgra32(format, inner_->Palette(),
                                   scratch_.data() + rowBytes * static_cast<std::size_t>(i),
                                   static_cast<std::uint32_t>(rect.width), dst);
            }
        }
        return worst;
    }

    std::shared_ptr<const FileBytes> file_;
    std::unique_ptr<Decoder> decoder_;  // outlives the frame it made
    std::unique_ptr<BitmapFrame> inner_;
    std::vector<std::uint8_t> scratch_;
};

class IcoDecoder final : public Decoder {
public:
    IcoDecoder(std::shared_ptr<const FileBytes> bytes, Entry entry)
        : bytes_(std::move(bytes)), entry_(std::move(entry)) {}

    Guid Container() const override { return container::Ico; }
    std::uint32_t FrameCount() const override { return 1; }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        try {
            if (!entry_.png) {
                frame = std::make_unique<DibFrame>(bytes_, entry_.bytes, entry_.dib,
                                                   PixelFormat::Bgra32, true);
                return S_OK;
            }
            return GetPngFrame(frame);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

private:
    Result GetPngFrame(std::unique_ptr<BitmapFrame>& frame) {
        const DecoderInfo* png = ComponentList::Instance().Find(container::Png, vendor::Microsoft);
        if (png == nullptr) {
            return E_UNSUPPORTED_TYPE;
        }
        std::unique_ptr<Decoder> decoder;
        Result result =
            png->create(FileBytes::FromMemory({entry_.bytes.begin(), entry_.bytes.end()}), decoder);
        if (result.Failed()) {
            return result;
        }
        std::unique_ptr<BitmapFrame> inner;
        result = decoder->GetFrame(0, inner);
        if (result.Failed()) {
            return result;
        }
        if (inner->Size() != PixelSize{entry_.width, entry_.height}) {
            return E_FAIL;
        }
        if (!CanConvertToBgra32(inner->Format())) {
            return E_UNSUPPORTED_TYPE;
        }
        frame = std::make_unique<PngEntryFrame>(bytes_, std::move(decoder), std::move(inner));
        return S_OK;
    }

    std::shared_ptr<const FileBytes> bytes_;
    Entry entry_;
};

Result CreateIco(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    const auto file = bytes->Bytes();
    if (!MatchesIco(file.first(std::min<std::size_t>(file.size(), kDirectoryHeaderSize)))) {
        return E_FAIL;
    }
    const bool havePng =
        ComponentList::Instance().Find(container::Png, vendor::Microsoft) != nullptr;
    // Entries past the end of a cut directory are ignored.
    const std::size_t count =
        std::min<std::size_t>(LoadLe16(file, 4), (file.size() - kDirectoryHeaderSize) / kEntrySize);
    try {
        std::optional<Entry> best;
        bool skippedPng = false;
        for (std::size_t i = 0; i < count; ++i) {
            std::optional<Entry> entry = ReadEntry(file, kDirectoryHeaderSize + i * kEntrySize);
            if (!entry) {
                continue;
            }
            if (entry->png && !havePng) {
                skippedPng = true;
                continue;
            }
            if (!best || Better(*entry, *best)) {
                best = std::move(entry);
            }
        }
        if (!best) {
            return skippedPng ? E_UNSUPPORTED_TYPE : E_FAIL;
        }
        decoder = std::make_unique<IcoDecoder>(std::move(bytes), std::move(*best));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

}  // namespace

// ".cur" is left out on purpose: the supported-pattern list adds it for this container.
DecoderInfo IcoDecoderInfo() {
    return DecoderInfo{container::Ico, vendor::Microsoft, "ICO Decoder",
                       ".ico,.icon",   MatchesIco,        CreateIco};
}

}  // namespace orvanta::imaging::codecs

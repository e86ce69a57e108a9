// BMP files ("BM", a 14-byte file header, then a DIB) and clipboard DIBs (the DIB alone, as
// the .dib files that programs save from the clipboard). One frame, served straight from
// the file's bytes; see dib_frame_internal.h for the handling of truncated data.
#include <new>

#include "platform/imaging/codecs/codecs.h"
#include "platform/imaging/codecs/dib_frame_internal.h"
#include "platform/imaging/codecs/little_endian_internal.h"

namespace orvanta::imaging::codecs {

namespace {

constexpr std::size_t kFileHeaderSize = 14;

bool StartsWithBm(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= 2 && bytes[0] == 'B' && bytes[1] == 'M';
}

bool MatchesBmp(std::span<const std::uint8_t> head) {
    if (StartsWithBm(head)) {
        if (head.size() < kFileHeaderSize + 4) {
            return true;
        }
        const std::uint32_t headerSize = LoadLe32(head, kFileHeaderSize);
        return headerSize == 12 || (headerSize >= 16 && headerSize <= 64) ||
               (headerSize >= 108 && headerSize <= 4096);
    }
    return LooksLikeDibHeader(head);
}

class BmpDecoder final : public Decoder {
public:
    BmpDecoder(std::shared_ptr<const FileBytes> bytes, DibHeader header, PixelFormat format)
        : bytes_(std::move(bytes)), header_(std::move(header)), format_(format) {}

    Guid Container() const override { return container::Bmp; }
    std::uint32_t FrameCount() const override { return 1; }

    Result GetFrame(std::uint32_t index, std::unique_ptr<BitmapFrame>& frame) override {
        frame.reset();
        if (index != 0) {
            return E_INVALIDARG;
        }
        try {
            frame = std::make_unique<DibFrame>(bytes_, bytes_->Bytes(), header_, format_, false);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }

private:
    std::shared_ptr<const FileBytes> bytes_;
    DibHeader header_;
    PixelFormat format_;
};

Result CreateBmp(std::shared_ptr<const FileBytes> bytes, std::unique_ptr<Decoder>& decoder) {
    decoder.reset();
    if (!bytes) {
        return E_INVALIDARG;
    }
    const auto data = bytes->Bytes();
    DibHeader header;
    Result result = S_OK;
    try {
        if (StartsWithBm(data)) {
            if (data.size() < kFileHeaderSize) {
                return E_FAIL;
            }
            result = ReadDibHeader(data, kFileHeaderSize, LoadLe32(data, 10), header);
        } else {
            result = ReadDibHeader(data, 0, std::nullopt, header);
        }
        if (result.Failed()) {
            return result;
        }
        PixelFormat format = NaturalDibFormat(header);
        // Indexes cannot show the missing rows of a cut file as transparent.
        if (Info(format).indexed && !DibPixelsComplete(header, data.size(), false)) {
            format = PixelFormat::Bgra32;
        }
        decoder = std::make_unique<BmpDecoder>(std::move(bytes), std::move(header), format);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

}  // namespace

DecoderInfo BmpDecoderInfo() {
    return DecoderInfo{container::Bmp,   vendor::Microsoft, "BMP Decoder",
                       ".bmp,.dib,.rle", MatchesBmp,        CreateBmp};
}

}  // namespace orvanta::imaging::codecs

#include <gtest/gtest.h>

#if ORVANTA_HAVE_GIF

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gif_lib.h>

#include "platform/imaging/codecs/codecs.h"
#include "support/temp_folder.h"

namespace orvanta::imaging::codecs {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct FramePlan {
    int left;
    int top;
    int width;
    int height;
    int disposal;
    int transparent;
    Bytes pixels;  // colour indexes, rows top to bottom
    bool interlaced = false;
};

int Write(GifFileType* gif, const GifByteType* data, int length) {
    auto* out = static_cast<Bytes*>(gif->UserData);
    out->insert(out->end(), data, data + length);
    return length;
}

// Writes with giflib's encoder: a global colour table and one graphics control extension
// per frame. Interlaced frames are handed over in their storage order.
Bytes EncodeGif(int width, int height, std::vector<GifColorType> colors,
                const std::vector<FramePlan>& frames) {
    Bytes out;
    int error = 0;
    GifFileType* gif = EGifOpen(&out, Write, &error);
    EGifSetGifVersion(gif, true);
    ColorMapObject* map = GifMakeMapObject(static_cast<int>(colors.size()), colors.data());
    EXPECT_EQ(EGifPutScreenDesc(gif, width, height, 8, 0, map), GIF_OK);
    for (const FramePlan& frame : frames) {
        GraphicsControlBlock control{frame.disposal, false, 10, frame.transparent};
        GifByteType extension[4];
        const auto length = EGifGCBToExtension(&control, extension);
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension);
        EXPECT_EQ(EGifPutImageDesc(gif, frame.left, frame.top, frame.width, frame.height,
                                   frame.interlaced, nullptr),
                  GIF_OK);
        std::vector<int> order;
        if (frame.interlaced) {
            for (auto [start, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
                for (int row = start; row < frame.height; row += step) {
                    order.push_back(row);
                }
            }
        } else {
            for (int row = 0; row < frame.height; ++row) {
                order.push_back(row);
            }
        }
        for (int row : order) {
            Bytes line(frame.pixels.begin() + row * frame.width,
                       frame.pixels.begin() + (row + 1) * frame.width);
            EXPECT_EQ(EGifPutLine(gif, line.data(), frame.width), GIF_OK);
        }
    }
    EGifCloseFile(gif, &error);
    GifFreeMapObject(map);
    return out;
}

std::unique_ptr<Decoder> Open(const Bytes& gif, Result expected = S_OK) {
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(GifDecoderInfo().create(FileBytes::FromMemory(gif), decoder), expected);
    return decoder;
}

Bytes CopyFrame(Decoder& decoder, std::uint32_t index) {
    std::unique_ptr<BitmapFrame> frame;
    EXPECT_EQ(decoder.GetFrame(index, frame), S_OK);
    if (!frame) {
        return {};
    }
    EXPECT_EQ(frame->Format(), PixelFormat::Pbgra32);
    const std::size_t stride = frame->Size().width * 4;
    Bytes pixels(stride * frame->Size().height);
    EXPECT_EQ(frame->CopyAll(stride, std::as_writable_bytes(std::span(pixels))), S_OK);
    return pixels;
}

// Screen pixels as letters: R, G, B opaque, '.' transparent.
std::string Letters(const Bytes& pixels) {
    std::string text;
    for (std::size_t i = 0; i + 3 < pixels.size(); i += 4) {
        if (pixels[i + 3] == 0) {
            text += pixels[i] == 0 && pixels[i + 1] == 0 && pixels[i + 2] == 0 ? '.' : '?';
        } else if (pixels[i + 2] == 0xFF && pixels[i] == 0 && pixels[i + 1] == 0) {
            text += 'R';
        } else if (pixels[i + 1] == 0xFF && pixels[i] == 0 && pixels[i + 2] == 0) {
            text += 'G';
        } else if (pixels[i] == 0xFF && pixels[i + 1] == 0 && pixels[i + 2] == 0) {
            text += 'B';
        } else {
            text += '?';
        }
    }
    return text;
}

const std::vector<GifColorType> kColors = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 9, 9}};

// Four frames on a 4x2 screen, each disposal mode once, index 3 transparent.
Bytes DisposalAnimation() {
    return EncodeGif(4, 2, kColors,
                     {{0, 0, 4, 2, DISPOSE_DO_NOT, NO_TRANSPARENT_COLOR, Bytes(8, 0)},
                      {1, 0, 2, 2, DISPOSE_BACKGROUND, 3, {1, 3, 1, 1}},
                      {2, 1, 2, 1, DISPOSE_PREVIOUS, NO_TRANSPARENT_COLOR, {2, 2}},
                      {0, 0, 1, 1, DISPOSAL_UNSPECIFIED, 3, {1}}});
}

// The screen after each frame (rows joined): what the disposal rules make of them.
const std::vector<std::string> kExpected = {"RRRRRRRR", "RGRRRGGR", "R..RR.BB", "G..RR..R"};

class GifFrameOrder : public testing::TestWithParam<std::vector<std::uint32_t>> {};

TEST_P(GifFrameOrder, ComposesByDisposalRules) {
    auto decoder = Open(DisposalAnimation());
    ASSERT_TRUE(decoder);
    ASSERT_EQ(decoder->FrameCount(), 4u);
    for (std::uint32_t index : GetParam()) {
        EXPECT_EQ(Letters(CopyFrame(*decoder, index)), kExpected[index]) << "frame " << index;
    }
}

INSTANTIATE_TEST_SUITE_P(Gif, GifFrameOrder,
                         testing::Values(std::vector<std::uint32_t>{0, 1, 2, 3},
                                         std::vector<std::uint32_t>{3, 1, 2, 2, 0},
                                         std::vector<std::uint32_t>{2, 3, 0, 3}));

TEST(GifDecoder, PartialRectangles) {
    auto decoder = Open(DisposalAnimation());
    ASSERT_TRUE(decoder);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(2, frame), S_OK);
    Bytes part(12 + 8);
    ASSERT_EQ(frame->CopyPixels({2, 0, 2, 2}, 12, std::as_writable_bytes(std::span(part))), S_OK);
    EXPECT_EQ(Letters(Bytes(part.begin(), part.begin() + 8)), ".R");
    EXPECT_EQ(Letters(Bytes(part.begin() + 12, part.end())), "BB");
}

TEST(GifDecoder, InterlacedAndOffScreenFrames) {
    // 11 rows, each its own colour; a second frame hangs over the screen's right and bottom.
    Bytes rows;
    for (int row = 0; row < 11; ++row) {
        rows.insert(rows.end(), 3, static_cast<std::uint8_t>(row % 3));
    }
    const Bytes gif =
        EncodeGif(3, 11, kColors,
                  {{0, 0, 3, 11, DISPOSE_DO_NOT, NO_TRANSPARENT_COLOR, rows, true},
                   {2, 9, 4, 4, DISPOSE_DO_NOT, NO_TRANSPARENT_COLOR, Bytes(16, 2)},
                   {7, 0, 2, 2, DISPOSE_PREVIOUS, NO_TRANSPARENT_COLOR, Bytes(4, 0)},
                   {0, 20, 2, 2, DISPOSE_BACKGROUND, NO_TRANSPARENT_COLOR, Bytes(4, 0)},
                   {0, 0, 1, 1, DISPOSE_DO_NOT, 0, Bytes(1, 0)}});
    auto decoder = Open(gif);
    ASSERT_TRUE(decoder);
    std::string expected;
    for (int row = 0; row < 11; ++row) {
        expected += std::string(3, "RGB"[row % 3]);
    }
    EXPECT_EQ(Letters(CopyFrame(*decoder, 0)), expected);
    expected[9 * 3 + 2] = expected[10 * 3 + 2] = 'B';
    EXPECT_EQ(Letters(CopyFrame(*decoder, 1)), expected);
    // Frames wholly off the screen change nothing, drawn or disposed of.
    for (std::uint32_t frame = 2; frame < 5; ++frame) {
        EXPECT_EQ(Letters(CopyFrame(*decoder, frame)), expected) << frame;
    }
}

TEST(GifDecoder, XmpPacketOfFirstFrame) {
    Bytes gif = EncodeGif(2, 2, kColors, {{0, 0, 2, 2, 0, NO_TRANSPARENT_COLOR, Bytes(4, 1)}});
    // The packet is stored raw and followed by the magic trailer that makes its bytes read
    // as sub-blocks; put it after the global colour table.
    const std::string packet =
        "<?xpacket begin=\"\"?><x:xmpmeta>stars</x:xmpmeta><?xpacket end=\"w\"?>";
    Bytes extension = {0x21, 0xFF, 11};
    extension.insert(extension.end(), {'X', 'M', 'P', ' ', 'D', 'a', 't', 'a', 'X', 'M', 'P'});
    extension.insert(extension.end(), packet.begin(), packet.end());
    extension.push_back(0x01);
    for (int value = 0xFF; value >= 0; --value) {
        extension.push_back(static_cast<std::uint8_t>(value));
    }
    extension.push_back(0x00);
    gif.insert(gif.begin() + 13 + 3 * 4, extension.begin(), extension.end());
    auto decoder = Open(gif);
    ASSERT_TRUE(decoder);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    const auto xmp = frame->Metadata().xmp;
    EXPECT_EQ(std::string(xmp.begin(), xmp.end()), packet);
    EXPECT_EQ(Letters(CopyFrame(*decoder, 0)), "GGGG");
}

TEST(GifDecoder, TruncatedFilesFailOrShowWhatTheyHave) {
    const Bytes gif =
        EncodeGif(16, 16, kColors,
                  {{0, 0, 16, 16, DISPOSE_DO_NOT, NO_TRANSPARENT_COLOR, Bytes(256, 0)},
                   {4, 4, 8, 8, DISPOSE_BACKGROUND, 3, Bytes(64, 1)}});
    const std::size_t firstImage = 13 + 3 * 4 + 8;  // header, colours, control extension
    for (std::size_t length = 0; length < gif.size(); ++length) {
        const Bytes cut(gif.begin(), gif.begin() + length);
        std::unique_ptr<Decoder> decoder;
        const Result created = GifDecoderInfo().create(FileBytes::FromMemory(cut), decoder);
        if (length <= firstImage) {
            EXPECT_TRUE(created.Failed()) << length;
            continue;
        }
        if (created.Failed()) {
            // Descriptor and code size: 11 bytes.
            EXPECT_LE(length, firstImage + 10) << "a whole image descriptor was there";
            continue;
        }
        for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
            CopyFrame(*decoder, i);
        }
    }
}

TEST(GifDecoder, RefusesBadScreens) {
    Bytes gif = EncodeGif(2, 2, kColors, {{0, 0, 2, 2, 0, NO_TRANSPARENT_COLOR, Bytes(4, 1)}});
    Open(Bytes(gif.begin(), gif.begin() + 6), Result(0x88982F61u));
    Bytes huge = gif;
    huge[6] = huge[7] = huge[8] = huge[9] = 0xFF;  // 65535 x 65535
    Open(huge, Result(0x88982F51u));
    // A zero screen takes its size from the frames.
    Bytes zero = gif;
    zero[6] = zero[7] = zero[8] = zero[9] = 0;
    auto decoder = Open(zero);
    ASSERT_TRUE(decoder);
    EXPECT_EQ(Letters(CopyFrame(*decoder, 0)), "GGGG");
}

TEST(GifDecoder, RegistersAndMatchesContent) {
    const DecoderInfo info = GifDecoderInfo();
    EXPECT_EQ(info.name, "GIF Decoder");
    EXPECT_EQ(info.extensions, ".gif");
    EXPECT_EQ(info.container, container::Gif);
    EXPECT_TRUE(info.matches(Bytes{'G', 'I', 'F', '8', '7', 'a'}));
    EXPECT_TRUE(info.matches(Bytes{'G', 'I', 'F', '8', '9', 'a', 1}));
    EXPECT_FALSE(info.matches(Bytes{'G', 'I', 'F', '8', '8', 'a'}));
}

TEST(GifDecoder, DecodesEveryTestFile) {
    const auto folder = test::TestDataFolder();
    if (folder.empty() || !std::filesystem::exists(folder / "gif-multiframe")) {
        GTEST_SKIP() << "no test data";
    }
    const std::map<std::string, std::uint32_t> frames = {{"Sandberg-Modell_wikimedia.gif", 34},
                                                         {"cogs.gif", 5},
                                                         {"iss634.gif", 42},
                                                         {"pbar-ani-invalid-XMP.gif", 23},
                                                         {"hopper.gif", 1}};
    int files = 0;
    for (const char* sub : {"gif-multiframe", "formats/gif"}) {
        for (const auto& entry : std::filesystem::directory_iterator(folder / sub)) {
            SCOPED_TRACE(entry.path().string());
            std::shared_ptr<const FileBytes> bytes;
            ASSERT_EQ(FileBytes::Read(entry.path(), bytes), S_OK);
            std::unique_ptr<Decoder> decoder;
            ASSERT_EQ(GifDecoderInfo().create(bytes, decoder), S_OK);
            const auto expected = frames.find(entry.path().filename().string());
            if (expected != frames.end()) {
                EXPECT_EQ(decoder->FrameCount(), expected->second);
            }
            for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
                const Bytes pixels = CopyFrame(*decoder, i);
                ASSERT_FALSE(pixels.empty());
            }
            ++files;
        }
    }
    EXPECT_GT(files, 0);
}

TEST(GifDecoder, MalformedXmpStillDecodes) {
    const auto path = test::TestDataFolder() / "gif-multiframe/pbar-ani-invalid-XMP.gif";
    if (test::TestDataFolder().empty() || !std::filesystem::exists(path)) {
        GTEST_SKIP() << "no test data";
    }
    std::shared_ptr<const FileBytes> bytes;
    ASSERT_EQ(FileBytes::Read(path, bytes), S_OK);
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(GifDecoderInfo().create(bytes, decoder), S_OK);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    const auto xmp = frame->Metadata().xmp;
    const std::string text(xmp.begin(), xmp.end());
    EXPECT_TRUE(text.ends_with("<?xpacket end=\"w\"?>")) << text;
    std::unique_ptr<BitmapFrame> second;
    ASSERT_EQ(decoder->GetFrame(1, second), S_OK);
    EXPECT_TRUE(second->Metadata().xmp.empty());
}

}  // namespace
}  // namespace orvanta::imaging::codecs

#endif  // ORVANTA_HAVE_GIF

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <webp/encode.h>

#include "platform/imaging/codecs/codecs.h"
#include "support/temp_folder.h"

namespace orvanta::imaging::codecs {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kWidth = 40;
constexpr int kHeight = 30;

// R, G, B, A of the test pattern; alpha never 0 so lossless keeps every colour.
std::array<std::uint8_t, 4> Pattern(int x, int y) {
    return {static_cast<std::uint8_t>(x * 6), static_cast<std::uint8_t>(y * 8),
            static_cast<std::uint8_t>(128 + x - y), static_cast<std::uint8_t>(30 + x * 4 + y)};
}

Bytes PatternPixels(bool alpha) {
    Bytes pixels;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const auto p = Pattern(x, y);
            pixels.insert(pixels.end(), p.begin(), p.begin() + (alpha ? 4 : 3));
        }
    }
    return pixels;
}

Bytes Take(std::uint8_t* data, std::size_t size) {
    Bytes out(data, data + size);
    WebPFree(data);
    return out;
}

Bytes EncodeLossless(const Bytes& rgba, int width, int height) {
    std::uint8_t* out = nullptr;
    const std::size_t size = WebPEncodeLosslessRGBA(rgba.data(), width, height, width * 4, &out);
    return Take(out, size);
}

Bytes EncodeLossy() {
    std::uint8_t* out = nullptr;
    const Bytes rgb = PatternPixels(false);
    const std::size_t size = WebPEncodeRGB(rgb.data(), kWidth, kHeight, kWidth * 3, 95, &out);
    return Take(out, size);
}

void Put24(Bytes& out, std::uint32_t v) {
    for (int i = 0; i < 3; ++i) {
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    }
}

Bytes Chunk(const char* fourcc, const Bytes& payload) {
    Bytes out(fourcc, fourcc + 4);
    const auto size = static_cast<std::uint32_t>(payload.size());
    Put24(out, size);
    out.push_back(static_cast<std::uint8_t>(size >> 24));
    out.insert(out.end(), payload.begin(), payload.end());
    if (payload.size() % 2 != 0) {
        out.push_back(0);
    }
    return out;
}

Bytes Riff(const std::vector<Bytes>& chunks) {
    Bytes body = {'W', 'E', 'B', 'P'};
    for (const Bytes& chunk : chunks) {
        body.insert(body.end(), chunk.begin(), chunk.end());
    }
    Bytes out = {'R', 'I', 'F', 'F'};
    const auto size = static_cast<std::uint32_t>(body.size());
    Put24(out, size);
    out.push_back(static_cast<std::uint8_t>(size >> 24));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

// The image chunk ("VP8 " or "VP8L") of a simple-format file, header included.
Bytes ImageChunk(const Bytes& simple) {
    return Bytes(simple.begin() + 12, simple.end());
}

Bytes Vp8x(std::uint8_t flags, int width, int height) {
    Bytes payload = {flags, 0, 0, 0};
    Put24(payload, static_cast<std::uint32_t>(width - 1));
    Put24(payload, static_cast<std::uint32_t>(height - 1));
    return Chunk("VP8X", payload);
}

struct Solid {
    int x, y, width, height;
    std::array<std::uint8_t, 4> rgba;
};

// An animation of solid rectangles drawn without blending over a transparent canvas.
Bytes Animation(const std::vector<Solid>& frames, int canvasWidth = kWidth,
                int canvasHeight = kHeight) {
    std::vector<Bytes> chunks = {Vp8x(0x12, canvasWidth, canvasHeight),
                                 Chunk("ANIM", {0, 0, 0, 0, 0, 0})};
    for (const Solid& frame : frames) {
        Bytes rgba;
        for (int i = 0; i < frame.width * frame.height; ++i) {
            rgba.insert(rgba.end(), frame.rgba.begin(), frame.rgba.end());
        }
        Bytes payload;
        Put24(payload, static_cast<std::uint32_t>(frame.x / 2));
        Put24(payload, static_cast<std::uint32_t>(frame.y / 2));
        Put24(payload, static_cast<std::uint32_t>(frame.width - 1));
        Put24(payload, static_cast<std::uint32_t>(frame.height - 1));
        Put24(payload, 100);
        payload.push_back(0x02);  // no blending, no disposal
        const Bytes image = ImageChunk(EncodeLossless(rgba, frame.width, frame.height));
        payload.insert(payload.end(), image.begin(), image.end());
        chunks.push_back(Chunk("ANMF", payload));
    }
    return Riff(chunks);
}

std::unique_ptr<Decoder> Create(Bytes bytes) {
    std::unique_ptr<Decoder> decoder;
    EXPECT_EQ(WebpDecoderInfo().create(FileBytes::FromMemory(std::move(bytes)), decoder), S_OK);
    return decoder;
}

std::vector<std::byte> CopyAll(BitmapSource& source) {
    const std::size_t stride = source.RowBytes(source.Size().width);
    std::vector<std::byte> out(stride * source.Size().height);
    EXPECT_EQ(source.CopyAll(stride, out), S_OK);
    return out;
}

std::uint8_t At(const std::vector<std::byte>& pixels, std::size_t index) {
    return static_cast<std::uint8_t>(pixels[index]);
}

TEST(WebpDecoder, LossyStillIsOpaqueBgr) {
    const auto decoder = Create(EncodeLossy());
    ASSERT_EQ(decoder->FrameCount(), 1u);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    EXPECT_EQ(frame->Format(), PixelFormat::Bgr32);
    EXPECT_EQ(frame->Size(), (PixelSize{kWidth, kHeight}));
    const auto pixels = CopyAll(*frame);
    long error = 0;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const auto p = Pattern(x, y);
            const std::size_t i = (std::size_t(y) * kWidth + x) * 4;
            error += std::abs(At(pixels, i) - p[2]) + std::abs(At(pixels, i + 1) - p[1]) +
                     std::abs(At(pixels, i + 2) - p[0]);
        }
    }
    EXPECT_LT(error / (kWidth * kHeight * 3), 4);
}

struct VariantCase {
    const char* name;
    PixelFormat format;
    int order[4];  // output byte i holds pattern channel order[i] (R, G, B, A); -1: none
    bool premultiplied;
};

class WebpVariants : public testing::TestWithParam<VariantCase> {};

TEST_P(WebpVariants, LosslessWithAlphaDecodesExactly) {
    const VariantCase& variant = GetParam();
    const auto decoder = Create(EncodeLossless(PatternPixels(true), kWidth, kHeight));
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    ASSERT_EQ(frame->Format(), PixelFormat::Bgra32);
    std::unique_ptr<BitmapSource> owned;
    BitmapSource* source = frame.get();
    if (variant.format != PixelFormat::Bgra32) {
        owned = frame->CreateVariant({}, variant.format);
        ASSERT_NE(owned, nullptr);
        source = owned.get();
    }
    ASSERT_EQ(source->Format(), variant.format);
    const std::size_t pixel = BitsPerPixel(variant.format) / 8;
    // A part first (decoded once into the frame), then the whole.
    const PixelRect part{7, 5, 20, 11};
    const std::size_t stride = pixel * part.width;
    std::vector<std::byte> partPixels(stride * part.height);
    ASSERT_EQ(source->CopyPixels(part, stride, partPixels), S_OK);
    const auto pixels = CopyAll(*source);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const auto p = Pattern(x, y);
            for (std::size_t c = 0; c < pixel; ++c) {
                if (variant.order[c] < 0) {
                    continue;
                }
                int want = p[variant.order[c]];
                if (variant.premultiplied && variant.order[c] < 3) {
                    want = (want * p[3] + 127) / 255;
                }
                const int got = At(pixels, (std::size_t(y) * kWidth + x) * pixel + c);
                ASSERT_LE(std::abs(got - want), variant.premultiplied ? 1 : 0)
                    << variant.name << " at " << x << "," << y << " byte " << c;
                if (x >= part.x && x < part.x + part.width && y >= part.y &&
                    y < part.y + part.height) {
                    ASSERT_EQ(At(partPixels, (y - part.y) * stride + (x - part.x) * pixel + c),
                              got);
                }
            }
        }
    }
}

const VariantCase kVariants[] = {
    {"Bgra32", PixelFormat::Bgra32, {2, 1, 0, 3}, false},
    {"Rgba32", PixelFormat::Rgba32, {0, 1, 2, 3}, false},
    {"Pbgra32", PixelFormat::Pbgra32, {2, 1, 0, 3}, true},
    {"Rgb24", PixelFormat::Rgb24, {0, 1, 2, -1}, false},
    {"Bgr24", PixelFormat::Bgr24, {2, 1, 0, -1}, false},
};

INSTANTIATE_TEST_SUITE_P(Webp, WebpVariants, testing::ValuesIn(kVariants),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(WebpDecoder, ScaledVariantKeepsTheAspectRatio) {
    const auto decoder = Create(EncodeLossy());
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    const auto scaled = frame->CreateVariant({10, 10}, PixelFormat::Unknown);
    ASSERT_NE(scaled, nullptr);
    EXPECT_EQ(scaled->Size(), (PixelSize{14, 10}));
    EXPECT_EQ(scaled->Format(), PixelFormat::Bgr32);
    CopyAll(*scaled);
    EXPECT_EQ(frame->CreateVariant({100, 100}, PixelFormat::Unknown), nullptr);
    EXPECT_EQ(frame->CreateVariant({}, PixelFormat::Gray8), nullptr);
}

const std::vector<Solid> kFrames = {
    {0, 0, kWidth, kHeight, {200, 0, 0, 255}},
    {4, 6, 10, 8, {0, 0, 200, 255}},
    {10, 2, 6, 4, {0, 180, 0, 128}},
};

// B, G, R, A of the composited canvas after `frames` frames.
std::array<std::uint8_t, 4> Composited(std::size_t frames, int x, int y) {
    std::array<std::uint8_t, 4> bgra{};
    for (std::size_t i = 0; i < frames; ++i) {
        const Solid& f = kFrames[i];
        if (x >= f.x && x < f.x + f.width && y >= f.y && y < f.y + f.height) {
            bgra = {f.rgba[2], f.rgba[1], f.rgba[0], f.rgba[3]};
        }
    }
    return bgra;
}

TEST(WebpDecoder, AnimationFramesAreComposited) {
    const auto decoder = Create(Animation(kFrames));
    ASSERT_EQ(decoder->FrameCount(), 3u);
    // Out of order: the shared cursor restarts when asked for a frame it has passed.
    for (std::uint32_t index : {2u, 0u, 1u, 2u}) {
        std::unique_ptr<BitmapFrame> frame;
        ASSERT_EQ(decoder->GetFrame(index, frame), S_OK);
        ASSERT_EQ(frame->Format(), PixelFormat::Bgra32);
        ASSERT_EQ(frame->Size(), (PixelSize{kWidth, kHeight}));
        const auto pixels = CopyAll(*frame);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const auto want = Composited(index + 1, x, y);
                for (int c = 0; c < 4; ++c) {
                    ASSERT_EQ(At(pixels, (std::size_t(y) * kWidth + x) * 4 + c), want[c])
                        << "frame " << index << " at " << x << "," << y;
                }
            }
        }
    }
    std::unique_ptr<BitmapFrame> frame;
    EXPECT_EQ(decoder->GetFrame(3, frame), E_INVALIDARG);
}

TEST(WebpDecoder, SmallAnimationClaimingAHugeCanvasIsRefused) {
    // The animation decoder would allocate the whole canvas on the first copy.
    for (const auto& [width, height] : {std::pair{20000, 20000}, std::pair{6000, 4000}}) {
        std::unique_ptr<Decoder> decoder;
        EXPECT_EQ(WebpDecoderInfo().create(FileBytes::FromMemory(Animation(kFrames, width, height)),
                                           decoder),
                  E_OUTOFMEMORY)
            << width << " x " << height;
        EXPECT_FALSE(decoder);
    }
    // A canvas of 16 megapixels is accepted from any file.
    const auto decoder = Create(Animation(kFrames, 4096, 4096));
    ASSERT_TRUE(decoder);
    EXPECT_EQ(decoder->FrameCount(), 3u);
}

TEST(WebpDecoder, MetadataChunksPointIntoTheFile) {
    const Bytes exif = {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0};
    Bytes exifChunk = {'E', 'x', 'i', 'f', 0, 0};
    exifChunk.insert(exifChunk.end(), exif.begin(), exif.end());
    const std::string xmpText = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
    const Bytes xmp(xmpText.begin(), xmpText.end());
    const Bytes icc(132, 0x11);
    const Bytes image = ImageChunk(EncodeLossless(PatternPixels(true), kWidth, kHeight));
    const auto bytes = FileBytes::FromMemory(
        Riff({Vp8x(0x20 | 0x10 | 0x08 | 0x04, kWidth, kHeight), Chunk("ICCP", icc), image,
              Chunk("EXIF", exifChunk), Chunk("XMP ", xmp)}));
    std::unique_ptr<Decoder> decoder;
    ASSERT_EQ(WebpDecoderInfo().create(bytes, decoder), S_OK);
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    const FrameMetadataBlocks blocks = frame->Metadata();
    EXPECT_EQ(Bytes(blocks.exif.begin(), blocks.exif.end()), exif);
    EXPECT_EQ(Bytes(blocks.xmp.begin(), blocks.xmp.end()), xmp);
    EXPECT_EQ(Bytes(blocks.icc.begin(), blocks.icc.end()), icc);
    const auto file = bytes->Bytes();
    EXPECT_TRUE(blocks.xmp.data() >= file.data() && blocks.xmp.data() < file.data() + file.size());
    CopyAll(*frame);
}

TEST(WebpDecoder, EveryTruncationFailsCleanly) {
    for (const Bytes& whole : {EncodeLossy(), Animation(kFrames)}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            std::unique_ptr<Decoder> decoder;
            const auto bytes = FileBytes::FromMemory({whole.begin(), whole.begin() + length});
            ASSERT_TRUE(WebpDecoderInfo().create(bytes, decoder).Failed()) << length;
        }
    }
}

TEST(WebpDecoder, CorruptImageDataFailsOnCopy) {
    Bytes file = EncodeLossy();
    for (std::size_t i = 40; i < file.size(); i += 3) {
        file[i] = static_cast<std::uint8_t>(file[i] ^ 0x5A);
    }
    std::unique_ptr<Decoder> decoder;
    if (WebpDecoderInfo().create(FileBytes::FromMemory(file), decoder).Failed()) {
        return;  // the damage reached the frame header
    }
    std::unique_ptr<BitmapFrame> frame;
    ASSERT_EQ(decoder->GetFrame(0, frame), S_OK);
    std::vector<std::byte> out(frame->RowBytes(kWidth) * kHeight);
    // Lossy data has no checksum: what matters is a clean return either way.
    (void)frame->CopyAll(frame->RowBytes(kWidth), out);
}

TEST(WebpDecoder, RegistersByContentAndExtension) {
    const DecoderInfo info = WebpDecoderInfo();
    EXPECT_EQ(info.container, container::WebP);
    EXPECT_EQ(info.vendor, vendor::Orvanta);
    EXPECT_EQ(info.name, "WebP Decoder");
    EXPECT_EQ(info.extensions, ".webp");
    const Bytes lossy = EncodeLossy();
    EXPECT_TRUE(info.matches(lossy));
    Bytes wave = lossy;
    std::memcpy(wave.data() + 8, "WAVE", 4);
    EXPECT_FALSE(info.matches(wave));
    const DecoderInfo* found = ComponentList::Instance().FindByContent(lossy);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->container, container::WebP);
}

TEST(WebpDecoder, RealFilesDecode) {
    const auto folder = test::TestDataFolder() / "formats/webp";
    if (test::TestDataFolder().empty() || !std::filesystem::exists(folder)) {
        GTEST_SKIP() << "no test data";
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::shared_ptr<const FileBytes> bytes;
        ASSERT_EQ(FileBytes::Read(entry.path(), bytes), S_OK);
        std::unique_ptr<Decoder> decoder;
        ASSERT_EQ(WebpDecoderInfo().create(bytes, decoder), S_OK) << entry.path();
        const auto name = entry.path().filename().string();
        if (name.starts_with("Animation")) {
            EXPECT_GT(decoder->FrameCount(), 1u);
        }
        for (std::uint32_t i = 0; i < decoder->FrameCount(); ++i) {
            std::unique_ptr<BitmapFrame> frame;
            ASSERT_EQ(decoder->GetFrame(i, frame), S_OK);
            CopyAll(*frame);
            if (name.starts_with("Nikon") || name.starts_with("Pentax")) {
                EXPECT_GE(frame->Metadata().exif.size(), 8u) << name;
            }
            if (name.starts_with("Pentax")) {
                const auto xmp = frame->Metadata().xmp;
                EXPECT_NE(std::string(xmp.begin(), xmp.end()).find("xmp:Rating"),
                          std::string::npos);
            }
        }
    }
}

}  // namespace
}  // namespace orvanta::imaging::codecs

// orvanta-cli decode: one picture through the imaging component, as the decode workers
// open it (decoder by extension, then by content), into a display format.
#include <chrono>
#include <cstdio>

#include "cli/command.h"
#include "decode/open_decoder.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/pixel_buffer.h"
#include "platform/imaging/png_writer.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage =
    "decode FILE [-o OUT.png] [--frame N] [--preview] [--format pbgra|bgra|bgr24] [--json]";

int Fail(const std::string& file, Result result, bool json) {
    if (json) {
        std::printf("{\"file\":%s,\"result\":%s,\"reason\":%s}\n", JsonString(file).c_str(),
                    JsonString(result.Hex()).c_str(), JsonString(result.Reason()).c_str());
    }
    return Failure(file + ": " + result.Hex() + " " + result.Reason());
}

int Run(std::span<const std::string> args) {
    std::string file;
    std::string output;
    std::uint32_t frameIndex = 0;
    bool preview = false;
    bool json = false;
    imaging::PixelFormat format = imaging::PixelFormat::Pbgra32;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasNext = i + 1 < args.size();
        if (a == "--json") {
            json = true;
        } else if (a == "--preview") {
            preview = true;
        } else if (a == "-o" && hasNext) {
            output = args[++i];
        } else if (a == "--frame" && hasNext) {
            const std::string& n = args[++i];
            if (n.empty() || n.find_first_not_of("0123456789") != std::string::npos ||
                n.size() > 9) {
                return UsageError("--frame needs a frame number");
            }
            frameIndex = static_cast<std::uint32_t>(std::stoul(n));
        } else if (a == "--format" && hasNext) {
            const std::string& f = args[++i];
            if (f == "pbgra")
                format = imaging::PixelFormat::Pbgra32;
            else if (f == "bgra")
                format = imaging::PixelFormat::Bgra32;
            else if (f == "bgr24")
                format = imaging::PixelFormat::Bgr24;
            else
                return UsageError("unknown format '" + f + "' (pbgra, bgra or bgr24)");
        } else if (!a.empty() && a[0] == '-') {
            return UsageError("unknown option '" + a + "'");
        } else if (file.empty()) {
            file = a;
        } else {
            return UsageError("decode takes one file");
        }
    }
    if (file.empty()) {
        return UsageError("usage: orvanta-cli " + std::string(kUsage));
    }

    const auto start = std::chrono::steady_clock::now();
    decode::OpenedPicture picture;
    if (const Result opened = decode::OpenPicture(file, picture); opened.Failed()) {
        return Fail(file, opened, json);
    }
    const std::uint32_t frameCount = picture.decoder->FrameCount();
    std::unique_ptr<imaging::BitmapFrame> frame;
    Result result = S_OK;
    if (preview) {
        result = picture.decoder->GetPreview(frame);
        if (result == S_FALSE || (result.Succeeded() && !frame)) {
            return Failure(file + ": the file holds no embedded preview");
        }
    } else if (frameIndex >= frameCount) {
        return Fail(file, S_FALSE, json);
    } else {
        result = picture.decoder->GetFrame(frameIndex, frame);
    }
    if (result.Failed()) {
        return Fail(file, result, json);
    }
    const imaging::PixelSize size = frame->Size();
    const imaging::PixelFormat sourceFormat = frame->Format();
    auto source = imaging::Converted(std::move(frame), format);
    if (!source) {
        return Fail(file, HresultFromWin32(ERROR_UNSUPPORTED_TYPE), json);
    }
    imaging::PixelBuffer pixels;
    if (const Result made = imaging::PixelBuffer::Create(size, format, 0, pixels); made.Failed()) {
        return Fail(file, made, json);
    }
    const Result copied = source->CopyAll(pixels.Stride(), pixels.Bytes());
    if (copied.Failed()) {
        return Fail(file, copied, json);
    }
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (!output.empty()) {
        if (const Result written =
                imaging::WritePng(output, size, format, pixels.Stride(), pixels.Bytes());
            written.Failed()) {
            return Failure(output + ": " + written.Hex() + " " + written.Reason());
        }
    }
    const auto& sourceInfo = imaging::Info(sourceFormat);
    if (json) {
        std::printf(
            "{\"file\":%s,\"container\":%s,\"frameCount\":%u,\"frame\":%u,\"preview\":%s,"
            "\"width\":%u,\"height\":%u,\"sourcePixelFormat\":%s,\"sourceBitsPerPixel\":%u,"
            "\"outputPixelFormat\":%s,\"truncated\":%s,\"result\":%s,\"milliseconds\":%.1f}\n",
            JsonString(file).c_str(), JsonString(picture.container.ToString()).c_str(), frameCount,
            preview ? 0u : frameIndex, preview ? "true" : "false", size.width, size.height,
            JsonString(std::string(sourceInfo.name)).c_str(), sourceInfo.bitsPerPixel,
            JsonString(std::string(imaging::Info(format).name)).c_str(),
            copied == S_FALSE ? "true" : "false", JsonString(copied.Hex()).c_str(), ms);
    } else {
        std::printf("%s: %u x %u, %s (%u bits per pixel), %u frame%s, container %s%s, %.1f ms\n",
                    file.c_str(), size.width, size.height, std::string(sourceInfo.name).c_str(),
                    sourceInfo.bitsPerPixel, frameCount, frameCount == 1 ? "" : "s",
                    picture.container.ToString().c_str(), copied == S_FALSE ? ", cut short" : "",
                    ms);
    }
    return 0;
}

const CommandRegistrar registrar({"decode", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli

// orvanta-cli decode: one picture through the decode workers' own pipeline (decoder by
// extension, then by content; colour step, downscaling, output format, banded copy with the
// histogram, EXIF orientation), so -o writes exactly the pixels the viewer would draw.
// --preview instead decodes a file's embedded preview as it is, whatever its size.
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "cli/command.h"
#include "decode/decode_entry.h"
#include "decode/open_decoder.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/format_converter.h"
#include "platform/imaging/pixel_buffer.h"
#include "platform/imaging/png_writer.h"
#include "settings/settings.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage =
    "decode FILE [-o OUT.png] [--frame N] [--preview] [--format pbgra|bgra|bgr24] [--json]\n"
    "       [--icc] [--target-profile FILE|auto] [--monitor-profile FILE] [--downscale VALUE]\n"
    "       [--no-rotate] [--raw-preview] [--histogram]";

// The monitor's profile read from a file named on the command line.
class FileMonitorProfile final : public decode::MonitorProfileProvider {
public:
    explicit FileMonitorProfile(std::string path) : path_(std::move(path)) {}
    std::vector<std::uint8_t> MonitorProfile() const override {
        if (path_.empty()) {
            return {};
        }
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::string path_;
};

// A DownscaleLargeImages value: decimal, or hexadecimal after "0x".
bool ParseSetting(const std::string& text, std::uint32_t& value) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.size() > (hex ? 8u : 10u) ||
        digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") !=
            std::string::npos) {
        return false;
    }
    const unsigned long long parsed = std::stoull(digits, nullptr, hex ? 16 : 10);
    if (parsed > 0xFFFFFFFFull) {
        return false;
    }
    value = static_cast<std::uint32_t>(parsed);
    return true;
}

void PrintBins(const char* name, const std::array<std::uint32_t, 256>& bins, bool json) {
    std::printf(json ? "\"%s\":[" : "%s:", name);
    for (std::size_t i = 0; i < bins.size(); ++i) {
        std::printf(json ? "%s%u" : "%s%u", json ? (i == 0 ? "" : ",") : " ", bins[i]);
    }
    std::printf(json ? "]," : "\n");
}

void PrintHistogram(const metadata::PictureMetadata& record, bool json) {
    const auto& h = record.histogram;
    if (json) {
        std::printf(",\"histogram\":{");
        if ((record.validFields & metadata::ValidField::kHistogram) == 0) {
            std::printf("\"valid\":false}");
            return;
        }
        std::printf("\"valid\":true,");
        PrintBins("red", h.red, true);
        PrintBins("green", h.green, true);
        PrintBins("blue", h.blue, true);
        std::printf("\"maxima\":[%u,%u,%u]}", h.maxima[0], h.maxima[1], h.maxima[2]);
        return;
    }
    if ((record.validFields & metadata::ValidField::kHistogram) == 0) {
        std::printf("histogram: none (the output format is not counted)\n");
        return;
    }
    PrintBins("red", h.red, false);
    PrintBins("green", h.green, false);
    PrintBins("blue", h.blue, false);
    std::printf("maxima: %u %u %u\n", h.maxima[0], h.maxima[1], h.maxima[2]);
}

int Fail(const std::string& file, Result result, bool json) {
    if (json) {
        std::printf("{\"file\":%s,\"result\":%s,\"reason\":%s}\n", JsonString(file).c_str(),
                    JsonString(result.Hex()).c_str(), JsonString(result.Reason()).c_str());
    }
    return Failure(file + ": " + result.Hex() + " " + result.Reason());
}

struct Request {
    std::string file;
    std::string output;
    std::uint32_t frameIndex = 0;
    bool preview = false;
    bool json = false;
    bool histogram = false;
    std::string monitorProfile;
    decode::DecodeOptions options;
};

// The embedded preview as it is stored, through the display format only.
int RunPreview(const Request& request) {
    const std::string& file = request.file;
    const bool json = request.json;
    const imaging::PixelFormat format = request.options.outputFormat;
    const auto start = std::chrono::steady_clock::now();
    decode::OpenedPicture picture;
    if (const Result opened = decode::OpenPicture(file, picture); opened.Failed()) {
        return Fail(file, opened, json);
    }
    const std::uint32_t frameCount = picture.decoder->FrameCount();
    std::unique_ptr<imaging::BitmapFrame> frame;
    const Result result = picture.decoder->GetPreview(frame);
    if (result == S_FALSE || (result.Succeeded() && !frame)) {
        return Failure(file + ": the file holds no embedded preview");
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
    if (!request.output.empty()) {
        if (const Result written =
                imaging::WritePng(request.output, size, format, pixels.Stride(), pixels.Bytes());
            written.Failed()) {
            return Failure(request.output + ": " + written.Hex() + " " + written.Reason());
        }
    }
    const auto& sourceInfo = imaging::Info(sourceFormat);
    if (json) {
        std::printf(
            "{\"file\":%s,\"container\":%s,\"frameCount\":%u,\"frame\":0,\"preview\":true,"
            "\"width\":%u,\"height\":%u,\"sourcePixelFormat\":%s,\"sourceBitsPerPixel\":%u,"
            "\"outputPixelFormat\":%s,\"truncated\":%s,\"result\":%s,\"milliseconds\":%.1f}\n",
            JsonString(file).c_str(), JsonString(picture.container.ToString()).c_str(), frameCount,
            size.width, size.height, JsonString(std::string(sourceInfo.name)).c_str(),
            sourceInfo.bitsPerPixel, JsonString(std::string(imaging::Info(format).name)).c_str(),
            copied == S_FALSE ? "true" : "false", JsonString(copied.Hex()).c_str(), ms);
    } else {
        std::printf("%s: preview %u x %u, %s (%u bits per pixel), container %s%s, %.1f ms\n",
                    file.c_str(), size.width, size.height, std::string(sourceInfo.name).c_str(),
                    sourceInfo.bitsPerPixel, picture.container.ToString().c_str(),
                    copied == S_FALSE ? ", cut short" : "", ms);
    }
    return 0;
}

int RunPipeline(const Request& request) {
    const std::string& file = request.file;
    const bool json = request.json;
    const FileMonitorProfile monitor(request.monitorProfile);
    decode::DecodeOptions options = request.options;
    options.colour.monitor = &monitor;

    const auto start = std::chrono::steady_clock::now();
    const std::atomic<std::uint32_t> abortFlag{0};
    decode::DecodedPicture picture;
    metadata::PictureMetadata record;
    decode::DecodeReport report;
    const Result result =
        decode::DecodePicture(file, static_cast<std::uint16_t>(request.frameIndex), options,
                              abortFlag, picture, record, &report);
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (result != S_OK) {
        return Fail(file, result, json);
    }
    if (!request.output.empty()) {
        const auto& pixels = picture.pixels;
        if (const Result written = imaging::WritePng(request.output, pixels.Size(), pixels.Format(),
                                                     pixels.Stride(), pixels.Bytes());
            written.Failed()) {
            return Failure(request.output + ": " + written.Hex() + " " + written.Reason());
        }
    }
    const auto& sourceInfo = imaging::Info(picture.sourcePixelFormat);
    const auto& outputInfo = imaging::Info(options.outputFormat);
    if (json) {
        std::printf(
            "{\"file\":%s,\"container\":%s,\"frameCount\":%u,\"frame\":%u,\"preview\":%s,"
            "\"width\":%u,\"height\":%u,\"sourcePixelFormat\":%s,\"sourceBitsPerPixel\":%u,"
            "\"outputPixelFormat\":%s,\"truncated\":%s,\"decodedWidth\":%u,"
            "\"decodedHeight\":%u,\"rotated\":%s,\"downscaled\":%s,"
            "\"colourTransformed\":%s,\"profileDescription\":%s,\"result\":%s",
            JsonString(file).c_str(), JsonString(report.container.ToString()).c_str(),
            report.frameCount, request.frameIndex, report.fromPreview ? "true" : "false",
            record.width, record.height, JsonString(std::string(sourceInfo.name)).c_str(),
            picture.sourceBitsPerPixel, JsonString(std::string(outputInfo.name)).c_str(),
            report.truncated ? "true" : "false", picture.width, picture.height,
            picture.rotated ? "true" : "false", picture.downscaled ? "true" : "false",
            report.colourTransformed ? "true" : "false",
            JsonString(picture.profileDescription).c_str(), JsonString(result.Hex()).c_str());
        if (request.histogram) {
            PrintHistogram(record, true);
        }
        std::printf(",\"milliseconds\":%.1f}\n", ms);
        return 0;
    }
    std::printf(
        "%s: %u x %u, %s (%u bits per pixel), %u frame%s, container %s%s%s%s%s, "
        "shown %u x %u%s%s, %.1f ms\n",
        file.c_str(), record.width, record.height, std::string(sourceInfo.name).c_str(),
        picture.sourceBitsPerPixel, report.frameCount, report.frameCount == 1 ? "" : "s",
        report.container.ToString().c_str(), report.fromPreview ? ", from its preview" : "",
        report.truncated ? ", cut short" : "",
        picture.profileDescription.empty() ? "" : ", profile ", picture.profileDescription.c_str(),
        picture.width, picture.height, picture.rotated ? ", turned upright" : "",
        picture.downscaled ? ", downscaled" : "", ms);
    if (request.histogram) {
        PrintHistogram(record, false);
    }
    return 0;
}

int Run(std::span<const std::string> args) {
    Request request;
    decode::DecodeOptions& options = request.options;
    options.enableIcc = false;
    options.raw = false;
    options.warnOnInvalidProfile = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasNext = i + 1 < args.size();
        if (a == "--json") {
            request.json = true;
        } else if (a == "--preview") {
            request.preview = true;
        } else if (a == "--icc") {
            options.enableIcc = true;
        } else if (a == "--no-rotate") {
            options.autoRotate = false;
        } else if (a == "--raw-preview") {
            options.raw = true;
        } else if (a == "--histogram") {
            request.histogram = true;
        } else if (a == "-o" && hasNext) {
            request.output = args[++i];
        } else if (a == "--target-profile" && hasNext) {
            const std::string& target = args[++i];
            options.colour.targetProfile =
                target == "auto" ? std::string(settings::kAutomaticProfile) : target;
        } else if (a == "--monitor-profile" && hasNext) {
            request.monitorProfile = args[++i];
        } else if (a == "--downscale" && hasNext) {
            if (!ParseSetting(args[++i], options.downscale)) {
                return UsageError("--downscale needs a number (decimal or 0x hexadecimal)");
            }
        } else if (a == "--frame" && hasNext) {
            const std::string& n = args[++i];
            if (n.empty() || n.find_first_not_of("0123456789") != std::string::npos ||
                n.size() > 5 || std::stoul(n) > 0xFFFF) {
                return UsageError("--frame needs a frame number");
            }
            request.frameIndex = static_cast<std::uint32_t>(std::stoul(n));
        } else if (a == "--format" && hasNext) {
            const std::string& f = args[++i];
            if (f == "pbgra")
                options.outputFormat = imaging::PixelFormat::Pbgra32;
            else if (f == "bgra")
                options.outputFormat = imaging::PixelFormat::Bgra32;
            else if (f == "bgr24")
                options.outputFormat = imaging::PixelFormat::Bgr24;
            else
                return UsageError("unknown format '" + f + "' (pbgra, bgra or bgr24)");
        } else if (!a.empty() && a[0] == '-') {
            return UsageError("unknown option '" + a + "'");
        } else if (request.file.empty()) {
            request.file = a;
        } else {
            return UsageError("decode takes one file");
        }
    }
    if (request.file.empty()) {
        return UsageError("usage: orvanta-cli " + std::string(kUsage));
    }
    return request.preview ? RunPreview(request) : RunPipeline(request);
}

const CommandRegistrar registrar({"decode", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli

// orvanta-cli info: the metadata record of each picture as the decode worker fills it,
// the sort date, and optionally what the maker-note readers find.
#include <charconv>
#include <cstdio>
#include <optional>

#include "cli/command.h"
#include "decode/open_decoder.h"
#include "list/supported_formats.h"
#include "metadata/date_taken.h"
#include "metadata/maker_notes.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/metadata_query_reader.h"
#include "settings/settings.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage = "info [--json] [--frame N] [--makernote] FILE...";

using metadata::PictureMetadata;
using metadata::ValidField;

struct Options {
    bool json = false;
    bool makerNote = false;
    std::uint32_t frame = 0;
    std::vector<std::string> files;
};

std::string Number(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

// The record's fields that hold a value, as (name, JSON literal) pairs, in record order.
std::vector<std::pair<std::string, std::string>> Fields(const PictureMetadata& r) {
    std::vector<std::pair<std::string, std::string>> fields;
    const auto has = [&](std::uint32_t bit) { return (r.validFields & bit) != 0; };
    const auto add = [&](std::string name, std::string value) {
        fields.emplace_back(std::move(name), std::move(value));
    };
    if (has(ValidField::kDateTaken)) {
        add("dateTaken", JsonString(imaging::FormatIso8601(r.dateTaken)));
    }
    if (has(ValidField::kExposureBias)) {
        add("exposureBias", Number(r.exposureBias));
    }
    if (has(ValidField::kExposureTime)) {
        add("exposureTime", Number(r.exposureTime));
        add("exposureTimeNumerator", std::to_string(r.exposureTimeNumerator));
        add("exposureTimeDenominator", std::to_string(r.exposureTimeDenominator));
    }
    if (has(ValidField::kFlash)) {
        add("flash", std::to_string(r.flash));
    }
    if (has(ValidField::kFNumber)) {
        add("fNumber", Number(r.fNumber));
    }
    if (has(ValidField::kFocalLength)) {
        add("focalLength", Number(r.focalLength));
    }
    if (has(ValidField::kFocalLengthIn35mm)) {
        add("focalLengthIn35mm", std::to_string(r.focalLengthIn35mm));
    }
    if (has(ValidField::kIsoSpeed)) {
        add("isoSpeed", std::to_string(r.isoSpeed));
    }
    if (has(ValidField::kMeteringMode)) {
        add("meteringMode", std::to_string(r.meteringMode));
    }
    if (has(ValidField::kOrientation)) {
        add("orientation", std::to_string(r.orientation));
    }
    if (has(ValidField::kProgramMode)) {
        add("programMode", std::to_string(r.programMode));
    }
    if (has(ValidField::kSubjectDistance)) {
        add("subjectDistance", Number(r.subjectDistance));
    }
    if (has(ValidField::kWhiteBalance)) {
        add("whiteBalance", std::to_string(r.whiteBalance));
    }
    if (has(ValidField::kLightSource)) {
        add("lightSource", std::to_string(r.lightSource));
    }
    if (has(ValidField::kColourProfileName)) {
        add("colorProfileName", JsonString(r.colourProfileName));
    }
    if (r.width != 0 && r.height != 0) {
        add("width", std::to_string(r.width));
        add("height", std::to_string(r.height));
    }
    if (has(ValidField::kMarks)) {
        add("ratingPercent", std::to_string(r.ratingPercent));
        add("rating", std::to_string(r.rating));
        add("label", std::to_string(r.label));
        add("urgency", std::to_string(r.urgency));
    }
    if (has(ValidField::kCameraModel)) {
        add("cameraModel", JsonString(r.cameraModel));
    }
    if (has(ValidField::kLensModel)) {
        add("lensModel", JsonString(r.lensModel));
    }
    if (has(ValidField::kComment)) {
        add("comment", JsonString(r.comment));
    }
    return fields;
}

std::string Reason(Result result) {
    if (result == E_FILE_NOT_FOUND || result == HresultFromWin32(ERROR_PATH_NOT_FOUND)) {
        return "file not found";
    }
    if (result == E_ACCESSDENIED) {
        return "access denied";
    }
    if (result == E_OUTOFMEMORY) {
        return "out of memory";
    }
    if (result == E_UNSUPPORTED_TYPE || result == imaging::WINCODEC_ERR_UNKNOWNIMAGEFORMAT) {
        return "not a picture format that is read here";
    }
    if (result == imaging::WINCODEC_ERR_BADMETADATAHEADER) {
        return "the file's metadata is damaged";
    }
    return "the file cannot be read";
}

// The container of a file no decoder took: by extension, else by its first bytes.
imaging::Guid GuessContainer(const std::filesystem::path& path,
                             std::span<const std::uint8_t> bytes) {
    list::ContainerChoice choice;
    if (list::LookUpContainer(path, choice)) {
        return choice.container;
    }
    if (bytes.size() >= 4) {
        if (bytes[0] == 0xFF && bytes[1] == 0xD8) {
            return imaging::container::Jpeg;
        }
        if ((bytes[0] == 'I' && bytes[1] == 'I' && bytes[2] == 42 && bytes[3] == 0) ||
            (bytes[0] == 'M' && bytes[1] == 'M' && bytes[2] == 0 && bytes[3] == 42)) {
            return imaging::container::Tiff;
        }
    }
    return {};
}

struct FileReport {
    Result result = S_OK;
    PictureMetadata record;
    std::optional<imaging::FileTime> sortDate;
    std::optional<std::array<std::int32_t, 4>> makerNote;  // Nikon ISO, Nikon, Canon, Olympus
};

FileReport Inspect(const std::filesystem::path& path, const Options& options) {
    FileReport report;
    decode::OpenedPicture picture;
    Result opened = decode::OpenPicture(path, picture);
    if (opened.Failed() && opened != E_UNSUPPORTED_TYPE) {
        report.result = opened;
        return report;
    }
    if (!picture.bytes) {
        if (const Result read = imaging::FileBytes::Read(path, picture.bytes); read.Failed()) {
            report.result = read;
            return report;
        }
    }
    if (picture.decoder) {
        std::unique_ptr<imaging::BitmapFrame> frame;
        const std::uint32_t count = picture.decoder->FrameCount();
        if (options.frame < count) {
            report.result = picture.decoder->GetFrame(options.frame, frame);
        }
        if (frame) {
            report.result = metadata::ReadPictureMetadata(
                path, &report.record, frame.get(), picture.decoder.get(),
                static_cast<std::uint16_t>(options.frame), "");
        } else if (report.result.Succeeded()) {
            report.result = S_FALSE;
        }
    } else {
        // No decoder for this format here: the metadata library's own idea of the size.
        metadata::MetadataFrame frame;
        frame.file = picture.bytes.get();
        frame.container = GuessContainer(path, picture.bytes->Bytes());
        frame.frameCount = 1;
        frame.frameIndex = options.frame;
        std::unique_ptr<imaging::MetadataQueryReader> reader;
        const Result created = imaging::MetadataQueryReader::Create(picture.bytes->Bytes(),
                                                                    frame.container, 0, {}, reader);
        if (created.Failed()) {
            report.result =
                created == imaging::WINCODEC_ERR_UNKNOWNIMAGEFORMAT ? E_UNSUPPORTED_TYPE : created;
            return report;
        }
        frame.size = reader->ReportedSize();
        report.result = metadata::ReadPictureMetadata(path, report.record, frame, "");
    }
    const imaging::FileTime sort =
        metadata::ReadDateTaken(path, {}, settings::SortByDateTime.Get() == 4);
    if (sort.ticks != 0) {
        report.sortDate = sort;
    }
    if (options.makerNote) {
        std::unique_ptr<imaging::MetadataQueryReader> reader;
        imaging::MetadataValue note;
        if (imaging::MetadataQueryReader::Create(
                picture.bytes->Bytes(),
                picture.decoder ? picture.container : GuessContainer(path, picture.bytes->Bytes()),
                0, {}, reader)
                .Succeeded() &&
            reader->GetMetadataByName("System.Photo.MakerNote", note) == S_OK) {
            const auto& blob = std::get<imaging::MetadataBlob>(note);
            report.makerNote = {metadata::NikonIsoFromMakerNote(blob),
                                metadata::NikonColourSpaceFromMakerNote(blob),
                                metadata::CanonColourSpaceFromMakerNote(blob),
                                metadata::OlympusColourSpaceFromMakerNote(blob)};
        }
    }
    return report;
}

constexpr std::array<std::string_view, 4> kMakerNoteNames = {
    "nikonIso", "nikonColourSpace", "canonColourSpace", "olympusColourSpace"};

std::string Json(const std::string& file, const FileReport& report) {
    std::string out =
        "{\"file\":" + JsonString(file) + ",\"result\":" + JsonString(report.result.Hex()) +
        ",\"validFields\":" + std::to_string(report.record.validFields) + ",\"fields\":{";
    bool first = true;
    for (const auto& [name, value] : Fields(report.record)) {
        out += (first ? "\"" : ",\"") + name + "\":" + value;
        first = false;
    }
    out += "},\"dateTakenForSort\":";
    out += report.sortDate ? JsonString(imaging::FormatIso8601(*report.sortDate)) : "null";
    if (report.makerNote) {
        out += ",\"makerNote\":{";
        for (std::size_t i = 0; i < kMakerNoteNames.size(); ++i) {
            out += (i ? ",\"" : "\"") + std::string(kMakerNoteNames[i]) +
                   "\":" + std::to_string((*report.makerNote)[i]);
        }
        out += "}";
    }
    return out + "}";
}

void PrintText(const std::string& file, const FileReport& report) {
    std::printf("%s\n  result: %s\n  validFields: 0x%05X\n", file.c_str(),
                report.result.Hex().c_str(), report.record.validFields);
    for (const auto& [name, value] : Fields(report.record)) {
        std::printf("  %s: %s\n", name.c_str(), value.c_str());
    }
    std::printf("  dateTakenForSort: %s\n",
                report.sortDate ? imaging::FormatIso8601(*report.sortDate).c_str() : "none");
    if (report.makerNote) {
        for (std::size_t i = 0; i < kMakerNoteNames.size(); ++i) {
            std::printf("  %s: %d\n", std::string(kMakerNoteNames[i]).c_str(),
                        (*report.makerNote)[i]);
        }
    }
}

int Run(std::span<const std::string> args) {
    Options options;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--json") {
            options.json = true;
        } else if (args[i] == "--makernote") {
            options.makerNote = true;
        } else if (args[i] == "--frame" && i + 1 < args.size()) {
            const std::string& text = args[++i];
            const auto [end, error] =
                std::from_chars(text.data(), text.data() + text.size(), options.frame);
            if (error != std::errc() || end != text.data() + text.size() ||
                options.frame > 0xFFFF) {
                return UsageError("--frame takes a frame number 0..65535");
            }
        } else if (args[i].starts_with("--")) {
            return UsageError("usage: orvanta-cli " + std::string(kUsage));
        } else {
            options.files.push_back(args[i]);
        }
    }
    if (options.files.empty()) {
        return UsageError("usage: orvanta-cli " + std::string(kUsage));
    }
    imaging::InitialiseMetadata();
    int exitCode = 0;
    std::string json = "[";
    for (const std::string& file : options.files) {
        const FileReport report = Inspect(file, options);
        if (report.result.Failed()) {
            Failure(file + ": " + report.result.Hex() + " " + Reason(report.result));
            exitCode = 1;
            continue;
        }
        if (options.json) {
            json += (json.size() > 1 ? "," : "") + Json(file, report);
        } else {
            PrintText(file, report);
        }
    }
    if (options.json) {
        std::fputs((json + "]\n").c_str(), stdout);
    }
    return exitCode;
}

const CommandRegistrar registrar({"info", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli

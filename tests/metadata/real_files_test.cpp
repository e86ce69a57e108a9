// The metadata reader against exiftool, an independent reader, on pictures from real
// cameras: every value both read must agree.
#include <cmath>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <stdio.h>

#include "list/supported_formats.h"
#include "metadata/maker_notes.h"
#include "metadata/metadata_values.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/metadata_query_reader.h"
#include "support/temp_folder.h"

namespace orvanta::metadata {
namespace {

std::string RunCommand(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return out;
    }
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        out.append(buffer, n);
    }
    pclose(pipe);
    return out;
}

bool HaveExiftool() {
    return !RunCommand("command -v exiftool 2>/dev/null").empty();
}

std::vector<std::filesystem::path> RealPictures() {
    std::vector<std::filesystem::path> files;
    const auto root = test::TestDataFolder();
    for (const char* folder : {"jpeg-makernotes", "raw", "formats/jpeg", "formats/tiff"}) {
        std::error_code error;
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(root / folder, error)) {
            list::ContainerChoice choice;
            if (entry.is_regular_file() && list::LookUpContainer(entry.path(), choice) &&
                imaging::IsMetadataBearing(choice.container)) {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

struct Read {
    PictureMetadata record;
    imaging::MetadataBlob makerNote;
};

Read ReadFile(const std::filesystem::path& path) {
    Read read;
    std::shared_ptr<const imaging::FileBytes> bytes;
    EXPECT_EQ(imaging::FileBytes::Read(path, bytes), S_OK);
    list::ContainerChoice choice;
    list::LookUpContainer(path, choice);
    std::unique_ptr<imaging::MetadataQueryReader> reader;
    EXPECT_EQ(imaging::MetadataQueryReader::Create(bytes->Bytes(), choice.container, 0, {}, reader),
              S_OK);
    if (!reader) {
        return read;
    }
    MetadataFrame frame{bytes.get(), choice.container, 1, 0, reader->ReportedSize(), {}};
    EXPECT_EQ(ReadPictureMetadata(path, read.record, frame, ""), S_OK);
    imaging::MetadataValue note;
    if (reader->GetMetadataByName("System.Photo.MakerNote", note) == S_OK) {
        read.makerNote = std::get<imaging::MetadataBlob>(note);
    }
    return read;
}

TEST(RealFiles, AgreeWithExiftool) {
    const auto files = RealPictures();
    if (files.empty() || !HaveExiftool()) {
        GTEST_SKIP() << "needs the real camera files and exiftool";
    }
    imaging::InitialiseMetadata();
    std::string command =
        "exiftool -j -n -G1 -IFD0:all -ExifIFD:all -Nikon:ISO -Nikon:ColorSpace "
        "-Canon:ColorSpace -Olympus:ColorSpace";
    for (const auto& file : files) {
        command += " '" + file.string() + "'";
    }
    const auto reference = nlohmann::json::parse(RunCommand(command + " 2>/dev/null"));
    ASSERT_EQ(reference.size(), files.size());
    int compared = 0;
    for (const auto& expected : reference) {
        const std::string path = expected["SourceFile"];
        SCOPED_TRACE(path);
        const Read read = ReadFile(path);
        const PictureMetadata& r = read.record;
        const auto has = [&](const char* key) { return expected.contains(key); };
        const auto near = [&](const char* key, double actual, std::uint32_t bit) {
            if (has(key) && expected[key].is_number() && expected[key].get<double>() != 0) {
                EXPECT_TRUE(r.validFields & bit) << key;
                EXPECT_NEAR(actual, expected[key].get<double>(),
                            std::abs(expected[key].get<double>()) * 1e-4 + 1e-6)
                    << key;
                ++compared;
            }
        };
        const auto code = [&](const char* key, std::int64_t actual, std::uint32_t bit) {
            if (has(key) && expected[key].is_number_integer()) {
                EXPECT_TRUE(r.validFields & bit) << key;
                EXPECT_EQ(actual, expected[key].get<std::int64_t>()) << key;
                ++compared;
            }
        };
        near("ExifIFD:ExposureTime", r.exposureTime, ValidField::kExposureTime);
        near("ExifIFD:FNumber", r.fNumber, ValidField::kFNumber);
        near("ExifIFD:FocalLength", r.focalLength, ValidField::kFocalLength);
        near("ExifIFD:ExposureCompensation", r.exposureBias, ValidField::kExposureBias);
        near("ExifIFD:ISO", r.isoSpeed, ValidField::kIsoSpeed);
        code("ExifIFD:Flash", r.flash, ValidField::kFlash);
        code("ExifIFD:MeteringMode", r.meteringMode, ValidField::kMeteringMode);
        code("ExifIFD:ExposureProgram", r.programMode, ValidField::kProgramMode);
        code("ExifIFD:WhiteBalance", r.whiteBalance, ValidField::kWhiteBalance);
        code("ExifIFD:LightSource", r.lightSource, ValidField::kLightSource);
        code("IFD0:Orientation", r.orientation, ValidField::kOrientation);
        if (has("ExifIFD:FocalLengthIn35mmFormat") &&
            expected["ExifIFD:FocalLengthIn35mmFormat"] != 0) {
            code("ExifIFD:FocalLengthIn35mmFormat", r.focalLengthIn35mm,
                 ValidField::kFocalLengthIn35mm);
        }
        if (has("IFD0:Model")) {
            EXPECT_EQ(r.cameraModel, TrimWhiteSpace(expected["IFD0:Model"].get<std::string>()));
            ++compared;
        }
        if (has("ExifIFD:DateTimeOriginal")) {
            const auto date =
                ParseDateText(expected["ExifIFD:DateTimeOriginal"].get<std::string>());
            if (date) {
                EXPECT_TRUE(r.validFields & ValidField::kDateTaken);
                EXPECT_EQ(r.dateTaken, *date);
                ++compared;
            }
        }
        if (has("Nikon:ISO") && expected["Nikon:ISO"].is_string()) {
            const std::string iso = expected["Nikon:ISO"];
            const std::int32_t second = DecimalValue(iso.substr(iso.find(' ') + 1));
            const std::int32_t found = NikonIsoFromMakerNote(read.makerNote);
            // Cameras with another maker-note layout give none.
            EXPECT_TRUE(found == second || found == 0) << found;
            compared += found == second && second != 0;
        }
        if (has("Nikon:ColorSpace")) {
            EXPECT_EQ(NikonColourSpaceFromMakerNote(read.makerNote), expected["Nikon:ColorSpace"]);
            ++compared;
        }
        if (has("Canon:ColorSpace")) {
            EXPECT_EQ(CanonColourSpaceFromMakerNote(read.makerNote), expected["Canon:ColorSpace"]);
            ++compared;
        }
        if (has("Olympus:ColorSpace")) {
            EXPECT_EQ(OlympusColourSpaceFromMakerNote(read.makerNote),
                      expected["Olympus:ColorSpace"].get<int>() + 1);
            ++compared;
        }
    }
    EXPECT_GT(compared, 200);
}

}  // namespace
}  // namespace orvanta::metadata

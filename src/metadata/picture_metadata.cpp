#include "metadata/picture_metadata.h"

#include <initializer_list>
#include <optional>

#include "marks/labels.h"
#include "metadata/maker_notes.h"
#include "metadata/metadata_values.h"
#include "metadata/query_paths.h"
#include "metadata/sidecar_marks.h"
#include "platform/imaging/metadata_query_reader.h"
#include "settings/settings.h"

namespace orvanta::metadata {

namespace {

using imaging::MetadataValue;

// Reads the sidecar into the record's marks: each mark the sidecar holds replaces the
// embedded one.
void ApplySidecar(const std::filesystem::path& path, PictureMetadata& record) {
    if (!settings::CreateSidecarFiles.On()) {
        return;
    }
    SidecarMarks marks{record.ratingPercent, record.rating, record.label, record.urgency};
    if (ReadSidecarMarks(path, marks) == S_OK) {
        record.ratingPercent = marks.ratingPercent;
        record.rating = marks.rating;
        record.label = marks.label;
        record.urgency = marks.urgency;
        record.validFields |= ValidField::kMarks;
    }
}

class Queries {
public:
    explicit Queries(const imaging::MetadataQueryReader& reader)
        : reader_(reader), paths_(reader.TiffStructured()) {}

    // The value of the first of `names` that the reader answers.
    std::optional<MetadataValue> First(std::initializer_list<std::string_view> names) const {
        for (std::string_view name : names) {
            MetadataValue value;
            if (reader_.GetMetadataByName(name, value) == S_OK) {
                return value;
            }
        }
        return std::nullopt;
    }
    std::string Xmp(std::string_view tail) const { return paths_.Xmp(tail); }
    std::string Ifd(std::string_view tail) const { return paths_.Ifd(tail); }
    bool TiffStructured() const { return paths_.TiffStructured(); }

private:
    const imaging::MetadataQueryReader& reader_;
    QueryPaths paths_;
};

// A number as it is, text as a decimal number, anything else as 0.
std::int64_t NumberOf(const MetadataValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return *number;
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return DecimalValue(*text);
    }
    return 0;
}

// Text, or the first text of a list; nullopt for other values.
std::optional<std::string> TextOf(const MetadataValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    if (const auto* texts = std::get_if<std::vector<std::string>>(&value)) {
        if (!texts->empty()) {
            return texts->front();
        }
    }
    return std::nullopt;
}

std::optional<imaging::FileTime> DateOf(const MetadataValue& value) {
    if (const auto* time = std::get_if<imaging::FileTime>(&value)) {
        return *time;
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return ParseDateText(*text);
    }
    return std::nullopt;
}

void ReadDate(const Queries& q, PictureMetadata& r) {
    std::optional<imaging::FileTime> date;
    if (const auto value =
            q.First({"System.Photo.DateTaken", q.Xmp("/xmp/exif:DateTimeOriginal")})) {
        date = DateOf(*value);
    }
    if (!date) {
        if (const auto value = q.First({q.Xmp("/xmp/exif:DateTimeDigitized")})) {
            date = DateOf(*value);
        }
    }
    if (!date) {
        if (const auto value = q.First({q.Ifd("/ifd/exif/{ushort=36868}")})) {
            date = DateOf(*value);
        }
    }
    if (date) {
        r.dateTaken = *date;
        r.validFields |= ValidField::kDateTaken;
    }
}

void ReadExposure(const Queries& q, PictureMetadata& r) {
    if (const auto value =
            q.First({q.Xmp("/xmp/exif:ExposureBiasValue"), q.Ifd("/ifd/exif/{ushort=37380}")})) {
        r.exposureBias = RationalAsDouble(*value);
        if (r.exposureBias != 0) {
            r.validFields |= ValidField::kExposureBias;
        }
    }
    if (const auto value =
            q.First({q.Xmp("/xmp/exif:ExposureTime"), q.Ifd("/ifd/exif/{ushort=33434}")})) {
        const Fraction fraction = ExposureFraction(*value);
        r.exposureTimeNumerator = fraction.numerator;
        r.exposureTimeDenominator = fraction.denominator;
        r.exposureTime = RationalAsDouble(*value);
        if (r.exposureTime != 0) {
            r.validFields |= ValidField::kExposureTime;
        }
    }
    if (r.exposureTime == 0) {
        if (const auto value = q.First(
                {q.Xmp("/xmp/exif:ShutterSpeedValue"), q.Ifd("/ifd/exif/{ushort=37377}")})) {
            const double tv = RationalAsDouble(*value);
            const auto time = tv != 0 ? ExposureFromShutterSpeed(tv) : std::nullopt;
            if (time) {
                r.exposureTime = time->seconds;
                r.exposureTimeNumerator = time->fraction.numerator;
                r.exposureTimeDenominator = time->fraction.denominator;
                r.validFields |= ValidField::kExposureTime;
            }
        }
    }
}

void ReadLens(const Queries& q, PictureMetadata& r) {
    if (const auto value = q.First({q.Xmp("/xmp/exif:FNumber"), q.Xmp("/xmp/exif:Fnumber"),
                                    q.Ifd("/ifd/exif/{ushort=33437}")})) {
        r.fNumber = RationalAsDouble(*value);
        if (r.fNumber != 0) {
            r.validFields |= ValidField::kFNumber;
        }
    }
    if (r.fNumber == 0) {
        if (const auto value =
                q.First({q.Xmp("/xmp/exif:ApertureValue"), q.Ifd("/ifd/exif/{ushort=37378}")})) {
            const double av = RationalAsDouble(*value);
            const auto fNumber = av != 0 ? FNumberFromAperture(av) : std::nullopt;
            if (fNumber) {
                r.fNumber = *fNumber;
                r.validFields |= ValidField::kFNumber;
            }
        }
    }
    if (const auto value =
            q.First({q.Xmp("/xmp/exif:FocalLength"), q.Ifd("/ifd/exif/{ushort=37386}")})) {
        r.focalLength = RationalAsDouble(*value);
        if (r.focalLength != 0) {
            r.validFields |= ValidField::kFocalLength;
        }
    }
    if (const auto value = q.First({"System.Photo.FocalLengthInFilm"})) {
        r.focalLengthIn35mm = static_cast<std::uint16_t>(NumberOf(*value));
        if (r.focalLengthIn35mm != 0) {
            r.validFields |= ValidField::kFocalLengthIn35mm;
        }
    }
    if (const auto value =
            q.First({q.Xmp("/xmp/exif:SubjectDistance"), q.Ifd("/ifd/exif/{ushort=37382}")})) {
        r.subjectDistance = RationalAsDouble(*value);
        if (r.subjectDistance != 0) {
            r.validFields |= ValidField::kSubjectDistance;
        }
    }
}

void ReadIso(const Queries& q, PictureMetadata& r) {
    std::optional<std::int64_t> iso;
    if (const auto value =
            q.First({"System.Photo.ISOSpeed", q.Xmp("/xmp/exif:ISOSpeedRatings/")})) {
        iso = NumberOf(*value);
    } else if (const auto note = q.First({"System.Photo.MakerNote"})) {
        if (const auto* blob = std::get_if<imaging::MetadataBlob>(&*note)) {
            const std::int32_t fromNote = NikonIsoFromMakerNote(*blob);
            if (fromNote > 0) {
                iso = static_cast<std::int16_t>(fromNote);
            }
        }
    }
    if (iso) {
        r.isoSpeed = static_cast<std::int32_t>(*iso);
        if (r.isoSpeed != 0) {
            r.validFields |= ValidField::kIsoSpeed;
        }
    }
}

// A 16-bit code from the first query answered; its bit on success.
void ReadCode(const Queries& q, std::initializer_list<std::string_view> names, std::uint16_t& field,
              std::uint32_t bit, PictureMetadata& r) {
    if (const auto value = q.First(names)) {
        field = static_cast<std::uint16_t>(NumberOf(*value));
        r.validFields |= bit;
    }
}

void ReadCodes(const Queries& q, PictureMetadata& r) {
    ReadCode(q, {"System.Photo.Flash"}, r.flash, ValidField::kFlash, r);
    ReadCode(q, {"System.Photo.MeteringMode"}, r.meteringMode, ValidField::kMeteringMode, r);
    ReadCode(q, {"System.Photo.LightSource"}, r.lightSource, ValidField::kLightSource, r);
    ReadCode(q, {"System.Photo.Orientation", q.Xmp("/xmp/tiff:Orientation")}, r.orientation,
             ValidField::kOrientation, r);
    ReadCode(q, {"System.Photo.ProgramMode"}, r.programMode, ValidField::kProgramMode, r);
    // White balance: empty text stores nothing.
    for (const std::string& name :
         {std::string("System.Photo.WhiteBalance"), q.Xmp("/xmp/exif:WhiteBalance")}) {
        const auto value = q.First({name});
        if (!value) {
            continue;
        }
        const auto* text = std::get_if<std::string>(&*value);
        if (text != nullptr && text->empty()) {
            continue;
        }
        r.whiteBalance = static_cast<std::uint16_t>(NumberOf(*value));
        r.validFields |= ValidField::kWhiteBalance;
        break;
    }
}

void ReadMarks(const Queries& q, PictureMetadata& r) {
    if (const auto value = q.First({"System.Rating"})) {
        r.ratingPercent = static_cast<std::int16_t>(NumberOf(*value));
        r.validFields |= ValidField::kMarks;
    }
    if (const auto value = q.First({"System.SimpleRating"})) {
        r.rating = static_cast<std::int16_t>(NumberOf(*value));
        r.validFields |= ValidField::kMarks;
    }
    const bool tiff = q.TiffStructured();
    if (const auto value = q.First({tiff ? "/ifd/{ushort=700}/xmp:Label" : "/xmp/xmp:Label"})) {
        const auto text = TextOf(*value);
        if (text && !text->empty()) {
            r.label = static_cast<std::int16_t>(marks::LabelIndexFromName(*text));
            if (r.label != -1) {
                r.validFields |= ValidField::kMarks;
            }
        }
    }
    if (const auto value =
            q.First({tiff ? "/ifd/{ushort=700}/photoshop:Urgency" : "/xmp/photoshop:Urgency"})) {
        const auto text = TextOf(*value);
        if (text && !text->empty()) {
            r.urgency = static_cast<std::int16_t>(DecimalValue(*text));
            r.validFields |= ValidField::kMarks;
        }
    }
}

// Strings are trimmed of white space at both ends; an empty result stores nothing.
void ReadText(const Queries& q, std::initializer_list<std::string_view> names, std::string& field,
              std::uint32_t bit, PictureMetadata& r) {
    if (const auto value = q.First(names)) {
        if (const auto text = TextOf(*value)) {
            field = TrimWhiteSpace(*text);
            if (!field.empty()) {
                r.validFields |= bit;
            }
        }
    }
}

}  // namespace

Result ReadPictureMetadata(const std::filesystem::path& path, PictureMetadata* record,
                           const imaging::BitmapFrame* frame, const imaging::Decoder* decoder,
                           std::uint16_t frameIndex, std::string_view profileName) {
    if (!imaging::MetadataInitialised()) {
        return E_UNEXPECTED;
    }
    if (record == nullptr || frame == nullptr || decoder == nullptr) {
        return E_INVALIDARG;
    }
    MetadataFrame parts;
    parts.file = &frame->File();
    parts.container = decoder->Container();
    parts.frameCount = decoder->FrameCount();
    parts.frameIndex = frameIndex;
    parts.size = frame->Size();
    parts.blocks = frame->Metadata();
    return ReadPictureMetadata(path, *record, parts, profileName);
}

Result ReadPictureMetadata(const std::filesystem::path& path, PictureMetadata& record,
                           const MetadataFrame& frame, std::string_view profileName) {
    if (!imaging::MetadataInitialised()) {
        return E_UNEXPECTED;
    }
    if (frame.file == nullptr) {
        return E_INVALIDARG;
    }
    record.width = frame.size.width;
    record.height = frame.size.height;
    record.ratingPercent = record.rating = record.label = record.urgency = -1;
    record.validFields = 0;
    if (!profileName.empty()) {
        // The ICC name of Adobe RGB (1998) as newer profiles spell it.
        record.colourProfileName = profileName == "opRGB" ? "Adobe RGB" : std::string(profileName);
        record.validFields |= ValidField::kColourProfileName;
    }
    if (!imaging::IsMetadataBearing(frame.container)) {
        ApplySidecar(path, record);
        return S_FALSE;
    }
    if (frame.frameCount == 0 || frame.frameCount <= frame.frameIndex) {
        return S_FALSE;
    }
    std::unique_ptr<imaging::MetadataQueryReader> reader;
    if (const Result created = imaging::MetadataQueryReader::Create(
            frame.file->Bytes(), frame.container, frame.frameIndex, frame.blocks, reader);
        created.Failed()) {
        return created;
    }
    const Queries q(*reader);
    ReadDate(q, record);
    ReadExposure(q, record);
    ReadLens(q, record);
    ReadIso(q, record);
    ReadCodes(q, record);
    ReadMarks(q, record);
    ReadText(q, {"System.Photo.CameraModel", q.Xmp("/xmp/tiff:Model")}, record.cameraModel,
             ValidField::kCameraModel, record);
    ReadText(q, {"System.Photo.LensModel"}, record.lensModel, ValidField::kLensModel, record);
    ReadText(q, {"System.Comment"}, record.comment, ValidField::kComment, record);
    ApplySidecar(path, record);
    return S_OK;
}

}  // namespace orvanta::metadata

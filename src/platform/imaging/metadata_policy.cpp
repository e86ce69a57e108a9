// The photo-property policy: each "System.*" name with the EXIF entries and XMP
// properties it is read from, in the order tried, and the type it is answered in.
#include <charconv>
#include <cmath>
#include <string>

#include "platform/imaging/metadata_store_internal.h"
#include "platform/text/unicode.h"

namespace orvanta::imaging {

namespace {

using Store = MetadataQueryReader::Store;

struct ExifSource {
    std::uint16_t tag;
    std::string_view group;
};

struct XmpSource {
    std::string_view prefix;
    std::string_view name;
};

std::optional<std::int64_t> ParseInteger(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
    }
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::int64_t> FirstNumber(const MetadataValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return *number;
    }
    if (const auto* numbers = std::get_if<std::vector<std::int64_t>>(&value)) {
        return numbers->empty() ? std::nullopt : std::optional(numbers->front());
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return ParseInteger(*text);
    }
    if (const auto* texts = std::get_if<std::vector<std::string>>(&value)) {
        return texts->empty() ? std::nullopt : ParseInteger(texts->front());
    }
    return std::nullopt;
}

MetadataValue ExifOf(const Store& store, ExifSource source) {
    const Exiv2::Exifdatum* datum =
        source.group.empty() ? nullptr : store.FindExif(source.tag, source.group);
    return datum ? ExifValue(*datum) : MetadataValue{};
}

MetadataValue XmpOf(const Store& store, XmpSource source) {
    const Exiv2::Xmpdatum* datum =
        source.prefix.empty() ? nullptr : store.FindXmp(source.prefix, source.name);
    return datum ? XmpValue(*datum) : MetadataValue{};
}

// An unsigned 16-bit property: the first EXIF or XMP candidate that holds a number in range.
Result UInt16Property(const Store& store, ExifSource exif, XmpSource xmp, MetadataValue& value) {
    for (const MetadataValue& candidate : {ExifOf(store, exif), XmpOf(store, xmp)}) {
        const auto number = FirstNumber(candidate);
        if (number && *number >= 0 && *number <= 0xFFFF) {
            value = *number;
            return S_OK;
        }
    }
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

Result StringProperty(const Store& store, ExifSource exif, std::initializer_list<XmpSource> xmp,
                      MetadataValue& value) {
    value = ExifOf(store, exif);
    if (std::holds_alternative<std::string>(value)) {
        return S_OK;
    }
    for (const XmpSource& source : xmp) {
        value = XmpOf(store, source);
        if (std::holds_alternative<std::string>(value) ||
            std::holds_alternative<std::vector<std::string>>(value)) {
            return S_OK;
        }
    }
    value = {};
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

std::optional<int> Digits(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) {
        return std::nullopt;
    }
    int number = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return std::nullopt;
        }
        number = number * 10 + (text[i] - '0');
    }
    return number;
}

// "2009:03:14 15:09:26", as EXIF writes dates.
std::optional<FileTime> ExifDate(std::string_view text) {
    if (text.size() < 19 || text[4] != ':' || text[7] != ':' || text[13] != ':' ||
        text[16] != ':') {
        return std::nullopt;
    }
    CivilTime t;
    const auto year = Digits(text, 0, 4), month = Digits(text, 5, 2), day = Digits(text, 8, 2),
               hour = Digits(text, 11, 2), minute = Digits(text, 14, 2),
               second = Digits(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second) {
        return std::nullopt;
    }
    t = {*year, *month, *day, *hour, *minute, *second, 0};
    return FileTimeFromCivil(t);
}

// "2009-03-14T15:09:26.25+01:00" and its shorter forms down to "2009", as XMP writes
// dates; the time zone is ignored, as for EXIF dates, which have none.
std::optional<FileTime> XmpDate(std::string_view text) {
    CivilTime t{0, 1, 1, 0, 0, 0, 0};
    const auto year = Digits(text, 0, 4);
    if (!year) {
        return std::nullopt;
    }
    t.year = *year;
    if (text.size() > 4) {
        const auto month = text[4] == '-' ? Digits(text, 5, 2) : std::nullopt;
        const auto day = text.size() > 7 && text[7] == '-' ? Digits(text, 8, 2) : std::nullopt;
        if (!month || (text.size() > 7 && !day)) {
            return std::nullopt;
        }
        t.month = *month;
        t.day = day.value_or(1);
    }
    if (text.size() > 10) {
        const auto hour = text[10] == 'T' ? Digits(text, 11, 2) : std::nullopt;
        const auto minute =
            text.size() > 13 && text[13] == ':' ? Digits(text, 14, 2) : std::nullopt;
        if (!hour || !minute) {
            return std::nullopt;
        }
        t.hour = *hour;
        t.minute = *minute;
        if (text.size() > 16 && text[16] == ':') {
            const auto second = Digits(text, 17, 2);
            if (!second) {
                return std::nullopt;
            }
            t.second = *second;
            if (text.size() > 20 && text[19] == '.') {
                const auto tenths = Digits(text, 20, 1);
                const auto hundredths = Digits(text, 21, 1);
                const auto thousandths = Digits(text, 22, 1);
                t.millisecond = tenths.value_or(0) * 100 +
                                (tenths ? hundredths.value_or(0) : 0) * 10 +
                                (tenths && hundredths ? thousandths.value_or(0) : 0);
            }
        }
    }
    return FileTimeFromCivil(t);
}

Result DateProperty(std::optional<FileTime> time, MetadataValue& value) {
    if (!time) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    value = *time;
    return S_OK;
}

Result DateTaken(const Store& store, MetadataValue& value) {
    if (const auto* text = std::get_if<std::string>(&(value = ExifOf(store, {36867, "Photo"})))) {
        if (const auto time = ExifDate(*text)) {
            return DateProperty(time, value);
        }
    }
    if (const auto* text =
            std::get_if<std::string>(&(value = XmpOf(store, {"exif", "DateTimeOriginal"})))) {
        if (const auto time = XmpDate(*text)) {
            return DateProperty(time, value);
        }
    }
    value = {};
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

// The satellite clock: GPSDateStamp "2009:03:14" with GPSTimeStamp as three rationals.
Result GpsDate(const Store& store, MetadataValue& value) {
    const MetadataValue date = ExifOf(store, {29, "GPSInfo"});
    const MetadataValue clock = ExifOf(store, {7, "GPSInfo"});
    const auto* dateText = std::get_if<std::string>(&date);
    const auto* parts = std::get_if<std::vector<PackedRational>>(&clock);
    if (dateText != nullptr && parts != nullptr && parts->size() == 3 && dateText->size() >= 10 &&
        (*dateText)[4] == ':' && (*dateText)[7] == ':') {
        double fields[3];
        bool good = true;
        for (int i = 0; i < 3; ++i) {
            const auto& r = (*parts)[static_cast<std::size_t>(i)];
            const auto denominator = static_cast<std::uint32_t>(r.Denominator());
            good = good && denominator != 0;
            fields[i] = good ? static_cast<std::uint32_t>(r.Numerator()) / double(denominator) : 0;
        }
        const auto year = Digits(*dateText, 0, 4), month = Digits(*dateText, 5, 2),
                   day = Digits(*dateText, 8, 2);
        if (good && year && month && day && fields[0] < 24 && fields[1] < 60 && fields[2] < 60) {
            const double second = std::floor(fields[2]);
            const CivilTime t{*year,
                              *month,
                              *day,
                              static_cast<int>(fields[0]),
                              static_cast<int>(fields[1]),
                              static_cast<int>(second),
                              static_cast<int>((fields[2] - second) * 1000)};
            if (const auto time = FileTimeFromCivil(t)) {
                return DateProperty(time, value);
            }
        }
    }
    if (const auto* text =
            std::get_if<std::string>(&(value = XmpOf(store, {"exif", "GPSTimeStamp"})))) {
        if (const auto time = XmpDate(*text)) {
            return DateProperty(time, value);
        }
    }
    value = {};
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

constexpr std::int64_t PercentFromStars(std::int64_t stars) {
    switch (stars) {
        case 1:
            return 1;
        case 2:
            return 25;
        case 3:
            return 50;
        case 4:
            return 75;
        case 5:
            return 99;
        default:
            return 0;
    }
}

constexpr std::int64_t StarsFromPercent(std::int64_t percent) {
    if (percent <= 0) {
        return 0;
    }
    return percent <= 12 ? 1 : percent <= 37 ? 2 : percent <= 62 ? 3 : percent <= 87 ? 4 : 5;
}

Result Rating(const Store& store, bool percent, MetadataValue& value) {
    const MetadataValue percentCandidates[] = {XmpOf(store, {"MicrosoftPhoto", "Rating"}),
                                               ExifOf(store, {18249, "Image"})};
    const MetadataValue starCandidates[] = {XmpOf(store, {"xmp", "Rating"}),
                                            ExifOf(store, {18246, "Image"})};
    for (const auto& candidate : percent ? percentCandidates : starCandidates) {
        if (const auto number = FirstNumber(candidate)) {
            value = *number;
            return S_OK;
        }
    }
    for (const auto& candidate : percent ? starCandidates : percentCandidates) {
        if (const auto number = FirstNumber(candidate)) {
            value = percent ? PercentFromStars(*number) : StarsFromPercent(*number);
            return S_OK;
        }
    }
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

// The comment the file's properties show: the UTF-16 XPComment of the first directory,
// else the EXIF user comment, else the XMP one.
Result Comment(const Store& store, MetadataValue& value) {
    if (const Exiv2::Exifdatum* datum = store.FindExif(40092, "Image")) {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(datum->size()));
        if (!bytes.empty()) {
            datum->copy(bytes.data(), Exiv2::invalidByteOrder);
        }
        std::u16string wide;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            const auto unit = static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
            if (unit == 0) {
                break;
            }
            wide += unit;
        }
        if (!wide.empty()) {
            value = text::Utf16ToUtf8(wide);
            return S_OK;
        }
    }
    if (const Exiv2::Exifdatum* datum = store.FindExif(37510, "Photo")) {
        if (const auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&datum->value())) {
            std::string text = comment->comment();
            if (const auto end = text.find('\0'); end != std::string::npos) {
                text.resize(end);
            }
            value = std::move(text);
            return S_OK;
        }
    }
    return StringProperty(store, {}, {{"exif", "UserComment"}}, value);
}

}  // namespace

Result QueryPhotoProperty(const Store& store, std::string_view name, MetadataValue& value) {
    constexpr std::string_view kPhoto = "System.Photo.";
    if (name == "System.Rating") {
        return Rating(store, true, value);
    }
    if (name == "System.SimpleRating") {
        return Rating(store, false, value);
    }
    if (name == "System.Comment") {
        return Comment(store, value);
    }
    if (name == "System.GPS.Date") {
        return GpsDate(store, value);
    }
    if (!name.starts_with(kPhoto)) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    const std::string_view photo = name.substr(kPhoto.size());
    if (photo == "DateTaken") {
        return DateTaken(store, value);
    }
    if (photo == "Flash") {
        return UInt16Property(store, {37385, "Photo"}, {}, value);
    }
    if (photo == "FocalLengthInFilm") {
        return UInt16Property(store, {41989, "Photo"}, {"exif", "FocalLengthIn35mmFilm"}, value);
    }
    if (photo == "ISOSpeed") {
        return UInt16Property(store, {34855, "Photo"}, {"exif", "ISOSpeedRatings"}, value);
    }
    if (photo == "MeteringMode") {
        return UInt16Property(store, {37383, "Photo"}, {"exif", "MeteringMode"}, value);
    }
    if (photo == "LightSource") {
        return UInt16Property(store, {37384, "Photo"}, {"exif", "LightSource"}, value);
    }
    if (photo == "Orientation") {
        return UInt16Property(store, {274, "Image"}, {"tiff", "Orientation"}, value);
    }
    if (photo == "ProgramMode") {
        return UInt16Property(store, {34850, "Photo"}, {"exif", "ExposureProgram"}, value);
    }
    if (photo == "WhiteBalance") {
        return UInt16Property(store, {41987, "Photo"}, {"exif", "WhiteBalance"}, value);
    }
    if (photo == "CameraModel") {
        return StringProperty(store, {272, "Image"}, {{"tiff", "Model"}}, value);
    }
    if (photo == "CameraManufacturer") {
        return StringProperty(store, {271, "Image"}, {{"tiff", "Make"}}, value);
    }
    if (photo == "LensModel") {
        return StringProperty(store, {42036, "Photo"}, {{"exifEX", "LensModel"}, {"aux", "Lens"}},
                              value);
    }
    if (photo == "MakerNote") {
        value = ExifOf(store, {37500, "Photo"});
        if (std::holds_alternative<MetadataBlob>(value)) {
            return S_OK;
        }
        value = {};
    }
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

}  // namespace orvanta::imaging

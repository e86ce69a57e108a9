#include "platform/imaging/metadata_query_reader.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/imaging/metadata_store_internal.h"

namespace orvanta::imaging {

namespace {

// Guards the XMP toolkit, which the library calls under this lock from every thread; a
// leaf lock, taken only inside the library.
std::mutex xmpToolkitMutex;
std::once_flag initialiseOnce;
std::atomic<bool> initialised{false};

void LockXmpToolkit(void*, bool lock) {
    if (lock) {
        xmpToolkitMutex.lock();
    } else {
        xmpToolkitMutex.unlock();
    }
}

constexpr std::array kTiffStructured = {
    container::Tiff,         container::Wmp, container::RawOther, container::Dng,
    container::RawAlternate, container::Orf, container::Nef,
};

std::vector<std::string_view> SplitPath(std::string_view path) {
    std::vector<std::string_view> segments;
    if (path.empty() || path.front() != '/') {
        return segments;
    }
    path.remove_prefix(1);
    for (;;) {
        const auto slash = path.find('/');
        segments.push_back(path.substr(0, slash));
        if (slash == std::string_view::npos) {
            break;
        }
        path.remove_prefix(slash + 1);
    }
    return segments;
}

// "{ushort=274}" -> 274, for the given type word.
std::optional<std::uint32_t> NumberSegment(std::string_view segment, std::string_view type,
                                           std::uint32_t limit) {
    if (segment.size() < type.size() + 4 || segment.front() != '{' || segment.back() != '}' ||
        segment.substr(1, type.size()) != type || segment[type.size() + 1] != '=') {
        return std::nullopt;
    }
    const std::string_view digits =
        segment.substr(type.size() + 2, segment.size() - type.size() - 3);
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size() || number > limit) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::uint16_t> TagSegment(std::string_view segment) {
    const auto tag = NumberSegment(segment, "ushort", 0xFFFF);
    return tag ? std::optional<std::uint16_t>(static_cast<std::uint16_t>(*tag)) : std::nullopt;
}

bool IsSegment(std::string_view segment, std::string_view word, std::uint16_t tag) {
    return segment == word || TagSegment(segment) == tag;
}

constexpr std::uint16_t kExifIfdTag = 34665;
constexpr std::uint16_t kGpsIfdTag = 34853;
constexpr std::uint16_t kInteropIfdTag = 40965;
constexpr std::uint16_t kXmpTag = 700;
constexpr std::uint16_t kIptcTag = 33723;

using Store = MetadataQueryReader::Store;

Result Found(MetadataValue found, MetadataValue& value) {
    if (std::holds_alternative<std::monostate>(found)) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    value = std::move(found);
    return S_OK;
}

// segments: "prefix:Name" and an optional item: "" (the first), "{ulong=N}" or a field
// "prefix:Field".
Result QueryXmp(const Store& store, std::span<const std::string_view> segments,
                MetadataValue& value) {
    if (segments.empty() || segments.size() > 2) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    const std::string_view qualified = segments[0];
    const auto colon = qualified.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == qualified.size()) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    const std::string_view prefix = qualified.substr(0, colon);
    std::string name(qualified.substr(colon + 1));
    if (segments.size() == 2 && segments[1].find(':') != std::string_view::npos) {
        name += '/';
        name += segments[1];  // the library names structure fields "Struct/ns:Field"
        const Exiv2::Xmpdatum* field = store.FindXmp(prefix, name);
        return field ? Found(XmpValue(*field), value) : WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    const Exiv2::Xmpdatum* datum = store.FindXmp(prefix, name);
    if (datum == nullptr) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    MetadataValue whole = XmpValue(*datum);
    if (segments.size() == 1) {
        return Found(std::move(whole), value);
    }
    // An item of an array; a simple value has none.
    const auto* items = std::get_if<std::vector<std::string>>(&whole);
    if (items == nullptr) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    std::uint32_t index = 0;
    if (!segments[1].empty()) {
        const auto number = NumberSegment(segments[1], "ulong", 0xFFFFFFFFu);
        if (!number) {
            return WINCODEC_ERR_PROPERTYNOTFOUND;
        }
        index = *number;
    }
    if (index >= items->size()) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    value = (*items)[index];
    return S_OK;
}

Result QueryIptc(const Store& store, std::span<const std::string_view> segments,
                 MetadataValue& value) {
    if (segments.size() != 1) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    std::string_view segment = segments[0];
    std::uint16_t dataset = 0;
    if (const auto number = TagSegment(segment)) {
        dataset = *number;
    } else {
        if (segment.starts_with("{str=") && segment.ends_with('}')) {
            segment = segment.substr(5, segment.size() - 6);
        }
        if (segment.empty()) {
            return WINCODEC_ERR_PROPERTYNOTFOUND;
        }
        dataset =
            Exiv2::IptcDataSets::dataSet(std::string(segment), Exiv2::IptcDataSets::application2);
    }
    std::vector<std::string> found;
    for (const auto& datum : store.iptc) {
        if (datum.record() == Exiv2::IptcDataSets::application2 && datum.tag() == dataset) {
            found.push_back(datum.toString());
        }
    }
    if (found.empty()) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    if (found.size() == 1) {
        value = std::move(found.front());
    } else {
        value = std::move(found);
    }
    return S_OK;
}

// segments after the "ifd" root.
Result QueryIfd(const Store& store, std::span<const std::string_view> segments,
                MetadataValue& value) {
    if (segments.empty()) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    std::string_view group = "Image";
    if (IsSegment(segments[0], "exif", kExifIfdTag)) {
        group = "Photo";
        segments = segments.subspan(1);
        if (!segments.empty() && IsSegment(segments[0], "interop", kInteropIfdTag)) {
            group = "Iop";
            segments = segments.subspan(1);
        }
    } else if (IsSegment(segments[0], "gps", kGpsIfdTag)) {
        group = "GPSInfo";
        segments = segments.subspan(1);
    }
    if (segments.size() != 1) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    const auto tag = TagSegment(segments[0]);
    if (!tag) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    const Exiv2::Exifdatum* datum = store.FindExif(*tag, group);
    return datum ? Found(ExifValue(*datum), value) : WINCODEC_ERR_PROPERTYNOTFOUND;
}

Result QueryPath(const Store& store, std::string_view path, MetadataValue& value) {
    const std::vector<std::string_view> all = SplitPath(path);
    std::span<const std::string_view> segments(all);
    if (segments.empty()) {
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
    if (store.tiffStructured) {
        if (segments[0] != "ifd") {
            return WINCODEC_ERR_PROPERTYNOTFOUND;
        }
        segments = segments.subspan(1);
        if (!segments.empty() && IsSegment(segments[0], "xmp", kXmpTag)) {
            return QueryXmp(store, segments.subspan(1), value);
        }
        if (!segments.empty() && IsSegment(segments[0], "iptc", kIptcTag)) {
            return QueryIptc(store, segments.subspan(1), value);
        }
        return QueryIfd(store, segments, value);
    }
    if (segments[0] == "xmp") {
        return QueryXmp(store, segments.subspan(1), value);
    }
    if (segments[0] == "app1" && segments.size() > 1 && segments[1] == "ifd") {
        return QueryIfd(store, segments.subspan(2), value);
    }
    if (segments.size() > 4 && segments[0] == "app13" && segments[1] == "irb" &&
        segments[2] == "8bimiptc" && segments[3] == "iptc") {
        return QueryIptc(store, segments.subspan(4), value);
    }
    return WINCODEC_ERR_PROPERTYNOTFOUND;
}

void DecodeBlocks(const FrameMetadataBlocks& blocks, Store& store) {
    if (store.exif.empty() && !blocks.exif.empty()) {
        Exiv2::ExifParser::decode(store.exif, blocks.exif.data(),
                                  static_cast<std::uint32_t>(blocks.exif.size()));
    }
    if (store.xmp.empty() && !blocks.xmp.empty()) {
        const std::string packet(blocks.xmp.begin(), blocks.xmp.end());
        Exiv2::XmpParser::decode(store.xmp, packet);
    }
    if (store.iptc.empty() && !blocks.iptc.empty()) {
        Exiv2::IptcParser::decode(store.iptc, blocks.iptc.data(),
                                  static_cast<std::uint32_t>(blocks.iptc.size()));
    }
}

// The library does not know the HD Photo container, but its header is a TIFF header with
// another magic number and its directory holds the EXIF, GPS and XMP tags as TIFF does:
// read a copy that carries TIFF's magic number.
bool DecodeHdPhoto(std::span<const std::uint8_t> file, Store& store) {
    if (file.size() < 8 || file[0] != 'I' || file[1] != 'I' || file[2] != 0xBC) {
        return false;
    }
    std::vector<std::uint8_t> copy(file.begin(), file.end());
    copy[2] = 0x2A;
    copy[3] = 0x00;
    Exiv2::ExifParser::decode(store.exif, copy.data(), static_cast<std::uint32_t>(copy.size()));
    const auto packet = store.exif.findKey(Exiv2::ExifKey("Exif.Image.XMLPacket"));
    if (packet != store.exif.end() && store.xmp.empty()) {
        std::string text(static_cast<std::size_t>(packet->size()), '\0');
        packet->copy(reinterpret_cast<Exiv2::byte*>(text.data()), Exiv2::invalidByteOrder);
        Exiv2::XmpParser::decode(store.xmp, text);
    }
    // The container's own size tags.
    const Exiv2::Exifdatum* width = store.FindExif(0xBC80, "Image");
    const Exiv2::Exifdatum* height = store.FindExif(0xBC81, "Image");
    if (width != nullptr && height != nullptr && width->count() == 1 && height->count() == 1) {
        store.reportedSize = {static_cast<std::uint32_t>(width->toLong(0)),
                              static_cast<std::uint32_t>(height->toLong(0))};
    }
    return true;
}

bool IsUnknownFormat(const Exiv2::AnyError& error) {
    return error.code() == Exiv2::kerMemoryContainsUnknownImageType ||
           error.code() == Exiv2::kerFileContainsUnknownImageType ||
           error.code() == Exiv2::kerNotAnImage;
}

}  // namespace

void InitialiseMetadata() {
    std::call_once(initialiseOnce, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::LogMsg::setHandler(nullptr);
        Exiv2::XmpParser::initialize(LockXmpToolkit, nullptr);
        initialised.store(true);
    });
}

bool MetadataInitialised() {
    return initialised.load();
}

bool IsTiffStructured(const Guid& container) {
    return std::find(kTiffStructured.begin(), kTiffStructured.end(), container) !=
           kTiffStructured.end();
}

bool IsMetadataBearing(const Guid& container) {
    return IsTiffStructured(container) || container == container::Jpeg ||
           container == container::Cr2 || container == container::Rw2;
}

const Exiv2::Exifdatum* Store::FindExif(std::uint16_t tag, std::string_view group) const {
    for (const auto& datum : exif) {
        if (datum.tag() == tag && datum.groupName() == group) {
            return &datum;
        }
    }
    return nullptr;
}

const Exiv2::Xmpdatum* Store::FindXmp(std::string_view prefix, std::string_view name) const {
    if (xmp.empty()) {
        return nullptr;
    }
    std::string ns;
    try {
        ns = Exiv2::XmpProperties::ns(std::string(prefix));
    } catch (const Exiv2::AnyError&) {
        return nullptr;
    }
    const std::string key = "Xmp." + std::string(prefix) + "." + std::string(name);
    for (const auto& datum : xmp) {
        if (datum.key() == key) {
            return &datum;
        }
    }
    // A file may bind the namespace without its final slash (a different namespace to
    // the library, which then registers a prefix of its own for it): the same property.
    const std::string_view bare =
        std::string_view(ns).substr(0, ns.size() - (ns.ends_with('/') ? 1 : 0));
    for (const auto& datum : xmp) {
        if (datum.tagName() != name) {
            continue;
        }
        std::string other;
        try {
            other = Exiv2::XmpProperties::ns(datum.groupName());
        } catch (const Exiv2::AnyError&) {
            continue;
        }
        if (other.ends_with('/')) {
            other.pop_back();
        }
        if (other == bare) {
            return &datum;
        }
    }
    return nullptr;
}

MetadataValue ExifValue(const Exiv2::Exifdatum& datum) {
    const long count = datum.count();
    switch (datum.typeId()) {
        case Exiv2::asciiString:
            return datum.toString();
        case Exiv2::unsignedByte:
        case Exiv2::signedByte:
        case Exiv2::unsignedShort:
        case Exiv2::signedShort:
        case Exiv2::unsignedLong:
        case Exiv2::signedLong:
        case Exiv2::tiffIfd: {
            if (count == 1) {
                return static_cast<std::int64_t>(datum.toLong(0));
            }
            std::vector<std::int64_t> numbers;
            for (long i = 0; i < count; ++i) {
                numbers.push_back(datum.toLong(i));
            }
            return numbers.empty() ? MetadataValue{} : MetadataValue{std::move(numbers)};
        }
        case Exiv2::unsignedRational:
        case Exiv2::signedRational: {
            std::vector<PackedRational> rationals;
            for (long i = 0; i < count; ++i) {
                const Exiv2::Rational r = datum.toRational(i);
                rationals.push_back(PackedRational::From(static_cast<std::uint32_t>(r.first),
                                                         static_cast<std::uint32_t>(r.second)));
            }
            if (rationals.size() == 1) {
                return rationals.front();
            }
            return rationals.empty() ? MetadataValue{} : MetadataValue{std::move(rationals)};
        }
        default: {
            MetadataBlob blob(static_cast<std::size_t>(datum.size()));
            if (!blob.empty()) {
                datum.copy(blob.data(), Exiv2::invalidByteOrder);
            }
            return blob;
        }
    }
}

MetadataValue XmpValue(const Exiv2::Xmpdatum& datum) {
    const Exiv2::Value& value = datum.value();
    switch (value.typeId()) {
        case Exiv2::xmpBag:
        case Exiv2::xmpSeq:
        case Exiv2::xmpAlt: {
            std::vector<std::string> items;
            for (long i = 0; i < value.count(); ++i) {
                items.push_back(value.toString(i));
            }
            return items;
        }
        case Exiv2::langAlt: {
            const auto& alternatives = static_cast<const Exiv2::LangAltValue&>(value);
            const auto defaultText = alternatives.value_.find("x-default");
            if (defaultText != alternatives.value_.end()) {
                return defaultText->second;
            }
            if (!alternatives.value_.empty()) {
                return alternatives.value_.begin()->second;
            }
            return {};
        }
        default:
            return value.toString();
    }
}

Result MetadataQueryReader::Create(std::span<const std::uint8_t> file, const Guid& container,
                                   std::uint32_t frameIndex, const FrameMetadataBlocks& blocks,
                                   std::unique_ptr<MetadataQueryReader>& reader) {
    reader.reset();
    // The XMP toolkit must have its lock before any thread parses a packet.
    InitialiseMetadata();
    auto store = std::make_unique<Store>();
    store->tiffStructured = IsTiffStructured(container);
    try {
        if (frameIndex == 0 && container == container::Wmp) {
            if (!DecodeHdPhoto(file, *store) && blocks.exif.empty() && blocks.xmp.empty()) {
                return WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
            }
        } else if (frameIndex == 0 && !file.empty()) {
            try {
                auto image = Exiv2::ImageFactory::open(file.data(), static_cast<long>(file.size()));
                image->readMetadata();
                // The size first: the library reads a TIFF's from its EXIF entries.
                store->reportedSize = {
                    static_cast<std::uint32_t>(std::max(0, image->pixelWidth())),
                    static_cast<std::uint32_t>(std::max(0, image->pixelHeight()))};
                store->exif = std::move(image->exifData());
                store->xmp = std::move(image->xmpData());
                store->iptc = std::move(image->iptcData());
            } catch (const Exiv2::AnyError& error) {
                // Containers the library does not read (HEIF, JPEG XL, ...) and files it
                // stumbles over (a garbage ICC segment in an otherwise good JPEG) are read
                // from the blocks the decoder found itself, so one damaged segment does not
                // cost the picture its date, exposure and marks.
                if (IsMetadataBearing(container) && blocks.exif.empty() && blocks.xmp.empty()) {
                    if (!IsUnknownFormat(error)) {
                        throw;
                    }
                    return WINCODEC_ERR_UNKNOWNIMAGEFORMAT;
                }
                *store = Store{};
                store->tiffStructured = IsTiffStructured(container);
            }
        }
        DecodeBlocks(blocks, *store);
    } catch (const Exiv2::AnyError&) {
        return WINCODEC_ERR_BADMETADATAHEADER;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return WINCODEC_ERR_BADMETADATAHEADER;
    }
    reader.reset(new MetadataQueryReader(std::move(store)));
    return S_OK;
}

MetadataQueryReader::MetadataQueryReader(std::unique_ptr<Store> store) : store_(std::move(store)) {
}

MetadataQueryReader::~MetadataQueryReader() = default;

Result MetadataQueryReader::GetMetadataByName(std::string_view name, MetadataValue& value) const {
    try {
        if (name.starts_with("System.")) {
            return QueryPhotoProperty(*store_, name, value);
        }
        return QueryPath(*store_, name, value);
    } catch (...) {
        // The library throws for values it cannot convert; to the caller that is a query
        // that found nothing.
        return WINCODEC_ERR_PROPERTYNOTFOUND;
    }
}

bool MetadataQueryReader::TiffStructured() const {
    return store_->tiffStructured;
}

PixelSize MetadataQueryReader::ReportedSize() const {
    return store_->reportedSize;
}

}  // namespace orvanta::imaging

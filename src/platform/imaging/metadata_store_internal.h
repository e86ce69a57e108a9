// The parsed metadata behind a MetadataQueryReader, and the lookups that the path reader
// and the photo-property policy share. Only the reader's own sources include this header:
// it is the one place the metadata library's headers come in. Single-thread, like the
// reader that owns it.
#pragma once

#include <cstdint>
#include <string_view>

// The library's headers still name std::auto_ptr.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

#include "platform/imaging/metadata_query_reader.h"

namespace orvanta::imaging {

struct MetadataQueryReader::Store {
    Exiv2::ExifData exif;
    Exiv2::XmpData xmp;
    Exiv2::IptcData iptc;
    bool tiffStructured = false;
    PixelSize reportedSize;

    // The EXIF entry `tag` of the IFD the library calls `group` ("Image", "Photo",
    // "GPSInfo", "Iop"); nullptr when absent.
    const Exiv2::Exifdatum* FindExif(std::uint16_t tag, std::string_view group) const;
    // The XMP property prefix:name (a known prefix, in any form the file bound to the same
    // namespace); nullptr when absent or the prefix is unknown.
    const Exiv2::Xmpdatum* FindXmp(std::string_view prefix, std::string_view name) const;
};

// The typed value of an EXIF entry: ASCII as a string, integers as numbers, rationals
// packed, undefined bytes as a blob; several values as a list.
MetadataValue ExifValue(const Exiv2::Exifdatum& datum);
// An XMP property: simple text as a string, an array as its items, alternative text as
// its default language.
MetadataValue XmpValue(const Exiv2::Xmpdatum& datum);

// Answers a "System.*" property name; WINCODEC_ERR_PROPERTYNOTFOUND for names the policy
// does not know and for properties the file lacks. May throw the library's errors.
Result QueryPhotoProperty(const MetadataQueryReader::Store& store, std::string_view name,
                          MetadataValue& value);

}  // namespace orvanta::imaging

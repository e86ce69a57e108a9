// The metadata query reader: answers the query names and paths of the platform's metadata
// component over exiv2. Photo property names ("System.Photo.DateTaken", "System.Rating",
// ...) try the EXIF and XMP candidates that the platform's metadata policy would try and
// come back in the property's type; query paths address one item: "/app1/ifd/exif/
// {ushort=33434}" in a JPEG, "/ifd/exif/{ushort=33434}" in a TIFF-structured file,
// "/xmp/exif:FNumber" or "/ifd/xmp/exif:FNumber" (also "/ifd/{ushort=700}/..."), an array
// item "/xmp/exif:ISOSpeedRatings/" (the first) or ".../{ulong=N}", a structure field
// "/xmp/exif:Flash/exif:Fired", IPTC data sets "/app13/irb/8bimiptc/iptc/{str=Keywords}"
// or "/ifd/iptc/{str=Keywords}". Paths use the roots of the reader's container class: a
// JPEG-style path on a TIFF-structured file is not found, as on the platform.
//
// A reader is made for one frame of one file from the bytes the decoder already holds (no
// second open) and keeps its own copy of the parsed values. Thread rules: a reader is used
// by one thread at a time; readers of different files may run on several threads at once
// once InitialiseMetadata() has run.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "platform/imaging/bitmap_source.h"
#include "platform/imaging/decoder.h"
#include "platform/imaging/guid.h"
#include "platform/imaging/metadata_value.h"

namespace orvanta::imaging {

// The platform's codes for a query that finds nothing and for metadata it cannot parse.
inline constexpr Result WINCODEC_ERR_PROPERTYNOTFOUND{0x88982F40u};
inline constexpr Result WINCODEC_ERR_BADMETADATAHEADER{0x88982F63u};
inline constexpr Result WINCODEC_ERR_UNKNOWNIMAGEFORMAT{0x88982F07u};

// Prepares the metadata library for use from several threads: installs the lock of the XMP
// toolkit and keeps the library from printing. Idempotent and thread-safe; start-up and
// orvanta-cli call it before any worker thread starts.
void InitialiseMetadata();
bool MetadataInitialised();

// TIFF, HD Photo and the TIFF-structured raw containers: their queries use the "/ifd" roots.
bool IsTiffStructured(const Guid& container);
// Containers whose metadata the reader is asked about: every TIFF-structured one, JPEG and
// the raw containers that carry their metadata in other structures (CR2 and CRW, RW2).
bool IsMetadataBearing(const Guid& container);

class MetadataQueryReader {
public:
    // Parses the metadata of frame `frameIndex` of a file of `container`. Frame 0 is read
    // from the file's bytes, with the frame's blocks filling what the file parse lacks;
    // other frames, and containers the library cannot parse (HEIF, JPEG XL, WebP, ...), are
    // read from the frame's blocks alone. A file with no metadata gives a reader that finds
    // nothing; a container whose metadata is damaged gives WINCODEC_ERR_BADMETADATAHEADER.
    // The bytes need only live during the call.
    static Result Create(std::span<const std::uint8_t> file, const Guid& container,
                         std::uint32_t frameIndex, const FrameMetadataBlocks& blocks,
                         std::unique_ptr<MetadataQueryReader>& reader);
    ~MetadataQueryReader();
    MetadataQueryReader(const MetadataQueryReader&) = delete;
    MetadataQueryReader& operator=(const MetadataQueryReader&) = delete;

    // S_OK with the value, or WINCODEC_ERR_PROPERTYNOTFOUND (also for a malformed path or a
    // value that cannot take the property's type). Never throws.
    Result GetMetadataByName(std::string_view name, MetadataValue& value) const;

    bool TiffStructured() const;
    // The picture size the container's headers give; {0, 0} when they give none.
    PixelSize ReportedSize() const;

    struct Store;  // the parsed values; defined where the library's headers are included

private:
    explicit MetadataQueryReader(std::unique_ptr<Store> store);
    std::unique_ptr<Store> store_;
};

}  // namespace orvanta::imaging

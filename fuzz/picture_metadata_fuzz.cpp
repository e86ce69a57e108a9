// ReadPictureMetadata on arbitrary bytes, read as each container class would have them:
// the first byte picks the container, the rest is the file (and, for the containers the
// library does not parse, the frame's EXIF and XMP blocks).
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "metadata/orientation_transform.h"
#include "metadata/picture_metadata.h"
#include "platform/imaging/metadata_query_reader.h"

namespace {

constexpr std::size_t kMaxInput = 4 * 1024 * 1024;

constexpr std::array kContainers = {
    orvanta::imaging::container::Jpeg, orvanta::imaging::container::Tiff,
    orvanta::imaging::container::Wmp,  orvanta::imaging::container::Nef,
    orvanta::imaging::container::Cr2,  orvanta::imaging::container::Rw2,
    orvanta::imaging::container::Dng,  orvanta::imaging::container::Heif,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvanta;
    if (size < 1 || size > kMaxInput) {
        return 0;
    }
    imaging::InitialiseMetadata();
    const imaging::Guid container = kContainers[data[0] % kContainers.size()];
    const auto bytes =
        imaging::FileBytes::FromMemory(std::vector<std::uint8_t>(data + 1, data + size));
    metadata::MetadataFrame frame{bytes.get(), container, 1, 0, {1, 1}, {}};
    if (container == imaging::container::Heif) {
        const auto all = bytes->Bytes();
        frame.blocks.exif = all.first(all.size() / 2);
        frame.blocks.xmp = all.subspan(all.size() / 2);
    }
    metadata::PictureMetadata record;
    (void)metadata::ReadPictureMetadata("fuzz.jpg", record, frame, "");
    std::unique_ptr<imaging::MetadataQueryReader> reader;
    if (imaging::MetadataQueryReader::Create(bytes->Bytes(), container, 0, frame.blocks, reader)
            .Succeeded()) {
        imaging::MetadataValue value;
        (void)metadata::ReadOrientationTransform(*reader);
        (void)reader->GetMetadataByName("System.GPS.Date", value);
        (void)reader->GetMetadataByName("/app13/irb/8bimiptc/iptc/{str=Keywords}", value);
    }
    return 0;
}

#include "metadata/orientation_transform.h"

#include "metadata/metadata_values.h"
#include "metadata/query_paths.h"

namespace orvanta::metadata {

std::uint32_t TransformFromOrientation(std::int64_t orientation) {
    switch (orientation) {
        case 2:
            return kTransformFlipHorizontal;
        case 3:
            return kTransformFlipHorizontal | kTransformFlipVertical;
        case 4:
            return kTransformFlipVertical;
        case 5:
            return kTransformRotate90 | kTransformFlipHorizontal;
        case 6:
            return kTransformRotate90;
        case 7:
            return kTransformRotate270 | kTransformFlipHorizontal;
        case 8:
            return kTransformRotate270;
        default:
            return kTransformRotate0;
    }
}

std::uint32_t ReadOrientationTransform(const imaging::MetadataQueryReader& reader) {
    imaging::MetadataValue value;
    if (reader.GetMetadataByName("System.Photo.Orientation", value) != S_OK &&
        reader.GetMetadataByName(QueryPaths(reader.TiffStructured()).Xmp("/xmp/tiff:Orientation"),
                                 value) != S_OK) {
        return kTransformRotate0;
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return TransformFromOrientation(DecimalValue(*text));
    }
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return TransformFromOrientation(*number);
    }
    return kTransformRotate0;
}

}  // namespace orvanta::metadata

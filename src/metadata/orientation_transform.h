// The flip and rotation that show a frame upright, from its EXIF orientation, as the
// platform's transform options. Pure function over a query reader; single-thread like the
// reader.
#pragma once

#include <cstdint>

#include "platform/imaging/metadata_query_reader.h"

namespace orvanta::metadata {

// The platform's transform options; a rotation may be combined with a flip.
inline constexpr std::uint32_t kTransformRotate0 = 0;
inline constexpr std::uint32_t kTransformRotate90 = 1;
inline constexpr std::uint32_t kTransformRotate180 = 2;
inline constexpr std::uint32_t kTransformRotate270 = 3;
inline constexpr std::uint32_t kTransformFlipHorizontal = 8;
inline constexpr std::uint32_t kTransformFlipVertical = 16;

// The transform for an EXIF orientation 1..8; 0 for anything else.
std::uint32_t TransformFromOrientation(std::int64_t orientation);
// Reads "System.Photo.Orientation", then the XMP tiff:Orientation text; 0 when neither
// gives an orientation 2..8.
std::uint32_t ReadOrientationTransform(const imaging::MetadataQueryReader& reader);

}  // namespace orvanta::metadata

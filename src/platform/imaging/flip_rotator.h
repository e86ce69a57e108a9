// The flip-rotator: a stage that turns its input by a multiple of 90 degrees clockwise and
// then mirrors it, as the platform's transform options combine (the rotation first, then
// the flips). It serves any rectangle by mapping it to the input rectangle that holds the
// same pixels, pulled in bands through scratch kept between calls. A pure horizontal flip
// keeps its input's row order and so its access pattern; every other transform needs random
// access and puts Materialized() over a sequential input (one full decode).
//
// Thread rules: as every source, one thread at a time. Transform values are plain data.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/imaging/bitmap_source.h"

namespace orvanta::imaging {

// The platform's transform option values; a rotation combines with either flip.
enum class Transform : std::uint32_t {
    Rotate0 = 0,
    Rotate90 = 1,
    Rotate180 = 2,
    Rotate270 = 3,
    FlipHorizontal = 8,
    FlipVertical = 16,
};

constexpr Transform operator|(Transform a, Transform b) {
    return static_cast<Transform>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

// The transform that shows a picture upright from its EXIF orientation (1 to 8); Rotate0
// for any other value.
Transform OrientationTransform(int exifOrientation);

// The input untouched for a transform that changes nothing (Rotate0, or a combination such
// as Rotate180 with both flips). nullptr for a null input, a value with bits outside the
// options, or a format whose pixels are not whole bytes (convert it first).
std::unique_ptr<BitmapSource> FlipRotated(std::unique_ptr<BitmapSource> source,
                                          Transform transform);

}  // namespace orvanta::imaging

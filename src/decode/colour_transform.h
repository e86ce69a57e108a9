// The colour-transform stage: converts 8-bit B, G, R pixels (Bgr24, Bgr32, Bgra32 and
// Pbgra32, whose colour is unpremultiplied for the conversion and premultiplied again) from
// one profile to another. lcms2 builds and checks every transform. When both profiles are
// matrix-shaper profiles (the usual RGB working spaces, most camera and monitor profiles) the
// pixels go through our own path: a table from each 8-bit value to linear light, the 3 x 3
// matrix from source to target primaries in SIMD, and a fine table back to 8 bits; it agrees
// with lcms2 to within one level per channel. Other profiles go through lcms2.
//
// Thread rules: a ColourTransform is immutable once made and may be shared by threads; the
// stage is used by one thread at a time, as every source.
#pragma once

#include <cstdint>
#include <memory>

#include "decode/colour_profiles.h"
#include "platform/imaging/bitmap_source.h"

namespace orvanta::decode {

// The platform's code for a pixel format the colour transformer does not take.
inline constexpr Result WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT{0x88982F80u};
// The code the colour system gives a profile it refuses (ERROR_INVALID_PROFILE).
inline constexpr Result E_INVALID_PROFILE{0x800707DBu};

// True for the formats the stage converts.
bool CanTransformColour(imaging::PixelFormat format);

class ColourTransform {
public:
    // WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT for a format CanTransformColour() refuses;
    // E_INVALID_PROFILE when lcms2 cannot make a transform between the two profiles.
    static Result Create(const Profile& source, const Profile& target, imaging::PixelFormat format,
                         std::shared_ptr<const ColourTransform>& transform);
    ~ColourTransform();
    ColourTransform(const ColourTransform&) = delete;
    ColourTransform& operator=(const ColourTransform&) = delete;

    imaging::PixelFormat Format() const { return format_; }
    // True when the pixels take our matrix-shaper path rather than lcms2's.
    bool MatrixShaper() const { return fast_ != nullptr; }

    // Converts `width` pixels of one row in place.
    void Apply(std::byte* row, std::uint32_t width) const;
    // The same through lcms2 alone, the reference the matrix-shaper path is held to.
    void ApplyWithLcms(std::byte* row, std::uint32_t width) const;

    struct Tables;

private:
    ColourTransform(imaging::PixelFormat format, void* lcms, std::unique_ptr<Tables> fast);

    imaging::PixelFormat format_;
    void* lcms_;  // cmsHTRANSFORM, owned
    std::unique_ptr<Tables> fast_;
};

// The stage; nullptr for a null source, a null transform or a source whose format differs
// from the transform's.
std::unique_ptr<imaging::BitmapSource> ColourTransformed(
    std::unique_ptr<imaging::BitmapSource> source,
    std::shared_ptr<const ColourTransform> transform);

// When `source` is a colour stage, replaces it with the source the stage reads and returns
// the stage's transform, so that the caller converts the rows itself (the banded copy does,
// piece by piece, with its counting); otherwise returns nullptr and leaves `source` alone.
std::shared_ptr<const ColourTransform> TakeApartColourStage(
    std::unique_ptr<imaging::BitmapSource>& source);

}  // namespace orvanta::decode

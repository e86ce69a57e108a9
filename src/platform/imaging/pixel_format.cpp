#include "platform/imaging/pixel_format.h"

#include <array>

namespace orvanta::imaging {

namespace {

// Platform identifiers where the platform has the format; gray with alpha has none, so it
// gets identifiers of our own.
constexpr std::array kFormats = {
    PixelFormatInfo{PixelFormat::Unknown, Guid{}, 0, 0, 0, false, false, false, "Unknown"},
    PixelFormatInfo{PixelFormat::Pbgra32, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc910"), 32, 4,
                    8, true, true, false, "32bppPBGRA"},
    PixelFormatInfo{PixelFormat::Bgra32, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc90f"), 32, 4, 8,
                    true, false, false, "32bppBGRA"},
    PixelFormatInfo{PixelFormat::Bgr32, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc90e"), 32, 3, 8,
                    false, false, false, "32bppBGR"},
    PixelFormatInfo{PixelFormat::Bgr24, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc90c"), 24, 3, 8,
                    false, false, false, "24bppBGR"},
    PixelFormatInfo{PixelFormat::Bgr565, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc90a"), 16, 3, 5,
                    false, false, false, "16bppBGR565"},
    PixelFormatInfo{PixelFormat::Bgr555, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc909"), 16, 3, 5,
                    false, false, false, "16bppBGR555"},
    PixelFormatInfo{PixelFormat::BlackWhite, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc905"), 1, 1,
                    1, false, false, false, "BlackWhite"},
    PixelFormatInfo{PixelFormat::Indexed1, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc901"), 1, 1,
                    1, false, false, true, "1bppIndexed"},
    PixelFormatInfo{PixelFormat::Indexed2, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc902"), 2, 1,
                    2, false, false, true, "2bppIndexed"},
    PixelFormatInfo{PixelFormat::Indexed4, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc903"), 4, 1,
                    4, false, false, true, "4bppIndexed"},
    PixelFormatInfo{PixelFormat::Indexed8, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc904"), 8, 1,
                    8, false, false, true, "8bppIndexed"},
    PixelFormatInfo{PixelFormat::Gray8, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc908"), 8, 1, 8,
                    false, false, false, "8bppGray"},
    PixelFormatInfo{PixelFormat::Gray16, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc90b"), 16, 1,
                    16, false, false, false, "16bppGray"},
    PixelFormatInfo{PixelFormat::Rgb24, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc90d"), 24, 3, 8,
                    false, false, false, "24bppRGB"},
    PixelFormatInfo{PixelFormat::Rgba32, MakeGuid("f5c7ad2d-6a8d-43dd-a7a8-a29935261ae9"), 32, 4, 8,
                    true, false, false, "32bppRGBA"},
    PixelFormatInfo{PixelFormat::Rgb48, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc915"), 48, 3, 16,
                    false, false, false, "48bppRGB"},
    PixelFormatInfo{PixelFormat::Rgba64, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc916"), 64, 4,
                    16, true, false, false, "64bppRGBA"},
    PixelFormatInfo{PixelFormat::Prgba64, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc917"), 64, 4,
                    16, true, true, false, "64bppPRGBA"},
    PixelFormatInfo{PixelFormat::Bgra64, MakeGuid("1562ff7c-d352-46f9-979e-42976b792246"), 64, 4,
                    16, true, false, false, "64bppBGRA"},
    PixelFormatInfo{PixelFormat::Cmyk32, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc91c"), 32, 4, 8,
                    false, false, false, "32bppCMYK"},
    PixelFormatInfo{PixelFormat::Cmyk64, MakeGuid("6fddc324-4e03-4bfe-b185-3d77768dc91f"), 64, 4,
                    16, false, false, false, "64bppCMYK"},
    PixelFormatInfo{PixelFormat::GrayAlpha16, MakeGuid("a4b2c61e-5d0f-4e8a-9b73-2f6c1d8e0a11"), 16,
                    2, 8, true, false, false, "16bppGrayAlpha"},
    PixelFormatInfo{PixelFormat::GrayAlpha32, MakeGuid("a4b2c61e-5d0f-4e8a-9b73-2f6c1d8e0a12"), 32,
                    2, 16, true, false, false, "32bppGrayAlpha"},
};

constexpr bool TableInEnumOrder() {
    for (std::size_t i = 0; i < kFormats.size(); ++i) {
        if (static_cast<std::size_t>(kFormats[i].format) != i) {
            return false;
        }
    }
    return true;
}
static_assert(TableInEnumOrder(), "Info() indexes the table by the enum value");

}  // namespace

const PixelFormatInfo& Info(PixelFormat format) {
    const auto index = static_cast<std::size_t>(format);
    return index < kFormats.size() ? kFormats[index] : kFormats[0];
}

std::span<const PixelFormatInfo> AllPixelFormats() {
    return kFormats;
}

PixelFormat PixelFormatFromGuid(const Guid& id) {
    for (const auto& info : kFormats) {
        if (info.id == id && !id.IsNull()) {
            return info.format;
        }
    }
    return PixelFormat::Unknown;
}

}  // namespace orvanta::imaging

#include "decode/colour_profiles.h"

#include <lcms2.h>

namespace orvanta::decode {

namespace {

using CurveHandle = std::unique_ptr<cmsToneCurve, decltype(&cmsFreeToneCurve)>;

Profile MakeRgbProfile(const cmsCIExyY& white, const cmsCIExyYTRIPLE& primaries,
                       cmsToneCurve* curve, const char* description) {
    cmsToneCurve* curves[3] = {curve, curve, curve};
    Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
    if (!profile) {
        return profile;
    }
    std::unique_ptr<cmsMLU, decltype(&cmsMLUfree)> text(cmsMLUalloc(nullptr, 1), &cmsMLUfree);
    if (text && cmsMLUsetASCII(text.get(), "en", "US", description)) {
        cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, text.get());
    }
    return profile;
}

}  // namespace

void ProfileCloser::operator()(void* profile) const {
    cmsCloseProfile(static_cast<cmsHPROFILE>(profile));
}

Profile OpenProfile(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || bytes.size() > 0xFFFFFFFFu) {
        return nullptr;
    }
    return Profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

Profile OpenProfileFile(const std::filesystem::path& path) {
    return Profile(cmsOpenProfileFromFile(path.c_str(), "r"));
}

Profile SrgbProfile() {
    return Profile(cmsCreate_sRGBProfile());
}

Profile AdobeRgbProfile() {
    const cmsCIExyY d65{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
    const CurveHandle curve(cmsBuildGamma(nullptr, 563.0 / 256.0), &cmsFreeToneCurve);
    return curve ? MakeRgbProfile(d65, primaries, curve.get(), "Adobe RGB (1998)") : nullptr;
}

Profile ProPhotoRgbProfile() {
    const cmsCIExyY d50{0.3457, 0.3585, 1.0};
    const cmsCIExyYTRIPLE primaries{
        {0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    // Y = X^1.8 from X = 1/32 (16 times the linear threshold of 1/512), Y = X/16 below.
    const double parameters[5] = {1.8, 1.0, 0.0, 1.0 / 16.0, 1.0 / 32.0};
    const CurveHandle curve(cmsBuildParametricToneCurve(nullptr, 4, parameters), &cmsFreeToneCurve);
    return curve ? MakeRgbProfile(d50, primaries, curve.get(), "ProPhoto RGB") : nullptr;
}

std::string ProfileDescription(const Profile& profile) {
    if (!profile) {
        return {};
    }
    const cmsUInt32Number length =
        cmsGetProfileInfoASCII(profile.get(), cmsInfoDescription, "en", "US", nullptr, 0);
    if (length <= 1) {
        return {};
    }
    std::string text(length, '\0');
    cmsGetProfileInfoASCII(profile.get(), cmsInfoDescription, "en", "US", text.data(), length);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    return text;
}

bool DescribesSrgb(std::string_view description) {
    return description == "sRGB" || description.find("sRGB ") != std::string_view::npos;
}

bool IsRgbProfile(const Profile& profile) {
    return profile && cmsGetColorSpace(profile.get()) == cmsSigRgbData;
}

std::vector<std::uint8_t> ProfileBytes(const Profile& profile) {
    cmsUInt32Number size = 0;
    if (!profile || !cmsSaveProfileToMem(profile.get(), nullptr, &size) || size == 0) {
        return {};
    }
    std::vector<std::uint8_t> bytes(size);
    if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) {
        return {};
    }
    bytes.resize(size);
    return bytes;
}

}  // namespace orvanta::decode

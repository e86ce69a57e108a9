// Colour profiles for the colour step, held through lcms2: profiles read from a picture's
// embedded data or from a file, and the working spaces the program carries itself (sRGB,
// Adobe RGB (1998) and ProPhoto RGB, built from their published primaries, white points and
// tone curves). A Profile is single-owner; lcms2 profiles are not shared between threads,
// so each decode opens its own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::decode {

struct ProfileCloser {
    void operator()(void* profile) const;
};
// An open lcms2 profile (cmsHPROFILE); null when none.
using Profile = std::unique_ptr<void, ProfileCloser>;

// The names under which the built-in spaces are shown.
inline constexpr std::string_view kSrgbName = "sRGB IEC61966-2.1";
inline constexpr std::string_view kAdobeRgbName = "Adobe RGB";
inline constexpr std::string_view kProPhotoRgbName = "ProPhoto RGB";

// Null when lcms2 cannot parse the bytes or the file.
Profile OpenProfile(std::span<const std::uint8_t> bytes);
Profile OpenProfileFile(const std::filesystem::path& path);

Profile SrgbProfile();
Profile AdobeRgbProfile();     // D65, gamma 563/256
Profile ProPhotoRgbProfile();  // D50, gamma 1.8 with the linear toe of ROMM RGB

// The ICC description tag (ASCII; other characters as "?"); empty when there is none.
std::string ProfileDescription(const Profile& profile);
// A description that names sRGB ("sRGB", or any text holding "sRGB ").
bool DescribesSrgb(std::string_view description);
// True for an RGB profile lcms2 can use as the source or target of an RGB transform.
bool IsRgbProfile(const Profile& profile);
// The profile as ICC bytes, for embedding in a file.
std::vector<std::uint8_t> ProfileBytes(const Profile& profile);

}  // namespace orvanta::decode

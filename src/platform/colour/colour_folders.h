// Where colour profiles live: the freedesktop ICC folders, the user's own first. Stands in
// for the system colour directory. Pure lookups on the file system; thread-safe.
#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

namespace orvanta::platform {

// ${XDG_DATA_HOME:-~/.local/share}/icc, /usr/local/share/color/icc, /usr/share/color/icc.
std::vector<std::filesystem::path> ColourProfileFolders();
// The full path of the profile file `name` in the first folder that holds it; empty when
// none does or when `name` is not a plain file name.
std::filesystem::path FindColourProfile(std::string_view name);

}  // namespace orvanta::platform

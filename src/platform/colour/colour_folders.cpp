#include "platform/colour/colour_folders.h"

#include <cstdlib>
#include <system_error>

namespace orvanta::platform {

std::vector<std::filesystem::path> ColourProfileFolders() {
    std::vector<std::filesystem::path> folders;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/') {
        folders.emplace_back(std::filesystem::path(data) / "icc");
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        folders.emplace_back(std::filesystem::path(home) / ".local/share/icc");
    }
    folders.emplace_back("/usr/local/share/color/icc");
    folders.emplace_back("/usr/share/color/icc");
    return folders;
}

std::filesystem::path FindColourProfile(std::string_view name) {
    // A profile is named by its file name only; anything that walks out of the folders is
    // not a profile name.
    if (name.empty() || name.find('/') != std::string_view::npos || name == "." || name == "..") {
        return {};
    }
    for (const auto& folder : ColourProfileFolders()) {
        std::error_code error;
        const auto path = folder / std::filesystem::path(name);
        if (std::filesystem::is_regular_file(path, error)) {
            return path;
        }
    }
    return {};
}

}  // namespace orvanta::platform

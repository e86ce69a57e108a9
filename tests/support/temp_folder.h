// A temporary folder per test, removed with everything in it when the test ends.
#pragma once

#include <filesystem>

namespace orvanta::test {

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const {
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

// The folder of real camera files, or an empty path when it is absent (tests skip then).
std::filesystem::path TestDataFolder();

}  // namespace orvanta::test

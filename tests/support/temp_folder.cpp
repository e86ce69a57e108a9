#include "support/temp_folder.h"

#include <string>
#include <system_error>

#include <stdlib.h>

namespace orvanta::test {

TempFolder::TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvanta-test-XXXXXX");
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    path_ = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    // Tests may leave read-only folders behind on purpose; make them writable first.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path TestDataFolder() {
    const char* chosen = std::getenv("ORVANTA_TESTDATA");
    std::filesystem::path folder = chosen && *chosen ? chosen : ORVANTA_TESTDATA;
    std::error_code error;
    return std::filesystem::is_directory(folder, error) ? folder : std::filesystem::path();
}

}  // namespace orvanta::test

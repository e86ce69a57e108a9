#include "platform/system/processor_cores.h"

#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>

namespace orvanta::platform {

std::uint32_t ProcessorCoreCount(const std::filesystem::path& sysRoot) {
    std::set<std::pair<std::string, std::string>> cores;
    std::error_code error;
    const auto folder = sysRoot / "devices/system/cpu";
    for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = item.path().filename().string();
        if (name.size() < 4 || name.compare(0, 3, "cpu") != 0 ||
            name.find_first_not_of("0123456789", 3) != std::string::npos) {
            continue;
        }
        std::ifstream online(item.path() / "online");
        std::string state;
        if (online && std::getline(online, state) && state == "0") {
            continue;  // an offline processor keeps no topology
        }
        std::ifstream package(item.path() / "topology/physical_package_id");
        std::ifstream core(item.path() / "topology/core_id");
        std::string packageId;
        std::string coreId;
        if (!std::getline(package, packageId) || !std::getline(core, coreId)) {
            continue;
        }
        cores.emplace(packageId, coreId);
    }
    if (!cores.empty()) {
        return static_cast<std::uint32_t>(cores.size());
    }
    const unsigned logical = std::thread::hardware_concurrency();
    return logical == 0 ? 1 : logical;
}

}  // namespace orvanta::platform

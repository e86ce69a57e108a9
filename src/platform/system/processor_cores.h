// The number of processor cores, for sizing the decode worker pool: distinct (package, core)
// pairs of the online processors in sysfs, so that the hyper-threads of one core count once;
// the number of logical processors when sysfs cannot tell. Thread-safe.
#pragma once

#include <cstdint>
#include <filesystem>

namespace orvanta::platform {

// At least 1. `sysRoot` is normally "/sys"; tests pass a folder laid out the same way.
std::uint32_t ProcessorCoreCount(const std::filesystem::path& sysRoot = "/sys");

}  // namespace orvanta::platform

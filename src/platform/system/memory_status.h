// How much memory the decode cache may spend: the available and total figures in bytes and
// the memory load in percent. The system figures come from /proc/meminfo (MemAvailable,
// MemTotal), lowered to the process's cgroup memory limit (v2 memory.max or v1
// memory.limit_in_bytes) when that is lower, so that a container's limit counts rather than
// the host's RAM. The window code reads the figures through MemoryStatusProvider, so a
// presenter with GPU memory figures or a test can stand in for the system.
//
// Thread rules: the parsers are pure; SystemMemoryStatus::Read reads files and may be called
// from any thread at once.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace orvanta::platform {

struct MemoryFigures {
    std::uint64_t available = 0;  // bytes
    std::uint64_t total = 0;      // bytes; 0 when unknown

    // 100 - available x 100 / total, in 0..100; 100 when the total is unknown.
    std::uint32_t LoadPercent() const;
};

class MemoryStatusProvider {
public:
    virtual ~MemoryStatusProvider() = default;
    virtual MemoryFigures Read() const = 0;
};

// MemAvailable and MemTotal of /proc/meminfo text (kB there); 0 for a missing line.
MemoryFigures ParseMeminfo(std::string_view text);

// A cgroup's limit and use in bytes, as its files give them.
struct CgroupMemory {
    std::uint64_t limit = 0;
    std::uint64_t usage = 0;
};
// Lowers the system figures to a cgroup limit below the total: the total becomes the limit
// and the available memory at most what the limit leaves above the use.
MemoryFigures ApplyCgroupLimit(MemoryFigures system, const CgroupMemory& cgroup);

// The memory cgroup of the process from /proc/self/cgroup text, with the files read under
// `root` (the file-system root; tests pass a folder of their own). None without a limit.
std::optional<CgroupMemory> ReadCgroupMemory(std::string_view selfCgroup,
                                             const std::filesystem::path& root);

class SystemMemoryStatus final : public MemoryStatusProvider {
public:
    explicit SystemMemoryStatus(std::filesystem::path root = "/") : root_(std::move(root)) {}
    MemoryFigures Read() const override;

private:
    std::filesystem::path root_;
};

}  // namespace orvanta::platform

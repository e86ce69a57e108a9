#include "platform/system/memory_status.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <string>

namespace orvanta::platform {

namespace {

std::string ReadText(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<std::uint64_t> Number(std::string_view text) {
    text = Trim(text);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end == text.data()) {
        return std::nullopt;
    }
    return value;
}

// The value of "key: N kB" / "key N" lines.
std::optional<std::uint64_t> Field(std::string_view text, std::string_view key) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        if (line.substr(0, key.size()) != key || line.size() == key.size()) {
            continue;
        }
        const char separator = line[key.size()];
        if (separator != ':' && separator != ' ') {
            continue;
        }
        line.remove_prefix(key.size() + 1);
        line = Trim(line);
        return Number(line.substr(0, line.find(' ')));
    }
    return std::nullopt;
}

// A limit this large means none (v1 writes the largest page-aligned 64-bit number).
constexpr std::uint64_t kNoLimit = std::uint64_t{1} << 60;

}  // namespace

std::uint32_t MemoryFigures::LoadPercent() const {
    if (total == 0) {
        return 100;
    }
    const std::uint64_t free = available > total ? total : available;
    return static_cast<std::uint32_t>(100 - free * 100 / total);
}

MemoryFigures ParseMeminfo(std::string_view text) {
    MemoryFigures figures;
    figures.available = Field(text, "MemAvailable").value_or(0) * 1024;
    figures.total = Field(text, "MemTotal").value_or(0) * 1024;
    return figures;
}

MemoryFigures ApplyCgroupLimit(MemoryFigures system, const CgroupMemory& cgroup) {
    if (cgroup.limit == 0 || cgroup.limit >= kNoLimit ||
        (system.total != 0 && cgroup.limit >= system.total)) {
        return system;
    }
    system.total = cgroup.limit;
    const std::uint64_t left = cgroup.usage >= cgroup.limit ? 0 : cgroup.limit - cgroup.usage;
    if (left < system.available) {
        system.available = left;
    }
    return system;
}

std::optional<CgroupMemory> ReadCgroupMemory(std::string_view selfCgroup,
                                             const std::filesystem::path& root) {
    // Lines "id:controllers:path"; v2 has the one line "0::path", v1 a line whose
    // controllers name memory.
    std::string_view v2Path;
    std::string_view v1Path;
    bool v2 = false;
    bool v1 = false;
    while (!selfCgroup.empty()) {
        const std::size_t end = selfCgroup.find('\n');
        const std::string_view line = selfCgroup.substr(0, end);
        selfCgroup =
            end == std::string_view::npos ? std::string_view{} : selfCgroup.substr(end + 1);
        const std::size_t first = line.find(':');
        const std::size_t second =
            first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second == std::string_view::npos) {
            continue;
        }
        const std::string_view controllers = line.substr(first + 1, second - first - 1);
        const std::string_view path = line.substr(second + 1);
        if (controllers.empty()) {
            v2 = true;
            v2Path = path;
        }
        std::string_view list = controllers;
        while (!list.empty()) {
            const std::size_t comma = list.find(',');
            if (list.substr(0, comma) == "memory") {
                v1 = true;
                v1Path = path;
            }
            list = comma == std::string_view::npos ? std::string_view{} : list.substr(comma + 1);
        }
    }
    const auto relative = [](std::string_view path) {
        while (!path.empty() && path.front() == '/') {
            path.remove_prefix(1);
        }
        return std::filesystem::path(path);
    };
    CgroupMemory memory;
    if (v1) {
        const auto folder = root / "sys/fs/cgroup/memory" / relative(v1Path);
        const auto limit = Number(ReadText(folder / "memory.limit_in_bytes"));
        if (!limit) {
            return std::nullopt;
        }
        memory.limit = *limit;
        memory.usage = Number(ReadText(folder / "memory.usage_in_bytes")).value_or(0);
    } else if (v2) {
        const auto folder = root / "sys/fs/cgroup" / relative(v2Path);
        // "max" reads as no number: no limit.
        const auto limit = Number(ReadText(folder / "memory.max"));
        if (!limit) {
            return std::nullopt;
        }
        memory.limit = *limit;
        memory.usage = Number(ReadText(folder / "memory.current")).value_or(0);
    } else {
        return std::nullopt;
    }
    if (memory.limit == 0 || memory.limit >= kNoLimit) {
        return std::nullopt;
    }
    return memory;
}

MemoryFigures SystemMemoryStatus::Read() const {
    MemoryFigures figures = ParseMeminfo(ReadText(root_ / "proc/meminfo"));
    if (const auto cgroup = ReadCgroupMemory(ReadText(root_ / "proc/self/cgroup"), root_)) {
        figures = ApplyCgroupLimit(figures, *cgroup);
    }
    return figures;
}

}  // namespace orvanta::platform

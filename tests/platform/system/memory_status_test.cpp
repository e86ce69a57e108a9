// Memory figures: /proc/meminfo, the cgroup v1 and v2 limits, and the load in percent.
#include "platform/system/memory_status.h"

#include <gtest/gtest.h>

#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::platform {
namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

void Write(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    test::WriteFile(path, test::Bytes(text.begin(), text.end()));
}

TEST(MemoryStatus, ReadsAvailableAndTotalFromMeminfo) {
    const MemoryFigures figures = ParseMeminfo(
        "MemTotal:       16384000 kB\nMemFree:         1000 kB\nMemAvailable:    4096000 kB\n");
    EXPECT_EQ(figures.total, std::uint64_t{16384000} * 1024);
    EXPECT_EQ(figures.available, std::uint64_t{4096000} * 1024);
    EXPECT_EQ(figures.LoadPercent(), 75u);
    // A kernel without MemAvailable, or no text at all: nothing known, full load.
    const MemoryFigures none = ParseMeminfo("MemTotalX: 5 kB\n");
    EXPECT_EQ(none.total, 0u);
    EXPECT_EQ(none.LoadPercent(), 100u);
    EXPECT_EQ((MemoryFigures{20, 10}).LoadPercent(), 0u);
}

TEST(MemoryStatus, ALowerCgroupLimitCountsInsteadOfTheMachine) {
    const MemoryFigures machine{8192 * kMiB, 16384 * kMiB};
    MemoryFigures limited = ApplyCgroupLimit(machine, {1024 * kMiB, 768 * kMiB});
    EXPECT_EQ(limited.total, 1024 * kMiB);
    EXPECT_EQ(limited.available, 256 * kMiB);
    EXPECT_EQ(limited.LoadPercent(), 75u);
    // Use above the limit leaves nothing; a limit above the machine changes nothing.
    EXPECT_EQ(ApplyCgroupLimit(machine, {1024 * kMiB, 2048 * kMiB}).available, 0u);
    EXPECT_EQ(ApplyCgroupLimit(machine, {32768 * kMiB, 0}).total, 16384 * kMiB);
}

TEST(MemoryStatus, FindsTheProcessCgroupInBothHierarchies) {
    test::TempFolder root;
    Write(root / "sys/fs/cgroup/user.slice/app/memory.max", "536870912\n");
    Write(root / "sys/fs/cgroup/user.slice/app/memory.current", "134217728\n");
    auto v2 = ReadCgroupMemory("0::/user.slice/app\n", root.Path());
    ASSERT_TRUE(v2.has_value());
    EXPECT_EQ(v2->limit, 512 * kMiB);
    EXPECT_EQ(v2->usage, 128 * kMiB);

    Write(root / "sys/fs/cgroup/open/memory.max", "max\n");
    EXPECT_FALSE(ReadCgroupMemory("0::/open\n", root.Path()).has_value());

    Write(root / "sys/fs/cgroup/memory/docker/abc/memory.limit_in_bytes", "268435456\n");
    Write(root / "sys/fs/cgroup/memory/docker/abc/memory.usage_in_bytes", "1048576\n");
    auto v1 =
        ReadCgroupMemory("12:cpu,cpuacct:/docker/abc\n4:memory:/docker/abc\n0::/x\n", root.Path());
    ASSERT_TRUE(v1.has_value());
    EXPECT_EQ(v1->limit, 256 * kMiB);
    EXPECT_EQ(v1->usage, 1 * kMiB);
    // v1's "no limit" is the largest page-aligned number.
    Write(root / "sys/fs/cgroup/memory/free/memory.limit_in_bytes", "9223372036854771712\n");
    EXPECT_FALSE(ReadCgroupMemory("4:memory:/free\n", root.Path()).has_value());

    Write(root / "proc/meminfo", "MemTotal: 4194304 kB\nMemAvailable: 2097152 kB\n");
    Write(root / "proc/self/cgroup", "0::/user.slice/app\n");
    const MemoryFigures figures = SystemMemoryStatus(root.Path()).Read();
    EXPECT_EQ(figures.total, 512 * kMiB);
    EXPECT_EQ(figures.available, 384 * kMiB);
}

}  // namespace
}  // namespace orvanta::platform

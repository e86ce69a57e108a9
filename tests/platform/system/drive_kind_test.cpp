// Drive kinds from a sysfs tree: partitions take their disk's flags, optical drives by
// their SCSI type, removable ones by their flag; and the real machine's answers for files
// that must be on fixed storage.
#include "platform/system/drive_kind.h"

#include <gtest/gtest.h>

#include "platform/system/processor_cores.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::platform {
namespace {

void Write(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    test::WriteFile(path, test::Bytes(text.begin(), text.end()));
}

// A block device folder under devices/ and its dev/block/MAJ:MIN link.
std::filesystem::path Device(const test::TempFolder& sys, const std::string& path,
                             const std::string& number) {
    const auto folder = sys / "devices" / path;
    std::filesystem::create_directories(folder);
    std::filesystem::create_directories(sys / "dev/block");
    std::filesystem::create_directory_symlink(folder, sys / "dev/block" / number);
    return folder;
}

TEST(DriveKind, ReadsTheDisksFlagsFromSysfs) {
    test::TempFolder sys;
    const auto sda = Device(sys, "pci0/ata1/block/sda", "8:0");
    Write(sda / "removable", "0\n");
    Write(sda / "device/type", "0\n");
    const auto sda1 = Device(sys, "pci0/ata1/block/sda/sda1", "8:1");
    Write(sda1 / "partition", "1\n");
    const auto sdb = Device(sys, "usb1/block/sdb", "8:16");
    Write(sdb / "removable", "1\n");
    const auto sdb1 = Device(sys, "usb1/block/sdb/sdb1", "8:17");
    Write(sdb1 / "partition", "1\n");
    Write(sdb1 / "removable", "0\n");  // a partition's own flag is not the disk's
    const auto sr0 = Device(sys, "ata2/block/sr0", "11:0");
    Write(sr0 / "removable", "1\n");
    Write(sr0 / "device/type", "5\n");
    const auto dvd = Device(sys, "usb2/block/sdc", "8:32");
    Write(dvd / "removable", "1\n");
    Write(dvd / "device/type", "5\n");

    EXPECT_EQ(DriveKindOfDevice(8, 0, sys.Path()), DriveKind::Fixed);
    EXPECT_EQ(DriveKindOfDevice(8, 1, sys.Path()), DriveKind::Fixed);
    EXPECT_EQ(DriveKindOfDevice(8, 17, sys.Path()), DriveKind::Removable);
    EXPECT_EQ(DriveKindOfDevice(11, 0, sys.Path()), DriveKind::Optical);
    EXPECT_EQ(DriveKindOfDevice(8, 32, sys.Path()), DriveKind::Optical);
    EXPECT_EQ(DriveKindOfDevice(9, 9, sys.Path()), DriveKind::Fixed);  // unknown device
}

TEST(DriveKind, MissingFilesAndTheTestFolderAreNotThrottled) {
    test::TempFolder folder;
    test::WriteFile(folder / "a.jpg", {});
    // The temporary folder lives on the machine's own storage (or tmpfs).
    EXPECT_EQ(DriveKindOf(folder / "a.jpg"), DriveKind::Fixed);
    EXPECT_EQ(DriveKindOf(folder / "missing.jpg"), DriveKind::Fixed);
}

TEST(ProcessorCores, CountsEachCoreOnceAndSkipsOfflineProcessors) {
    test::TempFolder sys;
    const auto cpu = [&](int n, const char* package, const char* core, const char* online) {
        const auto folder = sys / ("devices/system/cpu/cpu" + std::to_string(n));
        Write(folder / "topology/physical_package_id", package);
        Write(folder / "topology/core_id", core);
        if (online != nullptr) {
            Write(folder / "online", online);
        }
    };
    cpu(0, "0\n", "0\n", nullptr);
    cpu(1, "0\n", "1\n", "1\n");
    cpu(2, "0\n", "0\n", "1\n");  // hyper-thread of core 0
    cpu(3, "1\n", "0\n", "1\n");  // second package
    cpu(4, "1\n", "1\n", "0\n");  // offline
    Write(sys / "devices/system/cpu/cpufreq/x", "");
    EXPECT_EQ(ProcessorCoreCount(sys.Path()), 3u);
    // Without sysfs: the logical processors.
    EXPECT_GE(ProcessorCoreCount(sys / "none"), 1u);
}

}  // namespace
}  // namespace orvanta::platform

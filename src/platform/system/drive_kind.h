// What kind of drive a file lives on, so that slow media are read by fewer decode workers at
// a time: optical drives (one at a time) and removable ones such as card readers and USB
// sticks (two). Found from the file's device: stat's st_dev, or for file systems that report
// an anonymous device (btrfs subvolumes, overlays) the source of the file's mount in
// /proc/self/mountinfo; then the block device's disk in sysfs gives its removable flag and
// its SCSI device type (5 is an optical drive).
//
// Thread rules: pure reads of the file system; safe from any thread.
#pragma once

#include <filesystem>

namespace orvanta::platform {

enum class DriveKind {
    Fixed,  // also network and virtual file systems, and anything that cannot be told
    Removable,
    Optical,
};

DriveKind DriveKindOf(const std::filesystem::path& file);

// The kind of the block device `major`:`minor` (a disk or a partition), read under `sysRoot`
// (normally "/sys"; tests pass a folder laid out the same way).
DriveKind DriveKindOfDevice(unsigned major, unsigned minor, const std::filesystem::path& sysRoot);

}  // namespace orvanta::platform

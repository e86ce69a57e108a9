#include "platform/system/drive_kind.h"

#include <fstream>
#include <sstream>
#include <string>

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "platform/shell/network_path.h"

namespace orvanta::platform {

namespace {

std::string FirstLine(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

}  // namespace

DriveKind DriveKindOfDevice(unsigned major, unsigned minor, const std::filesystem::path& sysRoot) {
    std::error_code error;
    const auto link = sysRoot / "dev/block" / (std::to_string(major) + ":" + std::to_string(minor));
    std::filesystem::path device = std::filesystem::canonical(link, error);
    if (error) {
        return DriveKind::Fixed;
    }
    // A partition's folder sits inside its disk's folder; the flags are the disk's.
    if (std::filesystem::exists(device / "partition", error)) {
        device = device.parent_path();
    }
    // SCSI peripheral type 5: CD/DVD/BD drive.
    if (FirstLine(device / "device/type") == "5" ||
        device.filename().string().substr(0, 2) == "sr") {
        return DriveKind::Optical;
    }
    if (FirstLine(device / "removable") == "1") {
        return DriveKind::Removable;
    }
    return DriveKind::Fixed;
}

DriveKind DriveKindOf(const std::filesystem::path& file) {
    struct stat info {};
    if (stat(file.c_str(), &info) != 0) {
        return DriveKind::Fixed;
    }
    dev_t device = info.st_dev;
    if (major(device) == 0) {
        std::ifstream mounts("/proc/self/mountinfo");
        std::stringstream text;
        text << mounts.rdbuf();
        std::error_code error;
        const auto canonical = std::filesystem::weakly_canonical(file, error);
        const std::string all = text.str();
        const shell::MountRecord mount = shell::MountFor(all, canonical.string());
        struct stat source {};
        if (mount.source.substr(0, 5) != "/dev/" ||
            stat(std::string(mount.source).c_str(), &source) != 0 || !S_ISBLK(source.st_mode)) {
            return DriveKind::Fixed;
        }
        device = source.st_rdev;
    }
    return DriveKindOfDevice(major(device), minor(device), "/sys");
}

}  // namespace orvanta::platform

// Whether a folder lives on a network filesystem, so that the list scans it but never
// watches it (inotify sees only local changes there, and a watch keeps the share busy).
// Decided by the filesystem type: the statfs magic of NFS, SMB/CIFS, AFS, Coda, NCP, 9p
// and Ceph, and for FUSE mounts the type that /proc/self/mountinfo gives (sshfs, rclone,
// s3fs, gvfs, davfs and the like). Thread-safe.
#pragma once

#include <filesystem>
#include <string_view>

namespace orvanta::shell {

bool IsNetworkPath(const std::filesystem::path& path);

// True for a mountinfo filesystem type such as "nfs4", "cifs", "smb3" or "fuse.sshfs".
bool IsNetworkFilesystemType(std::string_view type);

// The filesystem type of the mount that holds `path` (absolute, canonical), read from text
// in the format of /proc/self/mountinfo: the longest mount point that is a prefix of the
// path wins (later lines win a tie, as later mounts hide earlier ones). Empty when none.
std::string_view MountTypeFor(std::string_view mountInfo, std::string_view path);

// The same mount's type and source ("/dev/sdb1", "server:/export", ...); empty when none.
struct MountRecord {
    std::string_view type;
    std::string_view source;
};
MountRecord MountFor(std::string_view mountInfo, std::string_view path);

}  // namespace orvanta::shell

#include "platform/shell/network_path.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/vfs.h>

namespace orvanta::shell {

namespace {

constexpr std::array<std::uint32_t, 11> kNetworkMagics = {
    0x6969,      // NFS
    0x517B,      // SMB
    0xFF534D42,  // CIFS
    0xFE534D42,  // SMB2/3
    0x5346414F,  // AFS
    0x6B414653,  // kAFS
    0x73757245,  // Coda
    0x564C,      // NCP
    0x01021997,  // 9p
    0x00C36400,  // Ceph
    0x47504653,  // GPFS
};
constexpr std::uint32_t kFuseMagic = 0x65735546;

constexpr std::array<std::string_view, 14> kNetworkTypes = {
    "nfs", "nfs4", "cifs",  "smb", "smb2", "smb3",      "smbfs",
    "afs", "coda", "ncpfs", "9p",  "ceph", "glusterfs", "lustre"};
constexpr std::array<std::string_view, 12> kFuseNetworkTypes = {
    "sshfs",    "rclone",    "s3fs",   "gvfsd-fuse", "davfs",  "curlftpfs",
    "smbnetfs", "glusterfs", "cephfs", "gcsfuse",    "goofys", "ceph-fuse"};

// mountinfo escapes blanks and backslashes in paths as octal ("\040").
std::string Unescape(std::string_view field) {
    const auto octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && octal(field[i + 1]) &&
            octal(field[i + 2]) && octal(field[i + 3])) {
            out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                     (field[i + 3] - '0'));
            i += 3;
            continue;
        }
        out += field[i];
    }
    return out;
}

bool IsUnder(std::string_view path, std::string_view mountPoint) {
    if (mountPoint == "/") {
        return true;
    }
    return path.substr(0, mountPoint.size()) == mountPoint &&
           (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
}

}  // namespace

bool IsNetworkFilesystemType(std::string_view type) {
    for (std::string_view t : kNetworkTypes) {
        if (type == t) {
            return true;
        }
    }
    std::string_view sub;
    if (type.substr(0, 5) == "fuse.") {
        sub = type.substr(5);
    } else if (type.substr(0, 8) == "fuseblk.") {
        sub = type.substr(8);
    } else {
        return false;
    }
    for (std::string_view t : kFuseNetworkTypes) {
        if (sub == t) {
            return true;
        }
    }
    return false;
}

std::string_view MountTypeFor(std::string_view mountInfo, std::string_view path) {
    return MountFor(mountInfo, path).type;
}

MountRecord MountFor(std::string_view mountInfo, std::string_view path) {
    MountRecord best;
    std::size_t bestLength = 0;
    bool found = false;
    while (!mountInfo.empty()) {
        const std::size_t end = mountInfo.find('\n');
        std::string_view line = mountInfo.substr(0, end);
        mountInfo = end == std::string_view::npos ? std::string_view{} : mountInfo.substr(end + 1);
        // Fields: id parent major:minor root mountpoint options [optional...] - type source
        std::array<std::string_view, 5> fields;
        std::size_t count = 0;
        std::string_view rest = line;
        while (count < fields.size() && !rest.empty()) {
            const std::size_t blank = rest.find(' ');
            fields[count++] = rest.substr(0, blank);
            rest = blank == std::string_view::npos ? std::string_view{} : rest.substr(blank + 1);
        }
        const std::size_t dash = line.find(" - ");
        if (count < 5 || dash == std::string_view::npos) {
            continue;
        }
        std::string_view type = line.substr(dash + 3);
        const std::size_t typeEnd = type.find(' ');
        std::string_view source =
            typeEnd == std::string_view::npos ? std::string_view{} : type.substr(typeEnd + 1);
        source = source.substr(0, source.find(' '));
        type = type.substr(0, typeEnd);
        const std::string mountPoint = Unescape(fields[4]);
        if (IsUnder(path, mountPoint) && (!found || mountPoint.size() >= bestLength)) {
            best = {type, source};
            bestLength = mountPoint.size();
            found = true;
        }
    }
    return best;
}

bool IsNetworkPath(const std::filesystem::path& path) {
    struct statfs info {};
    if (statfs(path.c_str(), &info) != 0) {
        return false;
    }
    const auto magic = static_cast<std::uint32_t>(info.f_type);
    for (std::uint32_t m : kNetworkMagics) {
        if (magic == m) {
            return true;
        }
    }
    if (magic != kFuseMagic) {
        return false;
    }
    std::ifstream file("/proc/self/mountinfo");
    std::stringstream text;
    text << file.rdbuf();
    std::error_code error;
    const auto canonical = std::filesystem::weakly_canonical(path, error);
    return IsNetworkFilesystemType(MountTypeFor(text.str(), canonical.string()));
}

}  // namespace orvanta::shell

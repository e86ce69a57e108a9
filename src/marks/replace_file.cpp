#include "marks/replace_file.h"

#include <cerrno>
#include <cstdio>
#include <random>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvanta::marks {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return fd_; }
    int Close() {
        const int closed = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return closed;
    }

private:
    int fd_;
};

Result WriteAll(int fd, std::span<const std::uint8_t> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return ResultFromErrno(errno);
        }
        done += static_cast<std::size_t>(n);
    }
    return S_OK;
}

// The rename itself is durable only once the folder's entry is on the disk.
void FlushFolder(const std::filesystem::path& folder) {
    const int fd =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

}  // namespace

std::filesystem::path TemporarySibling(const std::filesystem::path& path) {
    thread_local std::mt19937_64 random{std::random_device{}()};
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".%013llX",
                  static_cast<unsigned long long>(random() & 0xFFFFFFFFFFFFFull));
    std::filesystem::path sibling = path;
    sibling += suffix;
    return sibling;
}

Result ReplaceFile(const std::filesystem::path& path, std::span<const std::uint8_t> bytes,
                   const ReplaceOptions& options) {
    struct stat old {};
    const bool hadOld = ::stat(path.c_str(), &old) == 0;

    const std::filesystem::path temporary = TemporarySibling(path);
    Descriptor file{::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644)};
    if (file.Get() < 0) {
        return ResultFromErrno(errno);
    }
    auto fail = [&](int error) {
        file.Close();
        ::unlink(temporary.c_str());
        return ResultFromErrno(error);
    };
    if (const Result written = WriteAll(file.Get(), bytes); written.Failed()) {
        file.Close();
        ::unlink(temporary.c_str());
        return written;
    }
    if (hadOld && options.keepAccess) {
        // Best effort: another user's file keeps our ownership when we may not give it away.
        [[maybe_unused]] const int owned = ::fchown(file.Get(), old.st_uid, old.st_gid);
        ::fchmod(file.Get(), old.st_mode & 07777);
    }
    if (hadOld && options.keepLastWriteTime) {
        const timespec times[2] = {old.st_atim, old.st_mtim};
        if (::futimens(file.Get(), times) != 0) {
            return fail(errno);
        }
    }
    if (::fsync(file.Get()) != 0) {
        return fail(errno);
    }
    if (file.Close() != 0) {
        return fail(errno);
    }

    std::filesystem::path backup;
    if (hadOld && options.backup) {
        // A second name rather than a rename: the picture never goes without its own name,
        // and a file system without hard links just goes without the backup.
        backup = TemporarySibling(path);
        if (::link(path.c_str(), backup.c_str()) != 0) {
            backup.clear();
        }
    }
    if (options.beforeRename) {
        options.beforeRename();
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        if (!backup.empty()) {
            ::unlink(backup.c_str());
        }
        return ResultFromErrno(error);
    }
    FlushFolder(path.parent_path());
    if (!backup.empty()) {
        ::unlink(backup.c_str());
    }
    return S_OK;
}

}  // namespace orvanta::marks

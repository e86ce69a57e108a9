#include "platform/imaging/file_bytes.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvanta::imaging {

namespace {

struct FileCloser {
    int fd;
    ~FileCloser() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

}  // namespace

Result FileBytes::Read(const std::filesystem::path& path, std::shared_ptr<const FileBytes>& out) {
    out.reset();
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return ResultFromErrno(errno);
    }
    FileCloser closer{fd};
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        return ResultFromErrno(errno);
    }
    if (!S_ISREG(info.st_mode)) {
        return HresultFromWin32(ERROR_FILE_NOT_FOUND);
    }
    std::vector<std::uint8_t> bytes;
    try {
        bytes.resize(static_cast<std::size_t>(info.st_size));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    // The file may shrink while we read it (another program still writing): keep what is
    // there and let the codec report the truncation.
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return ResultFromErrno(errno);
        }
        if (n == 0) {
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    bytes.resize(done);
    out.reset(new FileBytes(std::move(bytes), path));
    return S_OK;
}

std::shared_ptr<const FileBytes> FileBytes::FromMemory(std::vector<std::uint8_t> bytes,
                                                       std::filesystem::path name) {
    return std::shared_ptr<const FileBytes>(new FileBytes(std::move(bytes), std::move(name)));
}

}  // namespace orvanta::imaging

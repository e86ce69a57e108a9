#include "metadata/date_taken.h"

#include <cerrno>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "list/supported_formats.h"
#include "metadata/metadata_values.h"
#include "metadata/query_paths.h"
#include "platform/imaging/metadata_query_reader.h"

namespace orvanta::metadata {

namespace {

// The first read of a JPEG: camera JPEGs keep their EXIF block, thumbnail included, well
// inside it.
constexpr std::size_t kJpegFirstRead = 64 * 1024;
// The head of other containers: TIFF-structured raw files keep their directories near the
// start; the whole file is read only when the head holds no date (CRW keeps its directory
// at the end).
constexpr std::size_t kHeadRead = 1024 * 1024;

class File {
public:
    explicit File(const std::filesystem::path& path)
        : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~File() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool Open() const { return fd_ >= 0; }
    std::uint64_t Size() const {
        struct stat info {};
        return ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode)
                   ? static_cast<std::uint64_t>(info.st_size)
                   : 0;
    }
    // Grows `bytes` to `length` (or to where the file ends) by reading what it lacks. A file
    // that shrinks meanwhile ends the read where it ends.
    bool ReadTo(std::vector<std::uint8_t>& bytes, std::size_t length) const {
        std::size_t done = bytes.size();
        bytes.resize(length);
        while (done < length) {
            const ssize_t n =
                ::pread(fd_, bytes.data() + done, length - done, static_cast<off_t>(done));
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                bytes.resize(done);
                return n == 0;
            }
            done += static_cast<std::size_t>(n);
        }
        return true;
    }

private:
    int fd_;
};

enum class JpegScan { Complete, NeedMore, Malformed };

// Walks the markers of a JPEG to the start of its scan: `length` becomes the bytes that
// hold every metadata segment (through the scan header), or the least that must be read
// to go on.
JpegScan JpegMetadataLength(std::span<const std::uint8_t> bytes, std::size_t& length) {
    if (bytes.size() < 2) {
        length = 2;
        return JpegScan::NeedMore;
    }
    if (bytes[0] != 0xFF || bytes[1] != 0xD8) {
        return JpegScan::Malformed;
    }
    std::size_t at = 2;
    for (;;) {
        if (at + 2 > bytes.size()) {
            length = at + 4;
            return JpegScan::NeedMore;
        }
        if (bytes[at] != 0xFF) {
            return JpegScan::Malformed;
        }
        const std::uint8_t marker = bytes[at + 1];
        if (marker == 0xFF) {  // fill byte
            ++at;
            continue;
        }
        if (marker == 0xD9) {  // end of image before any scan
            length = at + 2;
            return JpegScan::Complete;
        }
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {  // no length field
            at += 2;
            continue;
        }
        if (at + 4 > bytes.size()) {
            length = at + 4;
            return JpegScan::NeedMore;
        }
        const std::size_t segment = std::size_t{bytes[at + 2]} << 8 | bytes[at + 3];
        if (segment < 2) {
            return JpegScan::Malformed;
        }
        const std::size_t end = at + 2 + segment;
        if (end > bytes.size()) {
            length = end;
            return JpegScan::NeedMore;
        }
        if (marker == 0xDA) {
            length = end;
            return JpegScan::Complete;
        }
        at = end;
    }
}

// The bytes of a JPEG up to its scan; the whole file when its markers are damaged.
bool ReadJpegHead(const File& file, std::uint64_t fileSize, std::vector<std::uint8_t>& bytes) {
    std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kJpegFirstRead, fileSize));
    for (;;) {
        if (!file.ReadTo(bytes, want)) {
            return false;
        }
        std::size_t length = 0;
        const JpegScan scan = JpegMetadataLength(bytes, length);
        if (scan == JpegScan::Complete) {
            bytes.resize(length);
            return true;
        }
        if (bytes.size() >= fileSize || bytes.size() < want) {
            return true;  // the file ends first: let the reader judge what there is
        }
        if (scan == JpegScan::Malformed) {
            return file.ReadTo(bytes, static_cast<std::size_t>(fileSize));
        }
        want = static_cast<std::size_t>(
            std::min<std::uint64_t>(fileSize, std::max(length, bytes.size() * 2)));
    }
}

std::optional<imaging::FileTime> DateOf(const imaging::MetadataValue& value) {
    if (const auto* time = std::get_if<imaging::FileTime>(&value)) {
        return *time;
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return ParseDateText(*text);
    }
    return std::nullopt;
}

std::optional<imaging::FileTime> DateFromReader(const imaging::MetadataQueryReader& reader,
                                                bool gpsFirst) {
    const QueryPaths paths(reader.TiffStructured());
    imaging::MetadataValue value;
    const auto query = [&](std::string_view name) {
        return reader.GetMetadataByName(name, value) == S_OK;
    };
    std::optional<imaging::FileTime> date;
    if (gpsFirst) {
        if (query("System.GPS.Date")) {
            date = DateOf(value);
        }
        if (!date && query(paths.Xmp("/xmp/exif:GPSTimeStamp"))) {
            date = DateOf(value);
        }
    }
    if (!date && query("System.Photo.DateTaken")) {
        date = DateOf(value);
    }
    if (!date && query(paths.Xmp("/xmp/exif:DateTimeOriginal"))) {
        date = DateOf(value);
    }
    if (!date) {
        if (query(paths.Xmp("/xmp/exif:DateTimeDigitized")) ||
            query(paths.Ifd("/ifd/exif/{ushort=36868}"))) {
            date = DateOf(value);
        }
    }
    return date;
}

std::optional<imaging::FileTime> DateFromBytes(std::span<const std::uint8_t> bytes,
                                               const imaging::Guid& container, bool gpsFirst) {
    std::unique_ptr<imaging::MetadataQueryReader> reader;
    if (imaging::MetadataQueryReader::Create(bytes, container, 0, {}, reader).Failed()) {
        return std::nullopt;
    }
    return DateFromReader(*reader, gpsFirst);
}

}  // namespace

imaging::FileTime ReadDateTaken(const std::filesystem::path& path, imaging::FileTime defaultTime,
                                bool gpsFirst) {
    list::ContainerChoice choice;
    if (!imaging::MetadataInitialised() || !list::LookUpContainer(path, choice) ||
        !imaging::IsMetadataBearing(choice.container)) {
        return defaultTime;
    }
    const File file(path);
    const std::uint64_t size = file.Open() ? file.Size() : 0;
    if (size == 0) {
        return defaultTime;
    }
    std::vector<std::uint8_t> bytes;
    try {
        if (choice.container == imaging::container::Jpeg) {
            if (!ReadJpegHead(file, size, bytes)) {
                return defaultTime;
            }
            return DateFromBytes(bytes, choice.container, gpsFirst).value_or(defaultTime);
        }
        const auto head = static_cast<std::size_t>(std::min<std::uint64_t>(size, kHeadRead));
        if (!file.ReadTo(bytes, head)) {
            return defaultTime;
        }
        if (const auto date = DateFromBytes(bytes, choice.container, gpsFirst)) {
            return *date;
        }
        if (bytes.size() < head || size <= head ||
            !file.ReadTo(bytes, static_cast<std::size_t>(size))) {
            return defaultTime;
        }
        return DateFromBytes(bytes, choice.container, gpsFirst).value_or(defaultTime);
    } catch (const std::bad_alloc&) {
        return defaultTime;
    }
}

}  // namespace orvanta::metadata

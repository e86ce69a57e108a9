#include "marks/embedded_mark_writer.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <exiv2/exiv2.hpp>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "decode/open_decoder.h"
#include "list/picture_entry.h"
#include "marks/labels.h"
#include "marks/replace_file.h"
#include "platform/imaging/component_list.h"
#include "platform/imaging/guid.h"
#include "platform/imaging/metadata_query_reader.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "settings/settings_io.h"

namespace orvanta::marks {

namespace {

// Holds a shared lock on the file for the length of the write; fails when another program
// holds it for writing.
class ReadLock {
public:
    explicit ReadLock(const std::filesystem::path& file)
        : fd_(::open(file.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~ReadLock() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    ReadLock(const ReadLock&) = delete;
    ReadLock& operator=(const ReadLock&) = delete;

    Result Take() {
        if (fd_ < 0) {
            return ResultFromErrno(errno);
        }
        struct flock range {};
        range.l_type = F_RDLCK;
        range.l_whence = SEEK_SET;
        if (::fcntl(fd_, F_OFD_SETLK, &range) != 0) {
            return errno == EAGAIN || errno == EACCES ? E_SHARING_VIOLATION
                                                      : ResultFromErrno(errno);
        }
        if (::flock(fd_, LOCK_SH | LOCK_NB) != 0) {
            return errno == EWOULDBLOCK ? E_SHARING_VIOLATION : ResultFromErrno(errno);
        }
        return S_OK;
    }

private:
    int fd_;
};

bool UpdatesLastWriteTime() {
    platform::RegKey key;
    std::uint32_t value = 0;
    if (platform::RegKey::Open(platform::RegistryStore::User(), settings::kSettingsKey, key) ==
        ERROR_SUCCESS) {
        settings::ReadDword(key, "UpdateLastWriteTimeWhenRating", value);
    }
    return value != 0;
}

void WriteMark(Exiv2::Image& image, const MarkRequest& request, const MarkTime& time) {
    Exiv2::ExifData& exif = image.exifData();
    Exiv2::XmpData& xmp = image.xmpData();
    const std::string date = MetadataDateText(time);
    if (request.isLabel) {
        xmp["Xmp.xmp.Label"] =
            std::string(LabelName(static_cast<std::int32_t>(request.value), request.convention));
        xmp["Xmp.xmp.MetadataDate"] = date;
        if (request.convention == 1 || request.convention == 2) {
            xmp["Xmp.photoshop.Urgency"] = std::to_string(request.value);
        }
    } else if (request.isUrgency) {
        xmp["Xmp.photoshop.Urgency"] = std::to_string(request.value);
    } else {
        const int percent = PercentFromStars(request.value);
        xmp["Xmp.xmp.Rating"] = std::to_string(request.value);
        exif["Exif.Image.Rating"] = static_cast<std::uint16_t>(request.value);
        xmp["Xmp.xmp.MetadataDate"] = date;
        xmp["Xmp.MicrosoftPhoto.Rating"] = std::to_string(percent);
        exif["Exif.Image.RatingPercent"] = static_cast<std::uint16_t>(percent);
    }
    const std::string toolkit(ToolkitText());
    xmp["Xmp.xmp.CreatorTool"] = toolkit;
    xmp["Xmp.tiff.Software"] = toolkit;
    exif["Exif.Image.Software"] = toolkit;
    // IPTC limits the program name to 32 bytes: the product word and version, without the
    // web address.
    image.iptcData()["Iptc.Application2.Program"] = toolkit.substr(0, toolkit.find(" ("));
}

Result Rewrite(std::span<const std::uint8_t> file, bool tiff, const MarkRequest& request,
               const MarkTime& time, std::vector<std::uint8_t>& out) {
    imaging::InitialiseMetadata();
    try {
        auto image = Exiv2::ImageFactory::open(file.data(), static_cast<long>(file.size()));
        const int expected = tiff ? Exiv2::ImageType::tiff : Exiv2::ImageType::jpeg;
        if (image.get() == nullptr || image->imageType() != expected) {
            return E_UNSUPPORTED_TYPE;
        }
        image->readMetadata();
        WriteMark(*image, request, time);
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        if (io.open() != 0) {
            return E_FAIL;
        }
        out.resize(io.size());
        io.seek(0, Exiv2::BasicIo::beg);
        const long read = io.read(out.data(), static_cast<long>(out.size()));
        io.close();
        if (read != static_cast<long>(out.size()) || out.empty()) {
            return E_FAIL;
        }
    } catch (const Exiv2::AnyError& error) {
        // A variant the library does not write (BigTIFF, say) cannot carry the mark.
        const bool unknown = error.code() == Exiv2::kerMemoryContainsUnknownImageType ||
                             error.code() == Exiv2::kerFileContainsUnknownImageType ||
                             error.code() == Exiv2::kerNotAnImage;
        return unknown ? E_UNSUPPORTED_TYPE : E_FAIL;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

// The rewritten file must read as the same container with as many frames as before: the
// library keeps only the directories it knows in a TIFF's chain.
bool KeepsFrames(const imaging::Guid& container, std::uint32_t frames,
                 std::vector<std::uint8_t>& bytes) {
    auto copy = imaging::FileBytes::FromMemory(std::move(bytes));
    std::unique_ptr<imaging::Decoder> decoder;
    const bool same = imaging::ComponentList::Instance()
                          .CreateDecoder(container, imaging::Guid{}, copy, decoder)
                          .Succeeded() &&
                      decoder != nullptr && decoder->FrameCount() == frames;
    decoder.reset();
    bytes.assign(copy->Bytes().begin(), copy->Bytes().end());
    return same;
}

}  // namespace

Result WriteEmbeddedMarkToFile(const std::filesystem::path& file, const MarkRequest& request,
                               const MarkTime& time) {
    ReadLock lock(file);
    if (const Result taken = lock.Take(); taken.Failed()) {
        return taken;
    }
    const bool keepTime = !UpdatesLastWriteTime();
    decode::OpenedPicture picture;
    if (const Result opened = decode::OpenPicture(file, picture); opened.Failed()) {
        return opened;
    }
    const bool jpeg = picture.container == imaging::container::Jpeg;
    const bool tiff = picture.container == imaging::container::Tiff;
    if (!jpeg && !tiff) {
        return E_UNSUPPORTED_TYPE;
    }
    const std::uint32_t frames = picture.decoder->FrameCount();
    if (frames == 0) {
        return S_FALSE;
    }
    picture.decoder.reset();

    std::vector<std::uint8_t> rewritten;
    if (const Result done = Rewrite(picture.bytes->Bytes(), tiff, request, time, rewritten);
        done.Failed()) {
        return done;
    }
    picture.bytes.reset();
    if (!KeepsFrames(picture.container, frames, rewritten)) {
        return E_UNSUPPORTED_TYPE;
    }
    ReplaceOptions options;
    options.keepLastWriteTime = keepTime;
    options.keepAccess = true;
    options.backup = true;
    options.beforeRename = [&request] {
        if (request.entry != nullptr) {
            request.entry->selfReplaced.store(true);
        }
    };
    return ReplaceFile(file, rewritten, options);
}

}  // namespace orvanta::marks

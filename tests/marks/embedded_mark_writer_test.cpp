#include "marks/embedded_mark_writer.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <exiv2/exiv2.hpp>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "decode/open_decoder.h"
#include "list/picture_entry.h"
#include "platform/imaging/metadata_query_reader.h"
#include "platform/imaging/pixel_format.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "support/command_output.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::marks {
namespace {

using test::Bytes;
using test::TempFolder;
using test::TestDataFolder;

constexpr MarkTime kTime{2026, 11, 23, 14, 5, 9, 37};

Bytes ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The registry this test program writes to, away from the user's.
class PrivateRegistry : public testing::Environment {
public:
    void SetUp() override { ::setenv("ORVANTA_REGISTRY", (folder_ / "registry.db").c_str(), 1); }

private:
    TempFolder folder_;
};
const auto* const registry = testing::AddGlobalTestEnvironment(new PrivateRegistry);

void SetUpdateLastWriteTime(std::uint32_t value) {
    platform::RegKey key;
    ASSERT_EQ(
        platform::RegKey::Create(platform::RegistryStore::User(), settings::kSettingsKey, key), 0);
    ASSERT_EQ(key.SetValue("UpdateLastWriteTimeWhenRating", platform::RegType::Dword,
                           platform::EncodeDword(value)),
              0);
}

struct Written {
    std::string xmpRating, percent, label, urgency, date, creatorTool;
    long exifRating = -1, exifPercent = -1;
    std::string software, program;
};

Written ReadBack(const std::filesystem::path& path) {
    imaging::InitialiseMetadata();
    Written w;
    auto image = Exiv2::ImageFactory::open(path.string());
    image->readMetadata();
    auto xmp = [&](const char* key) {
        const auto found = image->xmpData().findKey(Exiv2::XmpKey(key));
        return found == image->xmpData().end() ? std::string() : found->toString();
    };
    auto exif = [&](const char* key) {
        const auto found = image->exifData().findKey(Exiv2::ExifKey(key));
        return found == image->exifData().end() ? -1L : found->toLong();
    };
    w.xmpRating = xmp("Xmp.xmp.Rating");
    w.percent = xmp("Xmp.MicrosoftPhoto.Rating");
    w.label = xmp("Xmp.xmp.Label");
    w.urgency = xmp("Xmp.photoshop.Urgency");
    w.date = xmp("Xmp.xmp.MetadataDate");
    w.creatorTool = xmp("Xmp.xmp.CreatorTool");
    w.exifRating = exif("Exif.Image.Rating");
    w.exifPercent = exif("Exif.Image.RatingPercent");
    const auto software = image->exifData().findKey(Exiv2::ExifKey("Exif.Image.Software"));
    w.software = software == image->exifData().end() ? "" : software->toString();
    const auto program = image->iptcData().findKey(Exiv2::IptcKey("Iptc.Application2.Program"));
    w.program = program == image->iptcData().end() ? "" : program->toString();
    return w;
}

// The entropy-coded data after the last start-of-scan marker.
Bytes ScanData(const Bytes& jpeg) {
    for (std::size_t i = jpeg.size() - 1; i > 0; --i) {
        if (jpeg[i - 1] == 0xFF && jpeg[i] == 0xDA) {
            return Bytes(jpeg.begin() + static_cast<long>(i), jpeg.end());
        }
    }
    return {};
}

std::size_t FilesIn(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

timespec LastWrite(const std::filesystem::path& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info.st_mtim;
}

void SetLastWrite(const std::filesystem::path& path, time_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

TEST(EmbeddedMark, RatedJpegKeepsPixelsAndLastWriteTime) {
    SetUpdateLastWriteTime(0);
    TempFolder folder;
    const auto path = folder / "IMG_1.JPG";
    test::WriteFile(path, test::MakeJpeg(64, 48));
    SetLastWrite(path, 1'500'000'000);
    const Bytes before = ReadAll(path);
    list::PictureEntry entry;
    MarkRequest request{3, false, 0, false, &entry};
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, request, kTime), S_OK);

    const Written w = ReadBack(path);
    EXPECT_EQ(w.xmpRating, "3");
    EXPECT_EQ(w.percent, "50");
    EXPECT_EQ(w.exifRating, 3);
    EXPECT_EQ(w.exifPercent, 50);
    EXPECT_EQ(w.date, "2026-11-23T14:05:09.37+00:00");
    EXPECT_EQ(w.creatorTool, ToolkitText());
    EXPECT_EQ(w.software, ToolkitText());
    EXPECT_EQ(w.program.rfind("Orvanta ", 0), 0u);
    EXPECT_EQ(ScanData(ReadAll(path)), ScanData(before));
    EXPECT_EQ(LastWrite(path).tv_sec, 1'500'000'000);
    EXPECT_TRUE(entry.selfReplaced.load());
    EXPECT_EQ(FilesIn(folder.Path()), 1u);

    // A second mark replaces the first.
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{0, false, 0, false, nullptr}, kTime), S_OK);
    EXPECT_EQ(ReadBack(path).exifRating, 0);
    EXPECT_EQ(ReadBack(path).percent, "0");
}

TEST(EmbeddedMark, LastWriteTimeMovesWhenAskedTo) {
    SetUpdateLastWriteTime(1);
    TempFolder folder;
    const auto path = folder / "IMG_2.jpg";
    test::WriteFile(path, test::MakeJpeg(32, 32));
    SetLastWrite(path, 1'500'000'000);
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{5, false, 0, false, nullptr}, kTime), S_OK);
    EXPECT_GT(LastWrite(path).tv_sec, 1'500'000'000);
    SetUpdateLastWriteTime(0);
}

TEST(EmbeddedMark, LabelUnderSecondConventionAlsoWritesUrgency) {
    TempFolder folder;
    const auto path = folder / "IMG_3.tif";
    test::WriteFile(path, test::MakeTiff(32, 32));
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{2, true, 1, false, nullptr}, kTime), S_OK);
    const Written w = ReadBack(path);
    EXPECT_EQ(w.label, "Orange");
    EXPECT_EQ(w.urgency, "2");
    EXPECT_EQ(w.xmpRating, "");
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{7, false, 0, true, nullptr}, kTime), S_OK);
    EXPECT_EQ(ReadBack(path).urgency, "7");
    EXPECT_EQ(ReadBack(path).label, "Orange");
}

// The decoded pixels of every page.
std::vector<std::vector<std::byte>> Pages(const std::filesystem::path& path) {
    std::vector<std::vector<std::byte>> pages;
    decode::OpenedPicture picture;
    if (decode::OpenPicture(path, picture).Failed()) {
        return pages;
    }
    for (std::uint32_t i = 0; i < picture.decoder->FrameCount(); ++i) {
        std::unique_ptr<imaging::BitmapFrame> frame;
        auto& page = pages.emplace_back();
        if (picture.decoder->GetFrame(i, frame).Failed()) {
            continue;
        }
        const auto size = frame->Size();
        const std::size_t stride = (size.width * imaging::BitsPerPixel(frame->Format()) + 7) / 8;
        page.resize(stride * size.height);
        const imaging::PixelRect all{0, 0, static_cast<std::int32_t>(size.width),
                                     static_cast<std::int32_t>(size.height)};
        if (frame->CopyPixels(all, stride, page).Failed()) {
            page.clear();
        }
    }
    return pages;
}

TEST(EmbeddedMark, MultiPageTiffKeepsEveryPage) {
    TempFolder folder;
    std::vector<std::filesystem::path> files;
    test::WriteFile(folder / "made.tif", test::MakeMultiPageTiff(3, 40, 30));
    files.push_back(folder / "made.tif");
    if (!TestDataFolder().empty()) {
        for (const char* name : {"OME_15pages_8bit.ome.tif", "ghostscript_g4_3pages.tiff"}) {
            const auto source = TestDataFolder() / "tiff-multipage" / name;
            if (std::filesystem::exists(source)) {
                std::filesystem::copy_file(source, folder / name);
                std::filesystem::permissions(folder / name, std::filesystem::perms::owner_write,
                                             std::filesystem::perm_options::add);
                files.push_back(folder / name);
            }
        }
    }
    for (const auto& path : files) {
        const auto pages = Pages(path);
        ASSERT_GT(pages.size(), 1u) << path;
        const Bytes before = ReadAll(path);
        const Result written =
            WriteEmbeddedMarkToFile(path, MarkRequest{4, false, 0, false, nullptr}, kTime);
        EXPECT_TRUE(Pages(path) == pages) << path;
        if (written == S_OK) {
            EXPECT_EQ(ReadBack(path).xmpRating, "4") << path;
        } else {
            EXPECT_EQ(written, E_UNSUPPORTED_TYPE) << path;
            EXPECT_EQ(ReadAll(path), before) << path;
        }
    }
}

class ForeignContainer : public testing::TestWithParam<std::string> {};

TEST_P(ForeignContainer, IsRefusedAndLeftAlone) {
    TempFolder folder;
    std::filesystem::path path;
    if (GetParam() == "made.png") {
        path = folder / "made.png";
        test::WriteFile(path, test::MakePng(16, 16));
    } else {
        const auto source = TestDataFolder() / GetParam();
        if (TestDataFolder().empty() || !std::filesystem::exists(source)) {
            GTEST_SKIP() << "no test data";
        }
        path = folder / source.filename();
        std::filesystem::copy_file(source, path);
    }
    const Bytes before = ReadAll(path);
    EXPECT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{2, false, 0, false, nullptr}, kTime),
              E_UNSUPPORTED_TYPE);
    EXPECT_EQ(ReadAll(path), before);
    EXPECT_EQ(FilesIn(folder.Path()), 1u);
}

INSTANTIATE_TEST_SUITE_P(Files, ForeignContainer,
                         testing::Values("made.png", "raw/Canon_EOS350D_exiftool.cr2",
                                         "raw/Canon_EOS350D_exiftool.dng",
                                         "raw/Nikon_D70_exiftool.nef",
                                         "formats/jxr/LIFEPro_metadata.jxr"));

enum class Hold { RecordLock, Flock };

class HeldFile : public testing::TestWithParam<Hold> {};

TEST_P(HeldFile, GivesSharingViolationUntilReleased) {
    TempFolder folder;
    const auto path = folder / "IMG_4.jpg";
    test::WriteFile(path, test::MakeJpeg(16, 16));
    const Bytes before = ReadAll(path);
    const int other = ::open(path.c_str(), O_RDWR);
    ASSERT_GE(other, 0);
    if (GetParam() == Hold::RecordLock) {
        struct flock range {};
        range.l_type = F_WRLCK;
        range.l_whence = SEEK_SET;
        ASSERT_EQ(::fcntl(other, F_OFD_SETLK, &range), 0);
    } else {
        ASSERT_EQ(::flock(other, LOCK_EX), 0);
    }
    const MarkRequest request{1, false, 0, false, nullptr};
    EXPECT_EQ(WriteEmbeddedMarkToFile(path, request, kTime), E_SHARING_VIOLATION);
    EXPECT_EQ(ReadAll(path), before);
    ::close(other);
    EXPECT_EQ(WriteEmbeddedMarkToFile(path, request, kTime), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Locks, HeldFile, testing::Values(Hold::RecordLock, Hold::Flock));

TEST(EmbeddedMark, ReadByOtherTools) {
    if (!test::HaveCommand("exiftool -ver")) {
        GTEST_SKIP() << "exiftool is not installed";
    }
    TempFolder folder;
    const auto path = folder / "IMG_5.jpg";
    test::WriteFile(path, test::MakeJpeg(16, 16));
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{4, false, 0, false, nullptr}, kTime), S_OK);
    ASSERT_EQ(WriteEmbeddedMarkToFile(path, MarkRequest{3, true, 0, false, nullptr}, kTime), S_OK);
    EXPECT_EQ(test::CommandOutput("exiftool -s3 -XMP-xmp:Rating -XMP-xmp:Label -EXIF:Rating "
                                  "-EXIF:RatingPercent '" +
                                  path.string() + "'"),
              "4\nGreen\n4\n75\n");
    // exiv2's own tool, when it is there, reads the same.
    if (test::HaveCommand("exiv2 --version")) {
        EXPECT_EQ(test::CommandOutput("exiv2 -q -Pv -K Xmp.xmp.Rating -K Exif.Image.Rating '" +
                                      path.string() + "'"),
                  "4\n4\n");
    }
}

}  // namespace
}  // namespace orvanta::marks

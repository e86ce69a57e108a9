// The stores against a failing disk: a read-only folder, a full one, and a process killed in
// the middle of a write. The picture and its sidecar must always be either the old or the
// new version, never lost or half written.
#include <chrono>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include <exiv2/exiv2.hpp>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "marks/mark_stores.h"
#include "marks/sidecar_file.h"
#include "platform/imaging/metadata_query_reader.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::marks {
namespace {

using test::Bytes;

constexpr MarkTime kTime{2026, 11, 23, 14, 5, 9, 37};

Bytes ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

MarkRequest Rating(std::uint32_t stars) {
    return MarkRequest{stars, false, 0, false, nullptr};
}

// A small file system of its own, mounted over a temporary folder; needs root.
class ScratchDisk {
public:
    explicit ScratchDisk(const char* size) {
        const std::string options = std::string("size=") + size;
        mounted_ = ::mount("tmpfs", folder_.Path().c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~ScratchDisk() {
        if (mounted_) {
            ::umount2(folder_.Path().c_str(), MNT_DETACH);
        }
    }
    bool Mounted() const { return mounted_; }
    bool MakeReadOnly() {
        return ::mount(nullptr, folder_.Path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) ==
               0;
    }
    std::filesystem::path operator/(const char* name) const { return folder_ / name; }
    const std::filesystem::path& Path() const { return folder_.Path(); }

private:
    test::TempFolder folder_;
    bool mounted_ = false;
};

std::size_t FilesIn(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(MarkStoreFaults, ReadOnlyFolderLeavesEverythingAlone) {
    ScratchDisk disk("1m");
    if (!disk.Mounted()) {
        GTEST_SKIP() << "cannot mount a scratch file system";
    }
    const auto picture = disk / "IMG_1.jpg";
    const auto sidecar = disk / "IMG_1.xmp";
    test::WriteFile(picture, test::MakeJpeg(32, 32));
    ASSERT_EQ(FileMarkStores().CreateSidecar(sidecar, Rating(2), kTime), S_OK);
    const Bytes picture0 = ReadAll(picture), sidecar0 = ReadAll(sidecar);
    ASSERT_TRUE(disk.MakeReadOnly());

    EXPECT_TRUE(FileMarkStores().UpdateSidecar(sidecar, Rating(4), kTime).Failed());
    EXPECT_TRUE(FileMarkStores().CreateSidecar(disk / "IMG_2.xmp", Rating(4), kTime).Failed());
    EXPECT_EQ(FileMarkStores().WriteEmbeddedMark(picture, Rating(4), kTime), E_ACCESSDENIED);
    EXPECT_EQ(ReadAll(picture), picture0);
    EXPECT_EQ(ReadAll(sidecar), sidecar0);
    EXPECT_EQ(FilesIn(disk.Path()), 2u);
}

TEST(MarkStoreFaults, FullDiskLeavesEverythingAlone) {
    ScratchDisk disk("256k");
    if (!disk.Mounted()) {
        GTEST_SKIP() << "cannot mount a scratch file system";
    }
    const auto picture = disk / "IMG_1.jpg";
    const auto sidecar = disk / "IMG_1.xmp";
    test::WriteFile(picture, test::MakeJpeg(256, 192));
    ASSERT_EQ(FileMarkStores().CreateSidecar(sidecar, Rating(2), kTime), S_OK);
    const Bytes picture0 = ReadAll(picture), sidecar0 = ReadAll(sidecar);
    {
        std::ofstream filler(disk / "filler", std::ios::binary);
        const std::string block(4096, 'x');
        while (filler.write(block.data(), block.size())) {
        }
    }
    EXPECT_EQ(FileMarkStores().WriteEmbeddedMark(picture, Rating(4), kTime), E_DISK_FULL);
    EXPECT_EQ(FileMarkStores().UpdateSidecar(sidecar, Rating(4), kTime), E_DISK_FULL);
    EXPECT_EQ(FileMarkStores().CreateSidecar(disk / "IMG_2.xmp", Rating(4), kTime), E_DISK_FULL);
    EXPECT_EQ(ReadAll(picture), picture0);
    EXPECT_EQ(ReadAll(sidecar), sidecar0);
    EXPECT_EQ(FilesIn(disk.Path()), 3u);
}

// The rating the picture holds, or -1 when it does not read as a picture with metadata.
long EmbeddedRating(const std::filesystem::path& path) {
    try {
        auto image = Exiv2::ImageFactory::open(path.string());
        image->readMetadata();
        const auto found = image->exifData().findKey(Exiv2::ExifKey("Exif.Image.Rating"));
        return found == image->exifData().end() ? 0 : found->toLong();
    } catch (const Exiv2::AnyError&) {
        return -1;
    }
}

TEST(MarkStoreFaults, KilledWriterLeavesOldOrNewVersion) {
    imaging::InitialiseMetadata();
    test::TempFolder folder;
    const auto picture = folder / "IMG_1.jpg";
    const auto sidecar = folder / "IMG_1.xmp";
    const Bytes original = test::MakeJpeg(512, 384);
    test::WriteFile(picture, original);
    ASSERT_EQ(FileMarkStores().CreateSidecar(sidecar, Rating(1), kTime), S_OK);
    std::mt19937 random(7);
    for (int round = 0; round < 12; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
            for (std::uint32_t stars = 1; std::chrono::steady_clock::now() < end;
                 stars = stars % 5 + 1) {
                (void)FileMarkStores().WriteEmbeddedMark(picture, Rating(stars), kTime);
                (void)FileMarkStores().UpdateSidecar(sidecar, Rating(stars), kTime);
            }
            ::_exit(0);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + random() % 40));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);

        const long stars = EmbeddedRating(picture);
        EXPECT_TRUE(stars >= 0 && stars <= 5) << "round " << round;
        metadata::SidecarMarks marks;
        EXPECT_EQ(ReadSidecarFile(picture, marks), S_OK) << "round " << round;
        EXPECT_TRUE(marks.rating >= 1 && marks.rating <= 5) << "round " << round;
    }
    // The picture data itself never changed.
    const Bytes now = ReadAll(picture);
    EXPECT_TRUE(std::equal(original.end() - 4096, original.end(), now.end() - 4096));
}

}  // namespace
}  // namespace orvanta::marks

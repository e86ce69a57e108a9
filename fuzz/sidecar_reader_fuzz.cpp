// A sidecar file from arbitrary bytes, read, updated with a mark and read again: the first
// byte picks the mark, the rest is the file. The update must either refuse the file and
// leave it as it was, or write one that reads back with the mark.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include "marks/sidecar_file.h"

namespace {

constexpr std::size_t kMaxInput = 1024 * 1024;

const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = [] {
        std::string name = (std::filesystem::temp_directory_path() / "sidecar-fuzz-XXXXXX");
        return std::filesystem::path(::mkdtemp(name.data()) ? name : "/tmp");
    }();
    return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvanta;
    if (size < 1 || size > kMaxInput) {
        return 0;
    }
    const std::filesystem::path picture = Folder() / "picture.jpg";
    const std::filesystem::path sidecar = marks::SidecarPathOf(picture);
    {
        std::ofstream out(sidecar, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
    }
    metadata::SidecarMarks marks;
    (void)marks::ReadSidecarFile(picture, marks);

    marks::MarkRequest request;
    request.value = data[0] % 6;
    request.isLabel = (data[0] & 0x40) != 0;
    request.isUrgency = !request.isLabel && (data[0] & 0x80) != 0;
    request.convention = (data[0] >> 3) % 3;
    const marks::MarkTime time = marks::MarkTimeNow();
    if (marks::UpdateSidecarFile(sidecar, request, time).Succeeded() && request.value != 0 &&
        !request.isLabel) {
        metadata::SidecarMarks after;
        if (marks::ReadSidecarFile(picture, after).Failed()) {
            std::abort();
        }
        const std::int16_t written = request.isUrgency ? after.urgency : after.rating;
        if (written != static_cast<std::int16_t>(request.value)) {
            std::abort();
        }
    }
    return 0;
}

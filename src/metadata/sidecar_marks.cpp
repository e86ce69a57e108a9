#include "metadata/sidecar_marks.h"

#include <atomic>

namespace orvanta::metadata {

namespace {

std::atomic<SidecarMarksReader> installedReader{nullptr};

}  // namespace

void SetSidecarMarksReader(SidecarMarksReader reader) {
    installedReader.store(reader);
}

Result ReadSidecarMarks(const std::filesystem::path& picture, SidecarMarks& marks) {
    const SidecarMarksReader reader = installedReader.load();
    return reader ? reader(picture, marks) : S_FALSE;
}

}  // namespace orvanta::metadata

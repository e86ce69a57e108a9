// Replacing a file's content so that a crash, a full disk or a killed process never leaves
// it half written: the new bytes go to a temporary file in the same folder, are flushed to
// the disk and renamed over the old name in one step. A picture keeps a second name (a hard
// link) on its old content until the new content is in place, so that the old version can
// be recovered even from a crash between the two steps on file systems that do not order
// them. Plain functions; the caller serialises writes to one file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>

#include "platform/result.h"

namespace orvanta::marks {

struct ReplaceOptions {
    // Keep the old file's last-write time, access mode and owner on the new file.
    bool keepLastWriteTime = false;
    bool keepAccess = false;
    // Keep the old content under a backup name until the new content is in place.
    bool backup = false;
    // Called just before the new file is renamed into place.
    std::function<void()> beforeRename;
};

// `path` beside itself with a dot and 13 hexadecimal digits appended ("IMG_1.JPG.3F0A...").
std::filesystem::path TemporarySibling(const std::filesystem::path& path);

// Writes `bytes` to `path` as described above; the system error of the failing step
// otherwise, the old file (or its absence) left as it was and no temporary file left over.
Result ReplaceFile(const std::filesystem::path& path, std::span<const std::uint8_t> bytes,
                   const ReplaceOptions& options = {});

}  // namespace orvanta::marks

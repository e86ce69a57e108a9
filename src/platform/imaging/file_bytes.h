// The bytes of one picture file, read once per decode with a single read and shared by the
// codec and the metadata reader. A file is read rather than mapped: a file that another
// program truncates while we look at it (a tethered camera still writing) must give a
// failure code, never a bus error. Immutable after creation; free to share across threads.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "platform/result.h"

namespace orvanta::imaging {

class FileBytes {
public:
    // Reads the whole file. Errors as 0x8007xxxx from errno (file not found, access denied,
    // sharing violation for a file that is locked for writing).
    static Result Read(const std::filesystem::path& path, std::shared_ptr<const FileBytes>& out);
    static std::shared_ptr<const FileBytes> FromMemory(std::vector<std::uint8_t> bytes,
                                                       std::filesystem::path name = {});

    std::span<const std::uint8_t> Bytes() const { return bytes_; }
    std::size_t Size() const { return bytes_.size(); }
    // The file's path; empty for bytes made in memory.
    const std::filesystem::path& Path() const { return path_; }

private:
    FileBytes(std::vector<std::uint8_t> bytes, std::filesystem::path path)
        : bytes_(std::move(bytes)), path_(std::move(path)) {}

    std::vector<std::uint8_t> bytes_;
    std::filesystem::path path_;
};

}  // namespace orvanta::imaging

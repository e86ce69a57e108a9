// The date a picture was taken, for sorting a folder by date: read from frame 0 of the file
// with one read of the file's head (the whole file only when its head holds no date), no
// decoder. Thread-safe once InitialiseMetadata() has run; runs on the list-building thread.
#pragma once

#include <filesystem>

#include "platform/imaging/file_time.h"

namespace orvanta::metadata {

// The sort time of a picture: with `gpsFirst` (sorting by the satellite clock) the GPS
// date first, then the date taken, then the date digitised; `defaultTime` when the file's
// extension is unknown, its container carries no metadata the reader asks for, it cannot
// be read, or it holds no date.
imaging::FileTime ReadDateTaken(const std::filesystem::path& path, imaging::FileTime defaultTime,
                                bool gpsFirst);

}  // namespace orvanta::metadata

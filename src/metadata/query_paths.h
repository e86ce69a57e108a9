// Query paths from container-neutral tails: one table of tails serves JPEG, TIFF, HD Photo
// and the TIFF-structured raw formats. For a TIFF-structured file an XMP tail ("/xmp/...")
// gets "/ifd" in front and an IFD tail ("/ifd/...") stays; for any other file the XMP tail
// stays and the IFD tail gets "/app1" in front. Immutable; thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace orvanta::metadata {

// The longest path built, in characters (the platform's buffer of 512 with its terminator).
inline constexpr std::size_t kMaxQueryPath = 511;

class QueryPaths {
public:
    explicit QueryPaths(bool tiffStructured) : tiffStructured_(tiffStructured) {}

    std::string Xmp(std::string_view tail) const;
    std::string Ifd(std::string_view tail) const;
    bool TiffStructured() const { return tiffStructured_; }

private:
    bool tiffStructured_;
};

}  // namespace orvanta::metadata

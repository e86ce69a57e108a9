// Which files are pictures: the supported-pattern list built from the decoders present,
// the extension-to-container table, the raw containers, frame counting, the choice of the
// sibling file that stands for a picture, and the quick formats. Pure functions over their
// inputs (frame counting reads the file); thread-safe.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/imaging/component_list.h"

namespace orvanta::list {

// Only files with these extensions are examined for several frames.
inline constexpr std::string_view kMultiFrameCandidates = ".tif;.tiff;.gif;.djvu";

// "*.jpg;*.jpeg;..." in lower case, no extension twice: the seven platform containers
// first (with the Microsoft vendor), then every other decoder in list order. An HD Photo
// decoder always adds ".hdp", an ICO decoder ".cur".
std::string BuildSupportedPatterns(std::span<const imaging::DecoderInfo> decoders);

// The base path of a full path: all of it before its extension's dot ("/p/a.b.jpg" gives
// "/p/a.b"). A file name without a dot, or whose only dot leads it (".jpg"), has no
// extension, as std::filesystem::path::extension() has it; the extension is what follows.
std::string_view BasePathOf(std::string_view path);

// True when `extension` (with its dot, any case) is one of the patterns. `mayHoldFrames`,
// when given, says whether the file is to be examined for frames: only when
// `multiFrameSupport` is on and the extension is a multi-frame candidate.
bool IsSupported(std::string_view patterns, std::string_view extension,
                 bool multiFrameSupport = false, bool* mayHoldFrames = nullptr);

// IsSupported over one pattern list prepared once, for the feeder that tests every file of
// a folder: a look-up in the sorted extensions instead of a search of the pattern text.
// Immutable after construction.
class SupportedExtensions {
public:
    SupportedExtensions() = default;
    explicit SupportedExtensions(std::string_view patterns);
    bool Contains(std::string_view extension, bool multiFrameSupport = false,
                  bool* mayHoldFrames = nullptr) const;

private:
    std::vector<std::string> extensions_;  // ".jpg" for the item "*.jpg", sorted
};

struct ContainerChoice {
    imaging::Guid container;
    imaging::Guid vendor;  // null: no vendor asked for
};
// The container that a file name's extension maps to; false for extensions the table
// lacks (the decoder is then chosen by content).
bool LookUpContainer(const std::filesystem::path& fileName, ContainerChoice& choice);

bool IsRawContainer(const imaging::Guid& container);

// The frame count the file's decoder reports; 1 when it is 65,536 or more or cannot be had.
std::uint32_t CountFrames(const std::filesystem::path& fileName);

struct SiblingChoice {
    std::string extension;  // without the dot, lower case
    bool raw = false;       // prefer a large embedded preview
};
// Picks the file of an entry to decode from its ExtensionSet ("jpg;nef").
SiblingChoice ChooseSibling(std::string_view extensionSet);

// Formats that decode fast enough to show the first picture of a folder at once.
bool IsQuickFormat(std::string_view extensionWithoutDot);

}  // namespace orvanta::list

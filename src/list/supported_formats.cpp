#include "list/supported_formats.h"

#include <algorithm>
#include <array>

#include "platform/imaging/file_bytes.h"
#include "platform/text/unicode.h"

namespace orvanta::list {

namespace {

namespace container = imaging::container;
namespace vendor = imaging::vendor;

constexpr std::array kBuiltInContainers = {container::Jpeg, container::Wmp, container::Bmp,
                                           container::Png,  container::Ico, container::Gif,
                                           container::Tiff};

struct ExtensionMapping {
    std::string_view extensions;  // ";"-separated, with dots
    imaging::Guid container;
    imaging::Guid vendor;
};

// Searched in this order.
constexpr std::array kExtensionTable = {
    ExtensionMapping{".jpg;.jpeg;.jpe;.jfif;.exif", container::Jpeg, vendor::Microsoft},
    ExtensionMapping{".tif;.tiff", container::Tiff, vendor::Microsoft},
    ExtensionMapping{".hdp;.wdp", container::Wmp, vendor::Microsoft},
    ExtensionMapping{".bmp;.dib;.rle", container::Bmp, vendor::Microsoft},
    ExtensionMapping{".png", container::Png, vendor::Microsoft},
    ExtensionMapping{".gif", container::Gif, vendor::Microsoft},
    ExtensionMapping{".ico;.icon;.cur", container::Ico, vendor::Microsoft},
    ExtensionMapping{".nef", container::Nef, vendor::None},
    ExtensionMapping{".cr2;.crw", container::Cr2, vendor::None},
    ExtensionMapping{".pef", container::Pef, vendor::None},
    ExtensionMapping{".orf", container::Orf, vendor::None},
    ExtensionMapping{".sr2;.srf;.arw", container::Arw, vendor::None},
    ExtensionMapping{".dng", container::Dng, vendor::None},
    ExtensionMapping{".rw2", container::Rw2, vendor::None},
    ExtensionMapping{".tga", container::Tga, vendor::None},
};

constexpr std::array kRawContainers = {container::Nef, container::RawAlternate, container::Cr2,
                                       container::Pef, container::Orf,          container::Arw,
                                       container::Dng, container::RawOther,     container::Rw2};

// Longer names come before the names they contain, since the search is by substring.
constexpr std::array<std::string_view, 24> kSiblingPreference = {
    "jpg", "jpeg", "jpe",  "jfif", "exif", "hdp", "wdp", "tiff", "tif", "dng", "png", "bmp",
    "dib", "rle",  "icon", "ico",  "gif",  "cur", "psd", "tga",  "pcx", "emf", "wmf", "eps"};

constexpr std::array<std::string_view, 13> kQuickFormats = {
    "jpg", "png", "gif", "jpeg", "jpe", "jfif", "exif", "bmp", "dib", "rle", "ico", "cur", "tga"};

// True when `item` is one whole ";"-separated item of `list`.
bool HasItem(std::string_view list, std::string_view item) {
    for (std::size_t at = list.find(item); at != std::string_view::npos;
         at = list.find(item, at + 1)) {
        const std::size_t end = at + item.size();
        if ((at == 0 || list[at - 1] == ';') && (end == list.size() || list[end] == ';')) {
            return true;
        }
    }
    return false;
}

void MergeExtensions(const imaging::DecoderInfo& info, std::string& result) {
    std::string extensions = text::LowerAscii(info.extensions);
    if (info.container == container::Wmp && extensions.find(".hdp") == std::string::npos) {
        extensions += ";.hdp";
    }
    if (info.container == container::Ico && extensions.find(".cur") == std::string::npos) {
        extensions += ";.cur";
    }
    std::string piece;
    std::size_t start = 0;
    while (start <= extensions.size()) {
        std::size_t end = extensions.find_first_of(";,", start);
        if (end == std::string::npos) {
            end = extensions.size();
        }
        const std::string_view token = std::string_view(extensions).substr(start, end - start);
        start = end + 1;
        // A token already in the result, or already collected in this piece, adds nothing.
        std::string pattern = "*";
        pattern += token;
        if (token.empty() || HasItem(result, pattern) || HasItem(piece, pattern)) {
            continue;
        }
        piece += piece.empty() ? "*" : ";*";
        piece += token;
    }
    if (!piece.empty()) {
        if (!result.empty()) {
            result += ';';
        }
        result += piece;
    }
}

}  // namespace

std::string BuildSupportedPatterns(std::span<const imaging::DecoderInfo> decoders) {
    std::string result;
    for (const imaging::Guid& builtIn : kBuiltInContainers) {
        for (const auto& info : decoders) {
            if (info.container == builtIn && info.vendor == vendor::Microsoft) {
                MergeExtensions(info, result);
                break;
            }
        }
    }
    for (const auto& info : decoders) {
        if (std::find(kBuiltInContainers.begin(), kBuiltInContainers.end(), info.container) ==
            kBuiltInContainers.end()) {
            MergeExtensions(info, result);
        }
    }
    return result;
}

std::string_view BasePathOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t start = slash == std::string_view::npos ? 0 : slash + 1;
    const std::string_view name = path.substr(start);
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || name == "..") {
        return path;
    }
    return path.substr(0, start + dot);
}

bool IsSupported(std::string_view patterns, std::string_view extension, bool multiFrameSupport,
                 bool* mayHoldFrames) {
    if (mayHoldFrames != nullptr) {
        *mayHoldFrames = false;
    }
    if (extension.size() < 2 || extension.front() != '.') {
        return false;
    }
    std::string pattern = "*";
    pattern += text::LowerAscii(extension);
    const bool supported = HasItem(patterns, pattern);
    if (supported && multiFrameSupport && mayHoldFrames != nullptr) {
        *mayHoldFrames = HasItem(kMultiFrameCandidates, text::LowerAscii(extension));
    }
    return supported;
}

SupportedExtensions::SupportedExtensions(std::string_view patterns) {
    while (!patterns.empty()) {
        const std::size_t end = std::min(patterns.find(';'), patterns.size());
        const std::string_view item = patterns.substr(0, end);
        if (item.size() > 1 && item.front() == '*') {
            extensions_.emplace_back(item.substr(1));
        }
        patterns.remove_prefix(std::min(end + 1, patterns.size()));
    }
    std::sort(extensions_.begin(), extensions_.end());
}

bool SupportedExtensions::Contains(std::string_view extension, bool multiFrameSupport,
                                   bool* mayHoldFrames) const {
    if (mayHoldFrames != nullptr) {
        *mayHoldFrames = false;
    }
    if (extension.size() < 2 || extension.front() != '.') {
        return false;
    }
    const std::string lower = text::LowerAscii(extension);
    if (!std::binary_search(extensions_.begin(), extensions_.end(), lower)) {
        return false;
    }
    if (multiFrameSupport && mayHoldFrames != nullptr) {
        *mayHoldFrames = HasItem(kMultiFrameCandidates, lower);
    }
    return true;
}

bool LookUpContainer(const std::filesystem::path& fileName, ContainerChoice& choice) {
    const std::string extension = text::LowerAscii(fileName.extension().string());
    if (extension.size() < 2) {
        return false;
    }
    for (const auto& mapping : kExtensionTable) {
        if (HasItem(mapping.extensions, extension)) {
            choice = {mapping.container, mapping.vendor};
            return true;
        }
    }
    return false;
}

bool IsRawContainer(const imaging::Guid& container) {
    return std::find(kRawContainers.begin(), kRawContainers.end(), container) !=
           kRawContainers.end();
}

std::uint32_t CountFrames(const std::filesystem::path& fileName) {
    std::shared_ptr<const imaging::FileBytes> bytes;
    if (imaging::FileBytes::Read(fileName, bytes).Failed()) {
        return 1;
    }
    const auto& components = imaging::ComponentList::Instance();
    std::unique_ptr<imaging::Decoder> decoder;
    ContainerChoice choice;
    if (!LookUpContainer(fileName, choice) ||
        components.CreateDecoder(choice.container, choice.vendor, bytes, decoder).Failed()) {
        if (components.CreateDecoderByContent(bytes, decoder).Failed()) {
            return 1;
        }
    }
    const std::uint32_t count = decoder->FrameCount();
    return count == 0 || count >= 65536 ? 1 : count;
}

SiblingChoice ChooseSibling(std::string_view extensionSet) {
    const std::string set = text::LowerAscii(extensionSet);
    for (std::string_view name : kSiblingPreference) {
        if (set.find(name) != std::string::npos) {
            return {std::string(name), name == "dng"};
        }
    }
    return {set.substr(0, set.find(';')), true};
}

bool IsQuickFormat(std::string_view extensionWithoutDot) {
    const std::string wanted = text::LowerAscii(extensionWithoutDot);
    return std::find(kQuickFormats.begin(), kQuickFormats.end(), wanted) != kQuickFormats.end();
}

}  // namespace orvanta::list

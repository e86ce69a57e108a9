// The frame's file label and caption, composed from plain values so that the rules can be
// checked without a window: the label names the current file with all its sibling
// extensions and, for a frame of a multi-frame file, "[frame/count]"; the caption is the
// label's file name and the program title, or the title alone. CaptionState remembers what
// was last shown so that an unchanged label is not set again. User-interface thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::frame {

// What the label needs of the current entry.
struct LabelEntry {
    std::string basePath;       // full path without extension
    std::string extensionText;  // "jpg" or "jpg;nef"
    std::uint32_t frameIndex = 0;
    std::uint32_t frameCount = 1;
};

// Display texts keep the limits of their fixed buffers.
inline constexpr std::size_t kLabelChars = 520;
inline constexpr std::size_t kFrameSuffixChars = 16;

// "<base path>.<extensions>[ [i/n]]"; empty without an entry.
std::string EntryLabel(const LabelEntry& entry);

// The part of a label after its last path separator.
std::string_view LabelFileName(std::string_view label);

struct CaptionUpdate {
    bool labelChanged = false;  // set the label in the bottom panel and repaint it
    std::string label;
    std::optional<std::string> caption;  // set the window caption to this
};

class CaptionState {
public:
    // One refresh: `waitingText` is shown as the label while waiting; `title` is the
    // program title; `currentCaption` is the window's caption as it stands.
    CaptionUpdate Refresh(const LabelEntry* entry, bool waiting, std::string_view waitingText,
                          bool fileNameInCaption, std::string_view title,
                          std::string_view currentCaption);

private:
    std::optional<std::string> lastLabel_;
    bool lastFileNameInCaption_ = false;
};

}  // namespace orvanta::frame

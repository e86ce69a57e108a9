#include "frame/caption_text.h"

#include "i18n/format_text.h"

namespace orvanta::frame {

std::string EntryLabel(const LabelEntry& entry) {
    std::string suffix;
    if (entry.frameCount > 1) {
        suffix =
            i18n::Truncate(i18n::FormatText(" [%u/%u]", {entry.frameIndex + 1, entry.frameCount}),
                           kFrameSuffixChars - 1);
    }
    return i18n::Truncate(entry.basePath + "." + entry.extensionText + suffix, kLabelChars - 1);
}

std::string_view LabelFileName(std::string_view label) {
    std::size_t slash = label.find_last_of('/');
    return slash == std::string_view::npos ? label : label.substr(slash + 1);
}

CaptionUpdate CaptionState::Refresh(const LabelEntry* entry, bool waiting,
                                    std::string_view waitingText, bool fileNameInCaption,
                                    std::string_view title, std::string_view currentCaption) {
    CaptionUpdate update;
    std::string entryLabel = entry ? EntryLabel(*entry) : std::string();
    update.label = waiting ? i18n::Truncate(waitingText, kLabelChars - 1) : std::move(entryLabel);
    if (lastLabel_ && *lastLabel_ == update.label && lastFileNameInCaption_ == fileNameInCaption) {
        return update;
    }
    lastLabel_ = update.label;
    lastFileNameInCaption_ = fileNameInCaption;
    update.labelChanged = true;

    std::string caption(title);
    if (fileNameInCaption) {
        // While waiting the caption keeps naming the entry rather than the waiting text.
        std::string named = waiting && entry ? EntryLabel(*entry) : update.label;
        if (!named.empty()) {
            caption = std::string(LabelFileName(named)) + " - " + std::string(title);
        }
    }
    if (caption != currentCaption) {
        update.caption = std::move(caption);
    }
    return update;
}

}  // namespace orvanta::frame

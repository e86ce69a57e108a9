#include "settings/settings.h"

#include <array>

#include "platform/text/unicode.h"

namespace orvanta::settings {

using N = Normalisation;
constexpr bool kFirstRun = true;

// name, default, normalisation, limit, written at first run
Setting DisableHWA{"DisableHWA", 1, N::Boolean, 0, kFirstRun};
Setting DisableSMP{"DisableSMP", 0, N::Boolean, 0, kFirstRun};
Setting EnableICC{"EnableICC", 0, N::Boolean, 0, kFirstRun};
Setting MultiSampling{"MultiSampling", 0, N::Boolean, 0, kFirstRun};
Setting RightClickMagnifier{"RightClickMagnifier", 300, N::None, 0, kFirstRun};
Setting SmartMouseAcceleration{"SmartMouseAcceleration", 100, N::ClampAbove, 300, kFirstRun};
Setting AutoModeInterval{"AutoModeInterval", 1000, N::RaiseBelow, 10, kFirstRun};
Setting EnableInvertedZoomScrolling{"EnableInvertedZoomScrolling", 0, N::Boolean, 0, kFirstRun};
Setting HideZoomMouseCursor{"HideZoomMouseCursor", 1, N::Boolean, 0, kFirstRun};
Setting SubFoldersBrowsing{"SubFoldersBrowsing", 1, N::None, 0, kFirstRun};
Setting EnableRating{"EnableRating", 0, N::Boolean, 0, kFirstRun};
Setting EnableLabelling{"EnableLabelling", 0, N::Boolean, 0, kFirstRun};
Setting EnableUrgency{"EnableUrgency", 0, N::Boolean, 0, kFirstRun};
Setting LabellingConvention{"LabellingConvention", 0, N::ZeroAbove, 2, kFirstRun};
Setting CreateSidecarFiles{"CreateSidecarFiles", 0, N::Boolean, 0, kFirstRun};
Setting AlwaysCreateSidecarFiles{"AlwaysCreateSidecarFiles", 0, N::Boolean, 0, kFirstRun};
Setting EmbedMetadata{"EmbedMetadata", 0, N::Boolean, 0, kFirstRun};
Setting PrefixFileNamesWithRating{"PrefixFileNamesWithRating", 0, N::Boolean, 0, kFirstRun};
Setting EnableFilePrefixes{"EnableFilePrefixes", 0, N::Boolean, 0, kFirstRun};
Setting EnableFileOwerwrite{"EnableFileOwerwrite", 0, N::Boolean, 0, kFirstRun};
Setting EnableExifAutoRotate{"EnableExifAutoRotate", 1, N::Boolean, 0, kFirstRun};
Setting EnableFileDeletion{"EnableFileDeletion", 0, N::Boolean, 0, kFirstRun};
Setting EnableMoveToRecycleBin{"EnableMoveToRecycleBin", 1, N::Boolean, 0, kFirstRun};
Setting EnableExitFromEscapeKey{"EnableExitFromEscapeKey", 1, N::Boolean, 0, kFirstRun};
Setting EnableFileNameInCaption{"EnableFileNameInCaption", 1, N::Boolean, 0, kFirstRun};
Setting EnableHistogramDataCompression{"EnableHistogramDataCompression", 0, N::Boolean, 0,
                                       kFirstRun};
Setting EnablePerChannelHistogramNormalization{"EnablePerChannelHistogramNormalization", 0,
                                               N::Boolean, 0, kFirstRun};
Setting EnableCopiedStampOverlay{"EnableCopiedStampOverlay", 1, N::Boolean, 0, kFirstRun};
Setting PreserveSourceFolderHierarchy{"PreserveSourceFolderHierarchy", 0, N::Boolean, 0, kFirstRun};
Setting ReuseLastPictureFolder{"ReuseLastPictureFolder", 0, N::Boolean, 0, kFirstRun};
Setting ReuseLastKeepCopyFolder{"ReuseLastKeepCopyFolder", 0, N::Boolean, 0, kFirstRun};
Setting WrapImageList{"WrapImageList", 1, N::Boolean, 0, kFirstRun};
Setting EnableMessageBeep{"EnableMessageBeep", 1, N::Boolean, 0, kFirstRun};
Setting AutoHideTaskbar{"AutoHideTaskbar", 0, N::Boolean, 0, kFirstRun};
Setting AutoHideMouseCursor{"AutoHideMouseCursor", 1, N::Boolean, 0, kFirstRun};
Setting SortByDateTime{"SortByDateTime", 0, N::ZeroAbove, 4, kFirstRun};
Setting ShowHistogram{"ShowHistogram", 1, N::Boolean, 0, kFirstRun};
Setting ShowShootingData{"ShowShootingData", 1, N::Boolean, 0, kFirstRun};
Setting ShowBookmarkList{"ShowBookmarkList", 0, N::Boolean, 0, kFirstRun};
Setting ShowExternalEditors{"ShowExternalEditors", 1, N::Boolean, 0, !kFirstRun};
Setting ShowIptcEditor{"ShowIptcEditor", 0, N::Boolean, 0, !kFirstRun};
Setting DownscaleLargeImages{"DownscaleLargeImages", 112, N::AllOnesToZero, 0, kFirstRun};
Setting EnableMultiFrameSupport{"EnableMultiFrameSupport", 0, N::Boolean, 0, kFirstRun};
Setting SaveBookmarksAcrossSessions{"SaveBookmarksAcrossSessions", 1, N::Boolean, 0, kFirstRun};
Setting MemoryUsageGuideNumber{"MemoryUsageGuideNumber", 32, N::ClampAbove, 96, kFirstRun};
Setting WarnOnInvalidProfile{"WarnOnInvalidProfile", 0, N::Boolean, 0, kFirstRun};
Setting OverrideTargetProfile{"OverrideTargetProfile", 0, N::Boolean, 0, kFirstRun};
Setting EnableRatingAutoAdvance{"EnableRatingAutoAdvance", 0, N::Boolean, 0, kFirstRun};
Setting EnableAbortableImageLoading{"EnableAbortableImageLoading", 0, N::Boolean, 0, kFirstRun};
Setting SmoothPixelsInZoomModes{"SmoothPixelsInZoomModes", 0, N::Boolean, 0, kFirstRun};
Setting StretchSmallImages{"StretchSmallImages", 0, N::Boolean, 0, kFirstRun};
Setting CheckeredBackround{"CheckeredBackround", 1, N::Boolean, 0, kFirstRun};

TextSetting TargetProfile;
TextSetting BookmarkFileName;

namespace {

Setting* const kLoadOrder[] = {
    &DisableHWA,
    &DisableSMP,
    &EnableICC,
    &MultiSampling,
    &RightClickMagnifier,
    &SmartMouseAcceleration,
    &AutoModeInterval,
    &EnableInvertedZoomScrolling,
    &HideZoomMouseCursor,
    &SubFoldersBrowsing,
    &EnableRating,
    &EnableLabelling,
    &EnableUrgency,
    &LabellingConvention,
    &CreateSidecarFiles,
    &AlwaysCreateSidecarFiles,
    &EmbedMetadata,
    &PrefixFileNamesWithRating,
    &EnableFilePrefixes,
    &EnableFileOwerwrite,
    &EnableExifAutoRotate,
    &EnableFileDeletion,
    &EnableMoveToRecycleBin,
    &EnableExitFromEscapeKey,
    &EnableFileNameInCaption,
    &EnableHistogramDataCompression,
    &EnablePerChannelHistogramNormalization,
    &EnableCopiedStampOverlay,
    &PreserveSourceFolderHierarchy,
    &ReuseLastPictureFolder,
    &ReuseLastKeepCopyFolder,
    &WrapImageList,
    &EnableMessageBeep,
    &AutoHideTaskbar,
    &AutoHideMouseCursor,
    &SortByDateTime,
    &ShowHistogram,
    &ShowShootingData,
    &ShowBookmarkList,
    &ShowExternalEditors,
    &ShowIptcEditor,
    &DownscaleLargeImages,
    &EnableMultiFrameSupport,
    &SaveBookmarksAcrossSessions,
    &MemoryUsageGuideNumber,
    &WarnOnInvalidProfile,
    &OverrideTargetProfile,
    &EnableRatingAutoAdvance,
    &EnableAbortableImageLoading,
    &SmoothPixelsInZoomModes,
    &StretchSmallImages,
    &CheckeredBackround,
};

using platform::RegType;

constexpr KnownValue kOtherValues[] = {
    // strings of the settings table
    {"CustomTargetColorProfile", RegType::Sz},
    {"ExternalBookmarkFileName", RegType::Sz},
    // written at first run, read by the embedded metadata writer
    {"UpdateLastWriteTimeWhenRating", RegType::Dword},
    // window and session state
    {"Maximized", RegType::Dword},
    {"KioskMode", RegType::Dword},
    {"KioskMode.ExitMaximized", RegType::Dword},
    {"AppWindow", RegType::Sz},
    {"AppWindow.Maximized", RegType::Sz},
    {"NavigationSliderHeight", RegType::Dword},
    {"LastImageViewed", RegType::Sz},
    {"LastPictureFolder", RegType::Sz},
    {"LastKeepCopyFolder", RegType::Sz},
    // read directly by their own subsystems
    {"EnforceExceptionFilter", RegType::Dword},
    {"ForceWIAOnWin6x", RegType::Dword},
    {"WICForceSTA", RegType::Dword},
    {"BookmarkPrefixesStyle", RegType::Dword},
    {"CustomBookmarkPrefix", RegType::Sz},
    {"UpdateCheckInterval", RegType::Dword},
    {"LastUpdateCheck", RegType::Qword},
    {"InstalledVersion", RegType::Sz},
    {"NewVersionAvailable", RegType::Dword},
    {"NewVersionDescription", RegType::Sz},
    {"BookmarksDlgEx", RegType::Sz},
    {"ExternalEditDlg", RegType::Sz},
    {"IptcEditDlg", RegType::Sz},
};

std::vector<KnownValue> BuildKnownValues() {
    std::vector<KnownValue> values;
    for (Setting* setting : kLoadOrder) {
        values.push_back({setting->Name(), RegType::Dword});
    }
    values.insert(values.end(), std::begin(kOtherValues), std::end(kOtherValues));
    return values;
}

}  // namespace

std::span<Setting* const> AllSettings() {
    return kLoadOrder;
}

Setting* FindSetting(std::string_view name) {
    for (Setting* setting : kLoadOrder) {
        if (text::EqualsNoCase(setting->Name(), name)) {
            return setting;
        }
    }
    return nullptr;
}

std::string TextSetting::Get() const {
    std::scoped_lock lock(mutex_);
    return value_;
}

void TextSetting::Set(std::string value) {
    std::scoped_lock lock(mutex_);
    value_ = std::move(value);
}

std::span<const KnownValue> KnownValues() {
    static const std::vector<KnownValue> values = BuildKnownValues();
    return values;
}

const KnownValue* FindKnownValue(std::string_view name) {
    for (const KnownValue& value : KnownValues()) {
        if (text::EqualsNoCase(value.name, name)) {
            return &value;
        }
    }
    return nullptr;
}

}  // namespace orvanta::settings

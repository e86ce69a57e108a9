// The program's settings: one process-wide variable per registry value under
// HKEY_CURRENT_USER\SOFTWARE\Tavrel\Orvanta, named as the value is, in load order. Other
// subsystems read them (settings::EnableRating.On()) from any thread; the loader, the
// options dialog and menu toggles write them on the user-interface thread.
#pragma once

#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "platform/registry/registry.h"
#include "settings/setting.h"

namespace orvanta::settings {

inline constexpr std::string_view kSettingsKey = "SOFTWARE\\Tavrel\\Orvanta";
inline constexpr std::string_view kAutomaticProfile = "<Automatic>";
inline constexpr std::string_view kDefaultBookmarkFileName = "Bookmarks.orv";

extern Setting DisableHWA;
extern Setting DisableSMP;
extern Setting EnableICC;
extern Setting MultiSampling;
extern Setting RightClickMagnifier;
extern Setting SmartMouseAcceleration;
extern Setting AutoModeInterval;
extern Setting EnableInvertedZoomScrolling;
extern Setting HideZoomMouseCursor;
extern Setting SubFoldersBrowsing;
extern Setting EnableRating;
extern Setting EnableLabelling;
extern Setting EnableUrgency;
extern Setting LabellingConvention;
extern Setting CreateSidecarFiles;
extern Setting AlwaysCreateSidecarFiles;
extern Setting EmbedMetadata;
extern Setting PrefixFileNamesWithRating;
extern Setting EnableFilePrefixes;
extern Setting EnableFileOwerwrite;
extern Setting EnableExifAutoRotate;
extern Setting EnableFileDeletion;
extern Setting EnableMoveToRecycleBin;
extern Setting EnableExitFromEscapeKey;
extern Setting EnableFileNameInCaption;
extern Setting EnableHistogramDataCompression;
extern Setting EnablePerChannelHistogramNormalization;
extern Setting EnableCopiedStampOverlay;
extern Setting PreserveSourceFolderHierarchy;
extern Setting ReuseLastPictureFolder;
extern Setting ReuseLastKeepCopyFolder;
extern Setting WrapImageList;
extern Setting EnableMessageBeep;
extern Setting AutoHideTaskbar;
extern Setting AutoHideMouseCursor;
extern Setting SortByDateTime;
extern Setting ShowHistogram;
extern Setting ShowShootingData;
extern Setting ShowBookmarkList;
extern Setting ShowExternalEditors;
extern Setting ShowIptcEditor;
extern Setting DownscaleLargeImages;
extern Setting EnableMultiFrameSupport;
extern Setting SaveBookmarksAcrossSessions;
extern Setting MemoryUsageGuideNumber;
extern Setting WarnOnInvalidProfile;
extern Setting OverrideTargetProfile;
extern Setting EnableRatingAutoAdvance;
extern Setting EnableAbortableImageLoading;
extern Setting SmoothPixelsInZoomModes;
extern Setting StretchSmallImages;
extern Setting CheckeredBackround;

// The 32-bit settings in load order.
std::span<Setting* const> AllSettings();
Setting* FindSetting(std::string_view name);  // without regard to case; nullptr if unknown

// A process-wide text: written on the user-interface thread, read from anywhere.
class TextSetting {
public:
    std::string Get() const;
    void Set(std::string value);

private:
    mutable std::mutex mutex_;  // guards value_; a leaf lock
    std::string value_;
};

// The target colour profile: a full path, "<Automatic>" (the monitor's profile), or empty
// (no custom target).
// Fed by OverrideTargetProfile with CustomTargetColorProfile, or by the colour-profile
// switch for one session.
extern TextSetting TargetProfile;
// The bookmark file's name (ExternalBookmarkFileName, "Bookmarks.orv" when empty).
extern TextSetting BookmarkFileName;

// Every value name the program reads or writes in its settings key, with its registry
// type; the command-line tool refuses other names.
struct KnownValue {
    std::string_view name;
    platform::RegType type;
};
std::span<const KnownValue> KnownValues();
const KnownValue* FindKnownValue(std::string_view name);  // without regard to case

}  // namespace orvanta::settings

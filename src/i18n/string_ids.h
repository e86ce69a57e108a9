// Ids of the language strings the program looks up. Every id named in code belongs in a
// block like this one (a `string_ids` namespace or a `...TextId` struct), so that the
// English module can be checked to hold them all.
#pragma once

namespace orvanta::i18n::string_ids {

inline constexpr int kProgramTitle = 100;
inline constexpr int kFrameTitle = 102;
inline constexpr int kInvalidLanguageCode = 103;
inline constexpr int kNoLanguageModule = 104;

// Caption and status line
inline constexpr int kWaitingLabel = 10060;
inline constexpr int kModeAuto = 10061;
inline constexpr int kModeAutoLooping = 10062;
inline constexpr int kModeTrack = 10063;
inline constexpr int kModeTrackSubFolders = 10064;
inline constexpr int kModeCamera = 10065;
inline constexpr int kModeCameraConnecting = 10066;
inline constexpr int kDetailSize = 10067;     // "%u x %u"
inline constexpr int kDetailBits = 10068;     // "%u bit"
inline constexpr int kDetailKept = 10069;     // shown once the picture was kept
inline constexpr int kDetailRating = 10070;   // "%d"
inline constexpr int kDetailLabel = 10071;    // "%s", the label's colour name
inline constexpr int kDetailUrgency = 10072;  // "%d"
inline constexpr int kOrderByName = 10073;
inline constexpr int kOrderByFileTime = 10074;
inline constexpr int kOrderByDateTaken = 10075;
inline constexpr int kOrderByGpsTime = 10076;
inline constexpr int kZoomFit = 10186;
inline constexpr int kZoomActualSize = 10187;
inline constexpr int kZoomMagnifier = 10188;
inline constexpr int kZoomEnlarged = 10189;
inline constexpr int kZoomReduced = 10190;
inline constexpr int kZoomOneToOne = 10191;

// Start-up
inline constexpr int kNoHardwareAcceleration = 10170;
inline constexpr int kNothingToOpen = 10128;

// The caption padding of view-owned pictures, a number.
inline constexpr int kCaptionPadding = 20000;

}  // namespace orvanta::i18n::string_ids

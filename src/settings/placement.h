// The placement string of the frame and of resizable tool windows: 13 blank-separated
// integers, the 11 of a window placement (length, flags, show command, minimised and
// maximised positions, normal rectangle) and the screen's horizontal and vertical pixels
// per inch when it was written. Formatting, parsing and the restore rules (show state,
// keeping the window on screen, rescaling for a changed pixel density) are pure functions;
// the window code applies the result. Thread-safe.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::settings {

inline constexpr int kPlacementLength = 44;
inline constexpr int kPlacementAsync = 4;  // the asynchronous-placement flag
inline constexpr int kShowNormal = 1;
inline constexpr int kShowMinimized = 2;
inline constexpr int kShowMaximized = 3;
inline constexpr int kShowHide = 0;

struct Rect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    int Width() const { return right - left; }
    int Height() const { return bottom - top; }
    bool operator==(const Rect&) const = default;
};

struct WindowPlacement {
    int length = kPlacementLength;
    int flags = 0;
    int showCmd = kShowNormal;
    int minX = -1;
    int minY = -1;
    int maxX = -1;
    int maxY = -1;
    Rect normal;
    bool operator==(const WindowPlacement&) const = default;
};

struct StoredPlacement {
    WindowPlacement placement;
    int dpiX = 96;
    int dpiY = 96;
};

std::string FormatPlacement(const WindowPlacement& placement, int dpiX, int dpiY);
// Reads up to 15 integers; at least 13 must be there and the first (length) must be 44.
std::optional<StoredPlacement> ParsePlacement(std::string_view text);

// left = max(work.left, min(work.right - width, left)), likewise top; size unchanged.
Rect KeepOnScreen(const Rect& rect, const Rect& workArea);
// Width and height scaled by current/stored pixels per inch, rounded to nearest (a stored
// 0 counts as 96); the top-left corner stays.
Rect RescaleForDpi(const Rect& rect, int storedDpiX, int storedDpiY, int dpiX, int dpiY);

struct PlacementRestore {
    bool usePlacement = false;  // false: just show the window with `showCmd`
    int showCmd = kShowNormal;
    WindowPlacement placement;
};

// What restoring a stored placement does. `requestedShow` of 0 or more replaces the saved
// show state; -1 keeps it (a saved minimised state becomes normal). `workAreaNearest` gives
// the work area of the monitor nearest to a rectangle.
PlacementRestore PlanPlacementRestore(std::optional<std::string_view> stored, int requestedShow,
                                      const std::function<Rect(const Rect&)>& workAreaNearest,
                                      int dpiX, int dpiY, bool rescale);

}  // namespace orvanta::settings

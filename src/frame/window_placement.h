// Saving and restoring a window's placement string (the frame's AppWindow, the dialogs'
// placements) on a Qt window, through the pure placement rules of settings/placement.h:
// the show state, keeping the window on the screen nearest to it, and rescaling for a
// changed pixel density. User-interface thread only.
#pragma once

#include <optional>
#include <string>
#include <string_view>

class QWidget;

namespace orvanta::frame {

// The placement string of `window` as it stands: its normal geometry, whether it is
// maximised or minimised, and its screen's logical pixels per inch.
std::string SaveWindowPlacement(const QWidget& window);

// Applies a stored placement and shows the window. `requestedShow` of 0 or more replaces
// the saved show state (0 hides, 1 normal, 3 maximised); -1 keeps it. An unusable text
// just shows the window.
void RestoreWindowPlacement(QWidget& window, std::optional<std::string_view> stored,
                            int requestedShow, bool rescale);

}  // namespace orvanta::frame

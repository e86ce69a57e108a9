// What the frame does when accelerated drawing fails for good: it tells the user, turns
// acceleration off in the settings and asks start-up to run the program again, on the
// picture folder and keep folder of this session, once this instance has let go of its
// single-instance name.
//
// Thread rules: user-interface thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <QString>

class QWidget;

namespace orvanta::frame {

// The restarted program's arguments: -i with the picture folder, then -c with the keep
// folder, each only when known.
std::vector<std::string> RelaunchArguments(const std::string& pictureFolder,
                                           const std::string& keepFolder);

// Shows the failure message (text 10077) over `parent`; tests replace the message box.
void ShowDisplayFailure(QWidget* parent);
void SetDisplayFailureMessage(std::function<void(const QString&)> show);

// Stores DisableHWA = 1 for the next start.
void DisableAcceleration();

}  // namespace orvanta::frame

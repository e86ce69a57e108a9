// The running instance's side of a wake-up: brings the frame to the front and opens what
// the later start asked for (wake_up_request.h), through actions the frame supplies, and
// keeps the cool-down that follows opening an explicitly named folder. User-interface
// thread only.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <QObject>
#include <QTimer>

#include "app/wake_up_request.h"

namespace orvanta::app {

struct WakeUpActions {
    std::function<void()> restoreAndRaise;  // un-minimise, bring the tool windows and the frame up
    std::function<bool(const std::string& list)> openList;      // "|"-joined; replaces the list
    std::function<bool(const std::string& folder)> openFolder;  // empty: the pictures folder
    std::function<void(const std::string& folder)> setKeepFolder;
};

class WakeUpReceiver final : public QObject {
    Q_OBJECT

public:
    explicit WakeUpReceiver(WakeUpActions actions, int coolDownMs = kWakeUpCoolDownMs);

    void Receive(const std::vector<std::string>& arguments);
    // Ends the cool-down early (a watched volume was removed).
    void EndCoolDown();
    bool CoolingDown() const { return coolDown_.isActive(); }

private:
    WakeUpActions actions_;
    QTimer coolDown_;
};

}  // namespace orvanta::app

#include "app/wake_up_receiver.h"

namespace orvanta::app {

WakeUpReceiver::WakeUpReceiver(WakeUpActions actions, int coolDownMs)
    : actions_(std::move(actions)) {
    coolDown_.setSingleShot(true);
    coolDown_.setInterval(coolDownMs);
}

void WakeUpReceiver::Receive(const std::vector<std::string>& arguments) {
    WakeUpDecision decision = DecideWakeUp(arguments, CoolingDown());
    if (decision.ignored) {
        return;
    }
    if (actions_.restoreAndRaise) {
        actions_.restoreAndRaise();
    }
    if (decision.openList && actions_.openList) {
        actions_.openList(*decision.openList);
    }
    if (decision.openFolder && actions_.openFolder) {
        if (actions_.openFolder(*decision.openFolder)) {
            if (decision.keepFolder && actions_.setKeepFolder) {
                actions_.setKeepFolder(*decision.keepFolder);
            }
            if (decision.coolDownAfterOpening) {
                coolDown_.start();
            }
        }
    }
}

void WakeUpReceiver::EndCoolDown() {
    coolDown_.stop();
}

}  // namespace orvanta::app

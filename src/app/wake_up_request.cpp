#include "app/wake_up_request.h"

#include "cmdline/command_line.h"

namespace orvanta::app {

WakeUpDecision DecideWakeUp(const std::vector<std::string>& arguments, bool coolingDown) {
    WakeUpDecision decision;
    if (coolingDown) {
        decision.ignored = true;
        return decision;
    }
    // The token "exe" stands in for the program name the forwarded list does not carry.
    std::vector<std::string> all{"exe"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    cmdline::TokenSet tokens = cmdline::TokenSet::FromArguments(all, cmdline::kPrefixes);

    if (tokens.FindSwitch(cmdline::kImageFolder) == 0) {
        bool anyPlain = false;
        for (std::size_t i = 1; i < tokens.Count(); ++i) {
            anyPlain = anyPlain || !tokens.IsSwitch(i);
        }
        if (anyPlain) {
            std::string plain = tokens.PlainArguments(true, false, "|");
            if (!plain.empty()) {
                decision.openList = std::move(plain);
            }
        }
        return decision;
    }
    std::string folder = tokens.SwitchValue(cmdline::kImageFolder).value_or("");
    decision.coolDownAfterOpening = !folder.empty();
    decision.openFolder = std::move(folder);
    if (auto keep = tokens.SwitchValue(cmdline::kCopyFolder); keep && !keep->empty()) {
        decision.keepFolder = std::move(*keep);
    }
    return decision;
}

}  // namespace orvanta::app

// What a command line asks of the program, read in the order start-up takes the switches
// (language switches, colour profile, auto, track and camera mode, monitor, kiosk, image
// folder, keep folder, then the plain arguments). The order matters: a value token taken
// by an earlier switch is consumed and no longer a plain argument.
#pragma once

#include <optional>
#include <string>

#include "cmdline/command_line.h"

namespace orvanta::cmdline {

struct SwitchUse {
    bool present = false;
    std::optional<std::string> value;  // nullopt: absent, or present without a value
};

struct StartupRequest {
    SwitchUse lang;
    SwitchUse oem;
    SwitchUse colorProfile;
    SwitchUse autoMode;
    SwitchUse trackMode;
    SwitchUse ptpMode;
    SwitchUse monitor;
    SwitchUse kiosk;
    SwitchUse imageFolder;
    SwitchUse copyFolder;
    // Plain arguments joined with "|" (each followed by it), switches skipped.
    std::string plain;
};

StartupRequest ReadStartupRequest(TokenSet& tokens);

}  // namespace orvanta::cmdline

#include "cmdline/startup_request.h"

namespace orvanta::cmdline {

namespace {

SwitchUse WithValue(TokenSet& tokens, std::string_view name) {
    SwitchUse use;
    use.present = tokens.FindSwitch(name) != 0;
    use.value = tokens.SwitchValue(name);
    return use;
}

// Switches that take no value consume nothing: -k a.jpg still opens a.jpg.
SwitchUse Flag(const TokenSet& tokens, std::string_view name) {
    return {tokens.FindSwitch(name) != 0, std::nullopt};
}

}  // namespace

StartupRequest ReadStartupRequest(TokenSet& tokens) {
    StartupRequest request;
    request.lang = WithValue(tokens, kLang);
    request.oem = WithValue(tokens, kOem);
    request.colorProfile = WithValue(tokens, kColorProfile);
    request.autoMode = WithValue(tokens, kAutoMode);
    request.trackMode = Flag(tokens, kTrackMode);
    request.ptpMode = Flag(tokens, kPtpMode);
    request.monitor = WithValue(tokens, kMonitor);
    request.kiosk = Flag(tokens, kKiosk);
    request.imageFolder = WithValue(tokens, kImageFolder);
    request.copyFolder = WithValue(tokens, kCopyFolder);
    request.plain = tokens.PlainArguments(false, false, "|");
    return request;
}

}  // namespace orvanta::cmdline

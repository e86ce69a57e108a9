// Splits arbitrary text as a forwarded command line and reads it the way start-up does.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "cmdline/command_line.h"
#include "cmdline/startup_request.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto tokens = orvanta::cmdline::TokenSet::Split(text, orvanta::cmdline::kPrefixes, true);
    if (tokens.Count() > orvanta::cmdline::kMaxTokens) {
        __builtin_trap();
    }
    const auto request = orvanta::cmdline::ReadStartupRequest(tokens);
    (void)tokens.NumericSwitchValue(orvanta::cmdline::kMonitor, 1);
    (void)tokens.PlainArguments(true, false, "|");
    (void)request;
    return 0;
}

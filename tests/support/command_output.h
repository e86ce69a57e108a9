// Runs a shell command and returns what it printed on stdout, for checking files against
// the field's own tools (exiftool). Empty when the command cannot be started.
#pragma once

#include <string>

namespace orvanta::test {

std::string CommandOutput(const std::string& command);
// True when `tool -ver`-style probing shows the command exists.
bool HaveCommand(const std::string& probe);

}  // namespace orvanta::test

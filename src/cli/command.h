// orvanta-cli's sub-commands. Each command file registers itself with a static
// CommandRegistrar, so adding a command never touches the dispatcher. Commands run on the
// main thread; they print results on stdout (JSON with --json) and one-line errors on
// stderr, and return the process exit code.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::cli {

struct Command {
    std::string_view name;
    std::string_view usage;  // one or more lines, without the program name
    int (*run)(std::span<const std::string> args);
};

class CommandRegistrar {
public:
    explicit CommandRegistrar(Command command);
};

std::span<const Command> Commands();

// Prints "orvanta-cli: <text>" on stderr and returns the exit code for bad input (2).
int UsageError(std::string_view text);
// Prints "orvanta-cli: <text>" on stderr and returns the exit code for a failure (1).
int Failure(std::string_view text);

// JSON string literal with the escapes JSON requires (control characters as \u00XX).
std::string JsonString(std::string_view text);

}  // namespace orvanta::cli

// orvanta-cli: the engine without windows, for scripting and tests.
#include <cstdio>
#include <vector>

#include "cli/command.h"
#include "marks/sidecar_file.h"

namespace orvanta::cli {

namespace {

std::vector<Command>& Registry() {
    static std::vector<Command> commands;
    return commands;
}

void PrintUsage(std::FILE* out) {
    std::fprintf(out, "usage: orvanta-cli COMMAND [ARGS...]\n\ncommands:\n");
    for (const Command& command : Commands()) {
        std::string_view usage = command.usage;
        while (!usage.empty()) {
            const auto end = usage.find('\n');
            const auto line = usage.substr(0, end);
            std::fprintf(out, "  %.*s\n", static_cast<int>(line.size()), line.data());
            usage = end == std::string_view::npos ? std::string_view{} : usage.substr(end + 1);
        }
    }
}

}  // namespace

CommandRegistrar::CommandRegistrar(Command command) {
    Registry().push_back(command);
}

std::span<const Command> Commands() {
    return Registry();
}

int UsageError(std::string_view text) {
    std::fprintf(stderr, "orvanta-cli: %.*s\n", static_cast<int>(text.size()), text.data());
    return 2;
}

int Failure(std::string_view text) {
    std::fprintf(stderr, "orvanta-cli: %.*s\n", static_cast<int>(text.size()), text.data());
    return 1;
}

std::string JsonString(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04x", c);
                    out += escape;
                } else {
                    out += c;
                }
        }
    }
    out += '"';
    return out;
}

}  // namespace orvanta::cli

int main(int argc, char** argv) {
    using namespace orvanta::cli;
    orvanta::marks::InstallSidecarReader();
    if (argc < 2) {
        PrintUsage(stderr);
        return 2;
    }
    const std::string_view name = argv[1];
    if (name == "help" || name == "--help" || name == "-h") {
        PrintUsage(stdout);
        return 0;
    }
    for (const Command& command : Commands()) {
        if (command.name == name) {
            std::vector<std::string> args(argv + 2, argv + argc);
            return command.run(args);
        }
    }
    return UsageError("unknown command '" + std::string(name) + "' (see orvanta-cli help)");
}

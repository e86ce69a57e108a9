#include "support/cli_runner.h"

#include <stdio.h>
#include <sys/wait.h>

namespace orvanta::test {

namespace {

std::string ShellQuote(const std::string& s) {
    std::string quoted = "'";
    for (char c : s) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

}  // namespace

CliRun RunCli(const std::vector<std::string>& args, const CliOptions& options) {
    std::string command;
    if (!options.registry.empty()) {
        command = "ORVANTA_REGISTRY=" + ShellQuote(options.registry.string()) + " ";
    }
    command += ORVANTA_CLI;
    for (const auto& arg : args) {
        command += " " + ShellQuote(arg);
    }
    command += options.withStderr ? " 2>&1" : " 2>/dev/null";
    CliRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        run.out.append(buffer, n);
    }
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace orvanta::test

#include "support/cli_runner.h"

#include <sys/wait.h>

namespace orvanta::test {

namespace {

std::string ShellQuote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

}  // namespace

CliProcess::CliProcess(const std::vector<std::string>& args, const CliOptions& options) {
    std::string command;
    if (!options.registry.empty()) {
        command = "ORVANTA_REGISTRY=" + ShellQuote(options.registry.string()) + " ";
    }
    command += ORVANTA_CLI;
    for (const auto& a : args) {
        command += " " + ShellQuote(a);
    }
    command += options.withStderr ? " 2>&1" : " 2>/dev/null";
    pipe_ = popen(command.c_str(), "r");
}

CliProcess::~CliProcess() {
    if (pipe_ != nullptr) {
        pclose(pipe_);
    }
}

bool CliProcess::ReadLine(std::string& line) {
    line.clear();
    if (pipe_ == nullptr) {
        return false;
    }
    int c;
    while ((c = std::fgetc(pipe_)) != EOF) {
        if (c == '\n') {
            return true;
        }
        line += static_cast<char>(c);
    }
    return !line.empty();
}

int CliProcess::Finish(std::string* rest) {
    if (pipe_ == nullptr) {
        return -1;
    }
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe_)) > 0) {
        if (rest != nullptr) {
            rest->append(buffer, n);
        }
    }
    const int status = pclose(pipe_);
    pipe_ = nullptr;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

CliRun RunCli(const std::vector<std::string>& args, const CliOptions& options) {
    CliRun run;
    CliProcess process(args, options);
    run.exitCode = process.Finish(&run.out);
    return run;
}

}  // namespace orvanta::test

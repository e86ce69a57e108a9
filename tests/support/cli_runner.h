// Runs orvanta-cli as a script would: all at once (RunCli), or as a process whose output
// is read line by line as it arrives (CliProcess, for commands that keep running).
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace orvanta::test {

struct CliOptions {
    std::filesystem::path registry;  // ORVANTA_REGISTRY for the run, when not empty
    bool withStderr = false;         // stderr joined to the output, else dropped
};

class CliProcess {
public:
    CliProcess(const std::vector<std::string>& args, const CliOptions& options);
    // Against a settings store of the test's own, stderr joined to the output.
    CliProcess(const std::filesystem::path& registry, const std::vector<std::string>& args)
        : CliProcess(args, {registry, true}) {}
    ~CliProcess();
    CliProcess(const CliProcess&) = delete;
    CliProcess& operator=(const CliProcess&) = delete;

    // The next line without its newline; false at the end of the output.
    bool ReadLine(std::string& line);
    // Reads the rest and returns the exit code (-1 when it did not exit normally).
    int Finish(std::string* rest = nullptr);

private:
    std::FILE* pipe_ = nullptr;
};

struct CliRun {
    int exitCode = -1;
    std::string out;
};

CliRun RunCli(const std::vector<std::string>& args, const CliOptions& options = {});

}  // namespace orvanta::test

// Runs orvanta-cli as a script would and collects its exit code and output.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace orvanta::test {

struct CliRun {
    int exitCode = -1;
    std::string out;
};

struct CliOptions {
    std::filesystem::path registry;  // ORVANTA_REGISTRY for the run, when not empty
    bool withStderr = false;         // stderr joined to the output, else dropped
};

CliRun RunCli(const std::vector<std::string>& args, const CliOptions& options = {});

}  // namespace orvanta::test

// Runs orvanta-cli as a script would, against a settings store of the test's own, and
// hands back its exit code and standard output line by line as it arrives.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace orvanta::test {

class CliProcess {
public:
    CliProcess(const std::filesystem::path& registry, const std::vector<std::string>& args);
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

}  // namespace orvanta::test

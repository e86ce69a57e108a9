#include "support/command_output.h"

#include <cstdio>
#include <cstdlib>

namespace orvanta::test {

std::string CommandOutput(const std::string& command) {
    std::string output;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[256];
        while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
            output += buffer;
        }
        ::pclose(pipe);
    }
    return output;
}

bool HaveCommand(const std::string& probe) {
    return std::system((probe + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace orvanta::test

// The desktop program as a process: start-up on a folder, a second start handing its
// arguments to the running one, and the exit code of a normal session.
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

extern char** environ;

namespace orvanta::app {
namespace {

using namespace std::chrono_literals;

class Program {
public:
    Program(const std::vector<std::string>& args, const std::filesystem::path& log,
            const std::vector<std::string>& env) {
        std::vector<std::string> all = {ORVANTA_PROGRAM};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : all) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        std::vector<std::string> environment = env;
        for (char** e = environ; *e != nullptr; ++e) {
            environment.emplace_back(*e);
        }
        std::vector<char*> envp;
        for (auto& e : environment) {
            envp.push_back(e.data());
        }
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        EXPECT_EQ(posix_spawn(&pid_, all[0].c_str(), &actions, nullptr, argv.data(), envp.data()),
                  0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (pid_ > 0 && !ended_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    // The exit code, or -1000 when the process did not end within `timeout`.
    int Wait(std::chrono::milliseconds timeout) {
        const auto until = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < until) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                ended_ = true;
                return WIFEXITED(status) ? static_cast<signed char>(WEXITSTATUS(status)) : -2000;
            }
            std::this_thread::sleep_for(20ms);
        }
        return -1000;
    }
    void Terminate() { kill(pid_, SIGTERM); }

private:
    pid_t pid_ = -1;
    bool ended_ = false;
};

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool WaitForText(const std::filesystem::path& log, const std::string& text) {
    for (int i = 0; i < 1000; ++i) {
        if (ReadAll(log).find(text) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

TEST(Program, ShowsTheFirstPictureTakesALaterStartsArgumentsAndEndsWithOne) {
    test::TempFolder home;
    std::filesystem::create_directories(home / "shoot");
    std::filesystem::create_directories(home / "other");
    std::filesystem::create_directories(home / "run");
    test::WriteFile(home / "shoot" / "a.jpg", test::MakeJpeg(300, 200));
    test::WriteFile(home / "other" / "z.jpg", test::MakeJpeg(200, 300));
    const std::vector<std::string> env = {"QT_QPA_PLATFORM=offscreen", "ORVANTA_TRACE=1",
                                          "ORVANTA_REGISTRY=" + (home / "registry.db").string(),
                                          "XDG_RUNTIME_DIR=" + (home / "run").string()};

    Program first({(home / "shoot").string()}, home / "first.log", env);
    ASSERT_TRUE(WaitForText(home / "first.log", "first picture painted"))
        << ReadAll(home / "first.log");

    Program second({(home / "other" / "z.jpg").string()}, home / "second.log", env);
    EXPECT_EQ(second.Wait(20s), 0) << ReadAll(home / "second.log");
    EXPECT_TRUE(WaitForText(home / "first.log", "opening " + (home / "other" / "z.jpg").string()))
        << ReadAll(home / "first.log");

    first.Terminate();
    EXPECT_EQ(first.Wait(20s), 1) << ReadAll(home / "first.log");
}

}  // namespace
}  // namespace orvanta::app

// The one QApplication of the frame tests, made on first use with a registry of its own so
// that no test reads or writes the user's settings.
#pragma once

#include <cstdlib>
#include <filesystem>

#include <QApplication>

namespace orvanta::frame::test {

inline QApplication& App() {
    static const bool registry = [] {
        const auto path = std::filesystem::temp_directory_path() /
                          ("orvanta-frame-tests-" + std::to_string(::getpid()) + ".db");
        std::filesystem::remove(path);
        ::setenv("ORVANTA_REGISTRY", path.c_str(), 1);
        return true;
    }();
    (void)registry;
    static int argc = 1;
    static char name[] = "frame_tests";
    static char* argv[] = {name, nullptr};
    static QApplication app(argc, argv);
    return app;
}

}  // namespace orvanta::frame::test

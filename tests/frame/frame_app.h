// The one QApplication of the frame tests, made on first use with a registry of its own so
// that no test reads or writes the user's settings.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>
#include <gtest/gtest.h>

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
    // Deleted when the tests end, before exit: Qt's own globals made after it (the input
    // devices of the first mouse or key event) are gone by the time a static would die.
    struct Owner : ::testing::Environment {
        std::unique_ptr<QApplication> app;
        void TearDown() override { app.reset(); }
    };
    static Owner* owner = [] {
        auto* made = new Owner;
        made->app = std::make_unique<QApplication>(argc, argv);
        ::testing::AddGlobalTestEnvironment(made);
        return made;
    }();
    return *owner->app;
}

// Runs the event loop until `done` holds or 20 s pass.
template <typename Done>
bool PumpUntil(Done done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 20'000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(2);
    }
    return done();
}

}  // namespace orvanta::frame::test

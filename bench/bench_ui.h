// Event-loop helpers of the benchmarks that drive the desktop program's windows.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

namespace orvanta::bench {

// Runs the event loop for `ms` milliseconds.
inline void Pump(int ms) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
}

}  // namespace orvanta::bench

#pragma once

// waitUntil() runs the Qt event loop of the test thread until condition() holds, for conditions
// that other threads make true (background start-up, reader threads). It waits, it does not time
// anything: a condition that never comes fails the test after a generous safety limit instead of
// hanging the run.

#include <QCoreApplication>
#include <QEventLoop>

#include <chrono>
#include <thread>

namespace kelvo::test {

template <typename Condition>
bool waitUntil(Condition condition) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > giveUp) {
            return false;
        }
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        std::this_thread::yield();
    }
    return true;
}

}  // namespace kelvo::test

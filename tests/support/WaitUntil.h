#pragma once

// waitUntil() polls a condition that another thread or process makes true, running the calling
// thread's Qt event loop between polls when the test has one (posted resumptions, the clipboard,
// child processes). It waits, it times nothing: a condition that never comes makes it return false
// after a generous limit, for the test to fail on, instead of hanging the run. A condition that is
// costly to ask (a process run, a file read) is asked every `poll` rather than continuously.

#include <chrono>
#include <thread>

#if __has_include(<QCoreApplication>)
#include <QCoreApplication>
#define KELVO_TEST_WAIT_PUMPS_QT 1
#endif

namespace kelvo::test {

template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20),
               std::chrono::milliseconds poll = std::chrono::milliseconds(1)) {
    const auto giveUp = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > giveUp) {
            return false;
        }
#ifdef KELVO_TEST_WAIT_PUMPS_QT
        if (QCoreApplication::instance() != nullptr) {
            QCoreApplication::sendPostedEvents();
            QCoreApplication::processEvents();
        }
#endif
        std::this_thread::sleep_for(poll);
    }
    return true;
}

}  // namespace kelvo::test

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>
#include <thread>
#include <vector>

#include "fakes/TestEventLoop.h"
#include "platform/QtClock.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;

// Zero-delay timers fire on the next pass of the event loop, so these tests never wait.
void runQtEvents() {
    for (int round = 0; round < 8; ++round) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
}

TEST(QtClockTest, CallbacksRunLaterOnTheMainThreadAndCancelledOrOrphanedOnesNever) {
    ensureCoreApplication();
    platform::QtClock clock;
    std::vector<int> ran;
    clock.schedule(0ms, [&] { ran.push_back(1); });
    auto cancelled = clock.schedule(0ms, [&] { ran.push_back(2); });
    clock.cancel(cancelled);
    clock.cancel(cancelled);  // harmless twice
    EXPECT_TRUE(ran.empty()) << "never inline";

    QThread* callbackThread = nullptr;
    std::thread worker([&] {
        clock.schedule(0ms, [&] {
            ran.push_back(3);
            callbackThread = QThread::currentThread();
        });
    });
    worker.join();
    runQtEvents();
    EXPECT_EQ(ran, (std::vector<int>{1, 3}));
    EXPECT_EQ(callbackThread, QCoreApplication::instance()->thread());

    // Pending callbacks go with the clock.
    {
        platform::QtClock shortLived;
        shortLived.schedule(0ms, [&] { ran.push_back(4); });
    }
    runQtEvents();
    EXPECT_EQ(ran, (std::vector<int>{1, 3}));
}

}  // namespace
}  // namespace kelvo::test

#include "fakes/TestEventLoop.h"

#include <QCoreApplication>
#include <chrono>

namespace kelvo::test {

void ensureCoreApplication() {
    if (QCoreApplication::instance() == nullptr) {
        static int argc = 1;
        static char name[] = "app_tests";
        static char* argv[] = {name, nullptr};
        new QCoreApplication(argc, argv);
    }
}

void settle(FakeClock& clock) {
    // Each round may post new work for the other source; a few dozen rounds covers the longest
    // chain of hand-offs in the session (start → consume → finish → insert).
    for (int round = 0; round < 64; ++round) {
        QCoreApplication::sendPostedEvents();
        clock.runPending();
    }
}

void runFor(FakeClock& clock, platform::Clock::Duration delta) {
    using std::chrono::milliseconds;
    settle(clock);
    while (delta > platform::Clock::Duration::zero()) {
        auto step = std::min<platform::Clock::Duration>(milliseconds(1), delta);
        clock.advance(step);
        settle(clock);
        delta -= step;
    }
}

}  // namespace kelvo::test

#pragma once

// Drives the two sources of main-thread work in app tests: callbacks scheduled on the FakeClock
// and events posted through Qt (channel readers resume that way). A QCoreApplication is created
// once for the whole test binary; nothing here sleeps on the wall clock.

#include "fakes/FakeClock.h"

namespace kelvo::test {

void ensureCoreApplication();

// Runs everything that is due now, posted events and zero-delay callbacks, until it settles.
void settle(FakeClock& clock);

// Moves the fake clock forward one millisecond at a time, settling after each step, so posted
// resumptions interleave with timers the way they would in real time.
void runFor(FakeClock& clock, platform::Clock::Duration delta);

}  // namespace kelvo::test

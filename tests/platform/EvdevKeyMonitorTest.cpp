// The evdev monitor on a machine without input devices (these test machines have none; the device
// path itself is exercised through EvdevKeyDecoder with a pipe).
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>

#include <linux/input.h>

#include "platform/linux/EvdevKeyMonitor.h"

namespace kelvo::platform {
namespace {

// Without readable keyboards (as on a machine with no input devices at all) the monitor reports no
// access, cannot prompt for it, and still starts and stops cleanly.
TEST(EvdevKeyMonitorTest, WithoutKeyboardsHasNoAccessAndStillStartsAndStops) {
    EXPECT_THROW(EvdevKeyMonitor("NoSuchKeyName"), std::invalid_argument);
    EXPECT_EQ(EvdevKeyMonitor::keyCodeForName("Control_R"), KEY_RIGHTCTRL);
    char folder[] = "/tmp/kelvo-input-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    {
        EvdevKeyMonitor monitor("Control_R", folder);
        EXPECT_FALSE(monitor.hasListenAccess());
        EXPECT_FALSE(monitor.requestListenAccess());
        monitor.start([](TriggerKeyEvent) { ADD_FAILURE() << "no keyboard, no event"; });
    }
    rmdir(folder);
}

}  // namespace
}  // namespace kelvo::platform

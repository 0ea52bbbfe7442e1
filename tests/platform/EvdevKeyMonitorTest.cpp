// The evdev monitor. These test machines have no input devices, so a keyboard is a FIFO named like
// an event node, answered for by the ioctl below: the monitor reads it as it would read the device.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <linux/input.h>

#include "platform/linux/EvdevKeyMonitor.h"
#include "tests/core/TemporaryFolder.h"

// Replaces the C library's for this test program: a FIFO is a keyboard with Right Ctrl, up.
extern "C" int ioctl(int fd, unsigned long request, ...) __THROW {
    va_list arguments;
    va_start(arguments, request);
    auto* answer = va_arg(arguments, unsigned char*);
    va_end(arguments);
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISFIFO(status.st_mode)) {
        return static_cast<int>(syscall(SYS_ioctl, fd, request, answer));
    }
    std::memset(answer, 0, _IOC_SIZE(request));
    if (_IOC_NR(request) == _IOC_NR(EVIOCGBIT(0, 0))) {
        answer[EV_KEY / 8] |= 1 << (EV_KEY % 8);
    } else if (_IOC_NR(request) == _IOC_NR(EVIOCGBIT(EV_KEY, 0))) {
        answer[KEY_RIGHTCTRL / 8] |= 1 << (KEY_RIGHTCTRL % 8);
    }
    return 0;
}

namespace kelvo::platform {
namespace {

// Keyboards are followed as they come and go. One unplugged with the trigger held releases it (or
// the dictation would never end), and the monitor goes on with the keyboard plugged in next.
TEST(EvdevKeyMonitorTest, FollowsKeyboardsAndAnUnplugMidHoldReleasesTheTrigger) {
    EXPECT_THROW(EvdevKeyMonitor("NoSuchKeyName"), std::invalid_argument);
    const kelvo::testing::TemporaryFolder folder;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<bool> states;
    auto expectStates = [&](std::vector<bool> expected) {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(10), [&] { return states == expected; });
        EXPECT_EQ(states, expected);
    };
    // O_RDWR opens a FIFO without waiting for its reader.
    auto plugInAndPress = [](const std::filesystem::path& node) {
        EXPECT_EQ(mkfifo(node.c_str(), 0600), 0);
        const int keyboard = open(node.c_str(), O_RDWR | O_CLOEXEC);
        const input_event press[] = {{{}, EV_KEY, KEY_RIGHTCTRL, 1}, {{}, EV_SYN, SYN_REPORT, 0}};
        EXPECT_EQ(write(keyboard, press, sizeof press), ssize_t(sizeof press));
        return keyboard;
    };
    EvdevKeyMonitor monitor("Control_R", folder.path());
    EXPECT_FALSE(monitor.hasListenAccess());
    EXPECT_FALSE(monitor.requestListenAccess());
    monitor.start([&](TriggerKeyEvent event) {
        std::lock_guard lock(mutex);
        states.push_back(event.isTriggerDown);
        changed.notify_all();
    });
    int keyboard = plugInAndPress(folder.path() / "event0");
    EXPECT_TRUE(monitor.hasListenAccess());
    expectStates({true});
    close(keyboard);  // unplugged: its reads end
    expectStates({true, false});
    keyboard = plugInAndPress(folder.path() / "event1");
    expectStates({true, false, true});
    close(keyboard);
}

}  // namespace
}  // namespace kelvo::platform

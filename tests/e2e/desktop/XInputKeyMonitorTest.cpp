// The XInput2 monitor against the session's real X server, driven by xdotool (XTest).
#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>
#include <vector>

#include "X11TestWindow.h"
#include "platform/linux/XInputKeyMonitor.h"

#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace kelvo::platform {
namespace {

using test::runProgram;
using test::waitUntil;
using test::X11TestWindow;

void xdotool(const QStringList& arguments) {
    int status = 0;
    runProgram(QStringList{"xdotool"} + arguments, &status);
    ASSERT_EQ(status, 0) << "xdotool " << arguments.join(' ').toStdString();
}

TEST(XInputKeyMonitorTest, SeesOnlyTheTriggerWithoutTakingItAwayEvenUnderAGrab) {
    EXPECT_THROW(XInputKeyMonitor("NoSuchKeyName"), std::invalid_argument);

    X11TestWindow target("editor", "Editor");
    target.focus();
    XInputKeyMonitor monitor;  // Control_R
    ASSERT_TRUE(monitor.hasListenAccess());
    EXPECT_TRUE(monitor.requestListenAccess());
    // The monitor calls back on a thread of its own.
    std::mutex mutex;
    std::vector<TriggerKeyEvent> log;
    monitor.start([&](TriggerKeyEvent event) {
        std::lock_guard lock(mutex);
        log.push_back(event);
    });
    const auto seen = [&] {
        std::lock_guard lock(mutex);
        return log;
    };

    // Another key first: raw events arrive in order, so once the trigger's two are in, F7 has
    // been seen and ignored.
    xdotool({"key", "F7"});
    xdotool({"keydown", "Control_R"});
    xdotool({"keyup", "Control_R"});
    ASSERT_TRUE(waitUntil([&] { return seen().size() >= 2; }));
    auto events = seen();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_TRUE(events[0].isTriggerDown);
    EXPECT_FALSE(events[1].isTriggerDown);
    // xdotool types through XTest.
    EXPECT_TRUE(events[0].isSynthetic);
    EXPECT_TRUE(events[1].isSynthetic);
    // Not grabbed: the focused window got the keys as well.
    EXPECT_TRUE(waitUntil([&] { return target.pressOf(XK_F7).has_value(); }));
    EXPECT_TRUE(waitUntil([&] { return target.pressOf(XK_Control_R).has_value(); }));

    // An open menu grabs the keyboard; a client speaking XInput 2.2 still sees raw events.
    Display* grabber = target.display();
    ASSERT_EQ(XGrabKeyboard(grabber, DefaultRootWindow(grabber), False, GrabModeAsync,
                            GrabModeAsync, CurrentTime),
              GrabSuccess);
    XSync(grabber, False);
    xdotool({"keydown", "Control_R"});
    xdotool({"keyup", "Control_R"});
    EXPECT_TRUE(waitUntil([&] { return seen().size() >= 4; }));
    XUngrabKeyboard(grabber, CurrentTime);
    XSync(grabber, False);
}

}  // namespace
}  // namespace kelvo::platform

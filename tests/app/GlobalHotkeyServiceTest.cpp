#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "KelvoVoiceMac/session/GlobalHotkeyService.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeRequestHandler.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/RecordingLog.h"
#include "fakes/ScriptedKeyMonitor.h"
#include "fakes/TestEventLoop.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class GlobalHotkeyServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ensureCoreApplication();
        service = std::make_unique<app::GlobalHotkeyService>(app::GlobalHotkeyService::Dependencies{
            handler, monitor, workspace, clock, log, [this] { return injecting; }});
        service->start();
        log.clear();
    }

    void press() {
        monitor.press();
        settle(clock);
    }
    void release() {
        monitor.release();
        settle(clock);
    }
    // Holds the key for the given time, then lets it go.
    void tap(platform::Clock::Duration held) {
        press();
        runFor(clock, held);
        release();
    }

    FakeClock clock;
    std::shared_ptr<FakeRequestHandler> handler = std::make_shared<FakeRequestHandler>();
    ScriptedKeyMonitor monitor;
    FakeWorkspace workspace;
    RecordingLog log;
    bool injecting = false;
    std::unique_ptr<app::GlobalHotkeyService> service;
};

// The prompt only when access is missing; the monitor is installed either way (without access it
// just receives nothing).
TEST_F(GlobalHotkeyServiceTest, RequestsInputMonitoringOnlyWhenMissing) {
    for (const bool access : {true, false}) {
        ScriptedKeyMonitor another;
        another.hasAccess = access;
        another.grantOnRequest = false;
        app::GlobalHotkeyService starting({handler, another, workspace, clock, log, {}});
        starting.start();
        EXPECT_EQ(another.requestCount, access ? 0 : 1);
        EXPECT_EQ(another.startCount, 1);
    }
    EXPECT_EQ(log.lines().back(),
              "[KelvoVoice] GlobalHotkeyService started inputMonitoringTrusted=false");
}

// Only changes of the trigger's state count: another modifier going down or up, or a key repeat,
// is no new press or release.
TEST_F(GlobalHotkeyServiceTest, HoldThresholdIsInclusiveAt280Milliseconds) {
    monitor.other(false);
    monitor.press();
    EXPECT_THAT(handler->requests, IsEmpty()) << "handled on the main thread, after the monitor";
    monitor.other(true);
    monitor.press();
    runFor(clock, 280ms);
    release();
    monitor.other(false);
    settle(clock);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn", "stopDictation fn-hold"));
    EXPECT_EQ(log.lines().back(), "[KelvoVoice] Fn hold up stopped duration=0.28");

    // 0.27 s is a tap: the recording runs on until the 400 ms window has passed.
    handler->requests.clear();
    tap(270ms);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn"));
    runFor(clock, 399ms);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn"));
    runFor(clock, 1ms);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn", "discardDictation fn-tap"));
    EXPECT_EQ(log.lines().back(), "[KelvoVoice] Fn single tap \u2192 discarded");
    press();  // after the window: a new gesture
    EXPECT_THAT(handler->requests,
                ElementsAre("startDictation fn", "discardDictation fn-tap", "startDictation fn"));
}

TEST_F(GlobalHotkeyServiceTest, DoubleTapStartsHandsFreeUntilTheNextRelease) {
    tap(100ms);
    runFor(clock, 399ms);
    press();            // second press inside the window cancels the single-tap discard
    runFor(clock, 3s);  // a long second press still counts as the second tap
    release();
    runFor(clock, 2s);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn"));

    press();  // does nothing while hands-free
    runFor(clock, 50ms);
    release();
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn", "stopDictation fn-toggle-off"));
}

// A refused start (e.g. a stop still running at the press) sends no stop at the hold's release,
// though the hold is still logged with its duration, and a double tap enters no hands-free mode.
TEST_F(GlobalHotkeyServiceTest, RefusedStartOrNoControllerNeitherStopsNorEntersHandsFree) {
    handler->acceptStart = false;
    tap(1234ms);
    tap(100ms);
    tap(100ms);
    EXPECT_THAT(log.lines(),
                ElementsAre("[KelvoVoice] Fn down handled started=false",
                            "[KelvoVoice] Fn hold up stopped duration=1.23",
                            "[KelvoVoice] Fn down handled started=false",
                            "[KelvoVoice] Fn second-tap down (double-tap pending)",
                            "[KelvoVoice] Fn double-tap \u2192 toggle ON active=false"));
    // The next press is an ordinary one again.
    handler->acceptStart = true;
    tap(500ms);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn", "startDictation fn",
                                               "startDictation fn", "stopDictation fn-hold"));

    // Without a controller the requests are skipped and count as refused.
    handler.reset();
    log.clear();
    tap(100ms);
    tap(100ms);
    EXPECT_FALSE(service->isToggleActive());
    EXPECT_EQ(log.lines().front(), "[KelvoVoice] Fn down handled started=false");
}

TEST_F(GlobalHotkeyServiceTest,
       SyntheticEventsCountOutsideOurOwnPasteAndNoEventsOnceTheServiceIsGone) {
    injecting = true;
    monitor.press(true);
    monitor.release(true);
    settle(clock);
    EXPECT_THAT(handler->requests, IsEmpty());
    EXPECT_FALSE(service->isFunctionKeyDown());

    // Test tools (xdotool) also send synthetic events; outside our injection they count.
    injecting = false;
    monitor.press(true);
    settle(clock);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn"));

    // Neither do the events and timers (the tap's discard) that come once the service is gone.
    release();
    monitor.press();
    service.reset();
    runFor(clock, 1s);
    EXPECT_THAT(handler->requests, ElementsAre("startDictation fn"));
}

}  // namespace
}  // namespace kelvo::test

// The session types wired together the way the application wires them, over fakes of the
// platform seams: key gestures drive the controller, which drives the real insertion service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "KelvoVoiceMac/session/GlobalHotkeyService.h"
#include "KelvoVoiceMac/session/MenuBarManager.h"
#include "KelvoVoiceMac/session/TextInsertionService.h"
#include "fakes/FakeAccessibilityClient.h"
#include "fakes/FakeAudioSource.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeKeySynthesizer.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakePreferences.h"
#include "fakes/FakeRecognizer.h"
#include "fakes/FakeStatusItemPresenter.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/InMemoryDictionaryStore.h"
#include "fakes/RecordingLog.h"
#include "fakes/ScriptedKeyMonitor.h"
#include "fakes/TestEventLoop.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using app::RecordingState;
using app::TranscriptionEvent;

class DictationSessionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ensureCoreApplication();
        accessibility.element->state = {"", std::nullopt,
                                        platform::AccessibilityClient::TextRange{0, 0}};
        accessibility.stateAfterSet = {"話した", std::nullopt,
                                       platform::AccessibilityClient::TextRange{3, 0}};
        manager = std::make_shared<app::MenuBarManager>(app::MenuBarManager::Dependencies{
            audio, speech, insertion, store, nullptr, preferences, clock, log, trace, status});
        hotkeys = std::make_unique<app::GlobalHotkeyService>(
            app::GlobalHotkeyService::Dependencies{manager, monitor, workspace, clock, log,
                                                   [this] { return insertion.isInjectingKeys(); }});
        hotkeys->start();
        log.clear();
    }

    void TearDown() override { runFor(clock, 5s); }

    void press() {
        monitor.press();
        settle(clock);
    }
    void release() {
        monitor.release();
        settle(clock);
    }

    FakeClock clock;
    RecordingLog log;
    RecordingLog trace;
    FakeStatusItemPresenter status;
    FakeAudioSource audio{clock};
    FakeRecognizer speech{clock};
    FakePreferences preferences;
    FakeAccessibilityClient accessibility{clock};
    FakePasteboard pasteboard;
    FakeKeySynthesizer keys;
    FakeWorkspace workspace;
    ScriptedKeyMonitor monitor;
    std::shared_ptr<InMemoryDictionaryStore> store = std::make_shared<InMemoryDictionaryStore>();
    app::TextInsertionService insertion{{accessibility, pasteboard, keys, workspace, clock, trace}};
    std::shared_ptr<app::MenuBarManager> manager;
    std::unique_ptr<app::GlobalHotkeyService> hotkeys;
};

// A hold released while the microphone still opens reaches the controller as a queued hold stop,
// and the words of the drain land through the real insertion service.
TEST_F(DictationSessionTest, HoldReleasedWhileTheMicrophoneOpensIsQueuedAndDrained) {
    audio.startDelay = 500ms;
    press();
    runFor(clock, 300ms);
    release();
    EXPECT_EQ(manager->queuedStopTrigger(), "fn-hold");
    runFor(clock, 200ms);  // the microphone is open now; the drain wait runs
    speech.send(TranscriptionEvent::partial("話した"));
    runFor(clock, 650ms + 200ms);
    EXPECT_THAT(log.lines(), ::testing::Contains("[KelvoVoice] Fn hold up stopped duration=0.30"));
    EXPECT_EQ(trace.lines().back(), "[TextInsertion] AX direct insertion succeeded");
    EXPECT_EQ(manager->lastInsertedText(), "話した");
    EXPECT_EQ(manager->recordingState(), RecordingState::idle);
}

TEST_F(DictationSessionTest, OurOwnPasteChordCannotTriggerADictation) {
    accessibility.changeDelay.reset();  // forces the clipboard path
    keys.onPaste = [this] {
        // The trigger key is part of the chord: its synthetic echo arrives while we inject.
        monitor.press(true);
        monitor.release(true);
        clock.schedule(2ms, [this] { pasteboard.fetchByTarget(); });
    };
    press();
    runFor(clock, 100ms);
    speech.send(TranscriptionEvent::final_("貼り付け"));
    runFor(clock, 400ms);
    release();
    runFor(clock, 2s);
    EXPECT_EQ(keys.pasteCount, 1);
    EXPECT_EQ(audio.startCount, 1);
    EXPECT_EQ(manager->lastInsertedText(), "貼り付け");
    // The echo was dropped before the gesture logic saw it, not merely refused by the controller.
    const std::vector<std::string> lines = log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "[KelvoVoice] Fn down handled started=true"),
              1);
    EXPECT_THAT(log.lines(),
                ::testing::Not(::testing::Contains("[KelvoVoice] Fn down handled started=false")));
}

}  // namespace
}  // namespace kelvo::test

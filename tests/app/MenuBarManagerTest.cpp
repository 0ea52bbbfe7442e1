#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/MenuBarManager.h"
#include "fakes/FakeAudioSource.h"
#include "fakes/FakeClock.h"
#include "fakes/FakePreferences.h"
#include "fakes/FakeRecognizer.h"
#include "fakes/FakeStatusItemPresenter.h"
#include "fakes/FakeTextInserter.h"
#include "fakes/InMemoryDictionaryStore.h"
#include "fakes/RecordingLog.h"
#include "fakes/TestEventLoop.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using app::RecordingState;
using app::TranscriptionEvent;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MenuBarManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ensureCoreApplication();
        build();
    }

    void TearDown() override {
        // Let every task end before the manager and the fakes go away; none may hang on.
        runFor(clock, 5s);
        EXPECT_FALSE(manager->isTransitioning());
    }

    void build(bool withEngine = true) {
        std::shared_ptr<const DictionaryCorrectionEngine> engine;
        if (withEngine) {
            engine = std::make_shared<DictionaryCorrectionEngine>(store);
        }
        manager = std::make_unique<app::MenuBarManager>(app::MenuBarManager::Dependencies{
            audio, speech, inserter, store, engine, preferences, clock, log, trace, status});
        journal.clear();
    }

    // Starts from the menu and lets the microphone open.
    void startRecording() {
        ASSERT_TRUE(manager->startDictation("menu"));
        runFor(clock, audio.startDelay);
        ASSERT_EQ(manager->recordingState(), RecordingState::recording);
        ASSERT_FALSE(manager->isTransitioning());
    }

    std::vector<std::string> journal;
    FakeClock clock;
    RecordingLog log{&journal, "log: "};
    RecordingLog trace{&journal, "trace: "};
    FakeStatusItemPresenter status{&journal};
    FakeAudioSource audio{clock, &journal};
    FakeRecognizer speech{clock, &journal};
    FakeTextInserter inserter{clock, &journal};
    FakePreferences preferences;
    std::shared_ptr<InMemoryDictionaryStore> store = std::make_shared<InMemoryDictionaryStore>(
        std::vector<DictionaryEntry>{dictionaryEntry("KelvoVoice", {"ケルボボイス"})});
    std::unique_ptr<app::MenuBarManager> manager;
};

// The whole session from the menu, whose action toggles, with the requests the state refuses on
// the way: a stop or (silently) a discard while idle, a start while recording.
TEST_F(MenuBarManagerTest, MenuStartAndStopRunTheWholeSessionInOrder) {
    EXPECT_FALSE(manager->stopDictation("menu"));
    EXPECT_FALSE(manager->discardDictation("fn-tap"));
    manager->startDictation();
    // The requester returns before the start task runs.
    EXPECT_TRUE(manager->isTransitioning());
    EXPECT_EQ(manager->recordingState(), RecordingState::idle);
    runFor(clock, 50ms);
    EXPECT_FALSE(manager->startDictation("fn"));
    EXPECT_THAT(speech.contextualStrings, ElementsAre("KelvoVoice"));

    speech.send(TranscriptionEvent::partial("こんにち"));
    speech.send(TranscriptionEvent::final_("こんにちは"));
    speech.send(TranscriptionEvent::partial("ケルボボイス"));
    settle(clock);
    manager->startDictation();
    runFor(clock, 100ms);

    EXPECT_THAT(
        journal,
        ElementsAre("log: [KelvoVoice] Ignored stopDictation trigger=menu because recording is "
                    "not active",
                    "item: disabled", "log: [KelvoVoice] Starting dictation trigger=menu",
                    "speech: hints 1", "capture: start", "capture: started", "speech: start",
                    "status: recording", "item: enabled",
                    "log: [KelvoVoice] Ignored startDictation trigger=fn because recording is "
                    "already active",
                    "trace: [Partial] こんにち", "trace: [Final] こんにちは",
                    "trace: [Partial] ケルボボイス", "item: disabled",
                    "log: [KelvoVoice] Stopping dictation trigger=menu", "capture: stop",
                    "speech: stop", "speech: stopped",
                    "log: [KelvoVoice] Dictionary corrections applied count=1",
                    "insert: こんにちはKelvoVoice", "status: idle", "item: enabled"));
    EXPECT_THAT(inserter.insertions, ElementsAre(std::make_pair("こんにちはKelvoVoice", true)));
    EXPECT_EQ(speech.audioStream, audio.audio);
    EXPECT_TRUE(audio.audio->isClosed());
    EXPECT_EQ(speech.catchUpStopCount, 1);
}

// A hold release keeps capture and recognition running 650 ms so that the last words still
// arrive, also when the release came while the microphone was opening (the state then passes
// through recording with the transition still on); any other stop ends capture at once.
TEST_F(MenuBarManagerTest, OnlyAHoldStopWaits650MillisecondsForTheLastWords) {
    struct Case {
        const char* trigger;
        bool queuedDuringStart;
        std::chrono::milliseconds drain;
    };
    for (const Case& c :
         {Case{"fn-hold", false, 650ms}, Case{"fn-hold", true, 650ms}, Case{"menu", false, 0ms}}) {
        SCOPED_TRACE(std::string(c.trigger) + (c.queuedDuringStart ? " queued" : ""));
        const int stopsBefore = audio.stopCount;
        if (c.queuedDuringStart) {
            ASSERT_TRUE(manager->startDictation("fn"));
            runFor(clock, 10ms);
            EXPECT_TRUE(manager->stopDictation(c.trigger));
            EXPECT_EQ(manager->queuedStopTrigger(), c.trigger);
            EXPECT_FALSE(manager->startDictation("menu"));
            runFor(clock, 40ms);
            EXPECT_EQ(manager->recordingState(), RecordingState::recording);
            EXPECT_TRUE(manager->isTransitioning());
            EXPECT_FALSE(status.dictationItemEnabled);
            speech.send(TranscriptionEvent::final_("テスト"));
        } else {
            startRecording();
            speech.send(TranscriptionEvent::final_("テスト"));
            EXPECT_TRUE(manager->stopDictation(c.trigger));
        }
        if (c.drain > 0ms) {
            runFor(clock, c.drain - 1ms);
            EXPECT_EQ(audio.stopCount, stopsBefore);
            speech.send(TranscriptionEvent::partial("です"));
            runFor(clock, 1ms);
        }
        settle(clock);
        EXPECT_EQ(audio.stopCount, stopsBefore + 1);
        runFor(clock, 100ms);
        EXPECT_EQ(inserter.insertions.back().first, c.drain > 0ms ? "テストです" : "テスト");
        EXPECT_EQ(log.lines().back() ==
                      "[KelvoVoice] Waiting 650ms before stopping dictation for final partial "
                      "drain",
                  c.drain > 0ms);
        EXPECT_TRUE(status.dictationItemEnabled);
    }
}

TEST_F(MenuBarManagerTest, QueuedRequestsCombineLatestStopWinsAndDiscardOverrides) {
    // Two stops: only the second trigger is kept (so no drain wait).
    manager->startDictation("fn");
    manager->stopDictation("fn-hold");
    manager->stopDictation("menu");
    runFor(clock, 50ms);
    EXPECT_THAT(log.lines().back(),
                "[KelvoVoice] Running queued stop after start completed trigger=menu");
    runFor(clock, 100ms);
    EXPECT_EQ(manager->recordingState(), RecordingState::idle);

    // Discard then stop: both accepted, the discard runs and the stop is dropped.
    log.clear();
    manager->startDictation("fn");
    EXPECT_TRUE(manager->discardDictation("fn-tap"));
    EXPECT_TRUE(manager->queuedDiscard());
    EXPECT_TRUE(manager->stopDictation("fn-hold"));
    runFor(clock, 50ms);
    speech.send(TranscriptionEvent::final_("捨てる"));
    runFor(clock, 100ms);
    EXPECT_THAT(log.lines(),
                ElementsAre("[KelvoVoice] Starting dictation trigger=fn",
                            "[KelvoVoice] Queued discard trigger=fn-tap until start completes",
                            "[KelvoVoice] Queued stopDictation trigger=fn-hold until start "
                            "completes",
                            "[KelvoVoice] Running queued discard after start completed"));

    // Stop then discard: the discard clears the queued stop and runs alone.
    log.clear();
    manager->startDictation("fn");
    manager->stopDictation("fn-hold");
    manager->discardDictation("fn-tap");
    EXPECT_FALSE(manager->queuedStopTrigger().has_value());
    runFor(clock, 200ms);
    EXPECT_THAT(inserter.insertions, IsEmpty());
    EXPECT_FALSE(manager->queuedDiscard());
    EXPECT_EQ(manager->recordingState(), RecordingState::idle);
}

TEST_F(MenuBarManagerTest, EveryRequestDuringAFinishIsIgnored) {
    startRecording();
    speech.send(TranscriptionEvent::final_("途中"));
    inserter.insertDelay = 100ms;
    manager->stopDictation("fn-hold");
    for (auto step : {1ms, 700ms, 50ms}) {  // during the drain, the recogniser stop, the insertion
        runFor(clock, step);
        log.clear();
        EXPECT_TRUE(manager->isTransitioning());
        EXPECT_FALSE(manager->startDictation("fn"));
        EXPECT_FALSE(manager->stopDictation("fn-toggle-off"));
        EXPECT_FALSE(manager->discardDictation("fn-tap"));
        EXPECT_FALSE(manager->pasteLastText());
        EXPECT_THAT(log.lines(),
                    ElementsAre("[KelvoVoice] Ignored startDictation trigger=fn because "
                                "transition is active",
                                "[KelvoVoice] Ignored stopDictation trigger=fn-toggle-off because "
                                "transition is active",
                                "[KelvoVoice] Ignored discard trigger=fn-tap because transition "
                                "is active",
                                "[KelvoVoice] Ignored pasteLastText because transition is active"));
    }
    EXPECT_THAT(inserter.insertions, ElementsAre(std::make_pair("途中", true)));
}

TEST_F(MenuBarManagerTest, CaptureFailureDropsQueuedRequestsAndReturnsToIdle) {
    audio.failure = "Microphone permission denied";
    manager->startDictation("fn");
    manager->stopDictation("fn-hold");
    manager->discardDictation("fn-tap");
    runFor(clock, 200ms);
    EXPECT_THAT(
        trace.lines(),
        ElementsAre("[KelvoVoice] Failed to start dictation: Microphone permission denied"));
    EXPECT_EQ(manager->recordingState(), RecordingState::idle);
    EXPECT_FALSE(manager->isTransitioning());
    EXPECT_FALSE(manager->queuedDiscard());
    EXPECT_FALSE(manager->queuedStopTrigger().has_value());
    // The finish routine still stopped whatever might have started.
    EXPECT_EQ(audio.stopCount, 1);
    EXPECT_EQ(speech.stopCount, 1);
    EXPECT_THAT(inserter.insertions, IsEmpty());

    // A stop that arrives while the failed start is still cleaning up is dropped with it, not
    // left to fire on the next start.
    speech.stopDelay = 100ms;
    manager->startDictation("fn");
    runFor(clock, audio.startDelay);
    EXPECT_TRUE(manager->stopDictation("fn-hold"));
    runFor(clock, 200ms);
    EXPECT_FALSE(manager->queuedStopTrigger().has_value());

    // The session works again afterwards.
    audio.failure.reset();
    startRecording();
}

// What a finish inserts: nothing after a discard, for no words or for fillers alone; the last final
// can arrive during the recogniser's stop; a dictionary that failed to load means no hints and no
// corrections, not an error. (The finished text's own rules are DictationTranscriptTest's.) The
// texts are cleared either way.
TEST_F(MenuBarManagerTest, WhatAFinishInsertsDependsOnTheWordsTheRequestAndTheSettings) {
    const auto F = TranscriptionEvent::final_;
    const struct {
        const char* rule;
        std::vector<TranscriptionEvent> events;
        std::optional<std::string> finalOnStop;
        bool discard, withDictionary, removeFillers;
        std::optional<std::string> inserted;
    } cases[] = {
        // clang-format off
        {"discarded", {F("ケルボボイス"), TranscriptionEvent::partial("えーと")}, {}, true, true, true, {}},
        {"no words", {}, {}, false, true, true, {}},
        {"only a filler", {F("えーと")}, {}, false, true, true, {}},
        {"the last final during the stop", {}, "えーとケルボボイス", false, true, true, "KelvoVoice"},
        {"no dictionary, fillers kept", {F("えーとケルボボイス")}, {}, false, false, false, "えーとケルボボイス"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rule);
        build(c.withDictionary);
        preferences.setBool("kvmac_fillerRemovalEnabled", c.removeFillers);
        inserter.insertions.clear();
        startRecording();
        for (const TranscriptionEvent& event : c.events) {
            speech.send(event);
        }
        speech.finalOnStop = c.finalOnStop;
        settle(clock);
        const int catchUpStops = speech.catchUpStopCount;
        EXPECT_TRUE(c.discard ? manager->discardDictation("fn-tap")
                              : manager->stopDictation("menu"));
        runFor(clock, 100ms);
        EXPECT_EQ(speech.catchUpStopCount - catchUpStops, c.discard ? 0 : 1)
            << "only words that are kept wait for the recogniser to catch up";
        EXPECT_EQ(inserter.insertions.empty() ? std::nullopt
                                              : std::optional(inserter.insertions.back().first),
                  c.inserted);
        EXPECT_EQ(std::count(journal.begin(), journal.end(), "speech: hints 1"), c.withDictionary);
        EXPECT_EQ(manager->confirmedText() + manager->partialText(), "");
    }
}

// An insertion that fails, or a backend that throws, still resets the session and keeps the words.
TEST_F(MenuBarManagerTest, FailedInsertionKeepsTheTextForPastingAgain) {
    EXPECT_FALSE(manager->pasteLastText());
    for (bool throwing : {true, false}) {
        SCOPED_TRACE(throwing ? "throws" : "fails");
        inserter.throwing = throwing;
        inserter.result = false;
        startRecording();
        speech.send(TranscriptionEvent::final_("大事な話"));
        manager->stopDictation("menu");
        runFor(clock, 100ms);
        EXPECT_EQ(log.lines().back(),
                  "[KelvoVoice] Insertion failed; dictated text kept for pasting again");
        EXPECT_EQ(manager->lastUninsertedText(), "大事な話");
    }

    inserter.result = true;
    EXPECT_TRUE(manager->pasteLastText());
    runFor(clock, 100ms);
    EXPECT_EQ(manager->lastInsertedText(), "大事な話");
    EXPECT_FALSE(manager->lastUninsertedText().has_value());

    // The last inserted text can be pasted again as well, but not while recording.
    startRecording();
    EXPECT_FALSE(manager->pasteLastText());
    manager->discardDictation("menu");
    runFor(clock, 100ms);
    EXPECT_TRUE(manager->pasteLastText());
    runFor(clock, 100ms);
    EXPECT_EQ(inserter.insertions, decltype(inserter.insertions)(4, {"大事な話", true}));
    EXPECT_THAT(log.lines(),
                ::testing::IsSupersetOf(
                    {"[KelvoVoice] Insertion error: accessibility bus went away",
                     "[KelvoVoice] Ignored pasteLastText because there is no dictated text",
                     "[KelvoVoice] Pasting last dictated text again",
                     "[KelvoVoice] Ignored pasteLastText because recording is active"}));
}

}  // namespace
}  // namespace kelvo::test

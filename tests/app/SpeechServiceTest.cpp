// The speech service over scripted engines: which engine a dictation gets and the trace that says
// why, the model engine's results, finalisation and failures, and the segment recogniser's
// requests, restarts and stop.

#include <gtest/gtest.h>

#include <QCoroTask>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KelvoVoiceMac/session/SpeechService.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeModelEngine.h"
#include "fakes/FakeSegmentRecognizerProvider.h"
#include "fakes/RecordingLog.h"
#include "fakes/TestEventLoop.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using app::AudioBuffer;
using app::Channel;
using app::SpeechService;
using app::TranscriptionEvent;
using platform::AssetStatus;
using Events = std::vector<TranscriptionEvent>;
using Lines = std::vector<std::string>;

const std::string usingAnalyzerLine = "[SpeechService] Using SpeechAnalyzer/SpeechTranscriber";

std::string fallbackLine(const std::string& description) {
    return "[SpeechService] SpeechAnalyzer unavailable: " + description +
           ". Falling back to SFSpeechRecognizer";
}

// Every event of a stream that must have ended by now (a stream left open fails, not hangs).
Events drainEvents(Channel<TranscriptionEvent>& events) {
    Events all;
    EXPECT_TRUE(events.isClosed());
    while (std::optional<TranscriptionEvent> event = events.tryReceive()) {
        all.push_back(*event);
    }
    return all;
}

// Flags the end of a stop; the flag outlives a test that gave up waiting for it.
QCoro::Task<> flagOnceDone(QCoro::Task<> stopping, std::shared_ptr<bool> finished) {
    co_await std::move(stopping);
    *finished = true;
}

AudioBuffer buffer(std::size_t frames) {
    return AudioBuffer{std::vector<std::int16_t>(frames, 100)};
}

class SpeechServiceTest : public ::testing::Test {
  protected:
    SpeechServiceTest() { ensureCoreApplication(); }

    ~SpeechServiceTest() override {
        // Ends the audio of every dictation so that no consumer thread outlives the test.
        for (const auto& stream : audioStreams) {
            stream->close();
        }
    }

    // Starts a dictation on fresh audio and waits until the service has settled on an engine (or
    // given up).
    void start() {
        audio = audioStreams.emplace_back(std::make_shared<Channel<AudioBuffer>>());
        events = service->startTranscription(audio);
        EXPECT_TRUE(
            waitUntil([&] { return service->activeEngine().has_value() || events->isClosed(); }));
    }

    // Starts on the segment recogniser and returns the request it started.
    std::shared_ptr<FakeSegmentRecognitionTask> startFallback() {
        engine.available = false;
        start();
        return recognizers.localeRecognizer->tasks().back();
    }

    void stop() { QCoro::waitFor(service->stop()); }

    FakeClock clock;
    RecordingLog trace;
    FakeModelEngine engine;
    FakeSegmentRecognizerProvider recognizers;
    std::shared_ptr<SpeechService> service =
        std::make_shared<SpeechService>(engine, recognizers, clock, trace);
    std::vector<std::shared_ptr<Channel<AudioBuffer>>> audioStreams;
    std::shared_ptr<Channel<AudioBuffer>> audio;
    std::shared_ptr<Channel<TranscriptionEvent>> events;
};

// Blanks do not count towards the hundred. (Trimming is the fallback's test below.)
TEST_F(SpeechServiceTest, ContextualStringsAreCappedAtOneHundredNonBlankOnes) {
    Lines many;
    for (int i = 0; i < 150; ++i) {
        many.push_back(i % 10 == 0 ? " " : "term" + std::to_string(i));
    }
    service->setContextualStrings(many);
    ASSERT_EQ(service->contextualStrings().size(), 100u);
    EXPECT_EQ(service->contextualStrings().back(), "term111");
}

// Installed assets, or assets the installation request (or a second status read) finds installed,
// start the model engine; anything else falls back with its reason. Hints that cannot be applied
// are traced and do not stop the engine; blank ones apply nothing.
TEST_F(SpeechServiceTest, ReadinessDecidesBetweenTheModelEngineAndTheFallbackAndTracesWhy) {
    using Installation = FakeModelEngine::Installation;
    const std::string check =
        "[SpeechService] SpeechTranscriber check locale=ja-JP resolved=ja-JP "
        "supportedCount=3 installedCount=1 assetStatus=";
    const std::string installing = "[SpeechService] Installing SpeechTranscriber assets progress=";
    const std::string after =
        "[SpeechService] SpeechTranscriber asset status after install request=";
    const auto notInstalled = [](const std::string& status) {
        return fallbackLine(
            "SpeechTranscriber assets are not installed after request (status=" + status + ")");
    };
    const auto statuses = [](std::vector<AssetStatus> sequence,
                             std::optional<Installation> installation = {}) {
        return [=](FakeModelEngine& e) {
            e.statuses = sequence;
            e.installation = installation;
        };
    };
    const auto transcriber = [](std::function<void(FakeModelTranscriber&)> configure) {
        return [=](FakeModelEngine& e) { e.configureTranscriber = configure; };
    };
    const auto none = [](FakeModelEngine&) {};
    const struct {
        const char* rule;
        std::function<void(FakeModelEngine&)> setUp;
        Lines hints;
        Lines lines;
    } cases[] = {
        // clang-format off
        {"installed, with hints", none, {"東京", " 渋谷 "},
         {check + "installed", "[SpeechService] contextualStrings applied count=2", usingAnalyzerLine}},
        {"hints refused", transcriber([](auto& t) { t.contextFailure = "prompt too long"; }), {"東京"},
         {check + "installed", "[SpeechService] Failed to apply contextualStrings: prompt too long",
          usingAnalyzerLine}},
        {"blank hints", none, {" ", "\n"}, {check + "installed", usingAnalyzerLine}},
        {"unsupported", statuses({AssetStatus::unsupported}), {},
         {check + "unsupported", notInstalled("unsupported")}},
        {"unknown", statuses({AssetStatus::unknown}), {}, {check + "unknown", notInstalled("unknown")}},
        {"installed by the request",
         statuses({AssetStatus::supported, AssetStatus::installed}, Installation{0.25, {}}), {},
         {check + "supported", installing + "0.25", after + "installed", usingAnalyzerLine}},
        {"installation fails", statuses({AssetStatus::downloading}, Installation{0, "download failed"}),
         {}, {check + "downloading", installing + "0.0", fallbackLine("download failed")}},
        {"no installation request", statuses({AssetStatus::downloading}), {},
         {check + "downloading", after + "downloading", notInstalled("downloading")}},
        {"no module", [](auto& e) { e.available = false; }, {},
         {fallbackLine("SpeechTranscriber is not available on this device")}},
        {"unsupported locale", [](auto& e) { e.equivalent.reset(); }, {},
         {fallbackLine("SpeechTranscriber does not support locale ja-JP (supportedCount=3)")}},
        {"preparation fails", transcriber([](auto& t) { t.prepareFailure = "bad magic"; }), {},
         {check + "installed", fallbackLine("bad magic")}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rule);
        FakeModelEngine caseEngine;
        c.setUp(caseEngine);
        RecordingLog caseTrace;
        auto caseService =
            std::make_shared<SpeechService>(caseEngine, recognizers, clock, caseTrace);
        caseService->setContextualStrings(c.hints);
        auto caseAudio = std::make_shared<Channel<AudioBuffer>>();
        caseService->startTranscription(caseAudio);
        ASSERT_TRUE(waitUntil([&] { return caseService->activeEngine().has_value(); }));
        EXPECT_EQ(caseService->activeEngine() == SpeechService::TranscriptionEngine::speechAnalyzer,
                  c.lines.back() == usingAnalyzerLine);
        EXPECT_EQ(caseTrace.lines(), c.lines);
        caseAudio->close();
        QCoro::waitFor(caseService->stop());
    }
}

// The model engine's results reach the stream in order; finishing the input finalises through the
// end of it, so the finals still outstanding arrive before the stream ends.
TEST_F(SpeechServiceTest, ModelEngineResultsAndOutstandingFinalsArriveBeforeTheStreamEnds) {
    engine.configureTranscriber = [](FakeModelTranscriber& transcriber) {
        transcriber.finalsOutstandingAtFinalize = {"会議の", "資料です。"};
    };
    start();
    FakeModelTranscriber* transcriber = engine.transcriber();
    ASSERT_NE(transcriber, nullptr);
    audio->send(buffer(1365));
    audio->send(buffer(1366));
    EXPECT_TRUE(waitUntil([&] { return transcriber->analyzedSampleCount == 2731; }));
    transcriber->pushResult("明日の", false);
    transcriber->pushResult("明日の", true);
    EXPECT_EQ(events->receive(), TranscriptionEvent::partial("明日の"));

    audio->close();  // capture stops first
    auto finished = std::make_shared<bool>(false);
    QCoro::Task<> finishing = flagOnceDone(service->finishInput(), finished);
    ASSERT_TRUE(waitUntil([&] { return *finished; }));
    EXPECT_EQ(drainEvents(*events),
              (Events{TranscriptionEvent::final_("明日の"), TranscriptionEvent::final_("会議の"),
                      TranscriptionEvent::final_("資料です。")}));
    EXPECT_TRUE(trace.contains("[SpeechService] SpeechAnalyzer finalized through end of input"));
    EXPECT_FALSE(service->activeEngine().has_value());
}

TEST_F(SpeechServiceTest, ModelEngineFailuresAreTracedAndTheStreamStillEnds) {
    // Finalisation fails: traced, the analyser is cancelled, stop completes (and frees it).
    std::atomic<bool> cancelled = false;
    engine.configureTranscriber = [&cancelled](FakeModelTranscriber& transcriber) {
        transcriber.finalizeFailure = "decoder state lost";
        transcriber.onCancel = [&cancelled] { cancelled = true; };
    };
    start();
    audio->close();
    stop();
    EXPECT_TRUE(cancelled);
    EXPECT_TRUE(
        trace.contains("[SpeechService] SpeechAnalyzer finalize failed: decoder state lost"));
    EXPECT_TRUE(drainEvents(*events).empty());

    // The input loop fails: traced and the stream ends at once.
    engine.configureTranscriber = [](FakeModelTranscriber& transcriber) {
        transcriber.analyzeFailure = "out of memory";
    };
    start();
    audio->send(buffer(10));
    EXPECT_TRUE(waitUntil([&] { return events->isClosed(); }));
    EXPECT_TRUE(trace.contains("[SpeechService] SpeechAnalyzer input loop error: out of memory"));
    stop();

    // The result sequence fails: traced, the stream stays open until stop.
    engine.configureTranscriber = nullptr;
    start();
    engine.transcriber()->failResults("model crashed");
    EXPECT_TRUE(waitUntil([&] {
        return trace.contains("[SpeechService] SpeechAnalyzer results error: model crashed");
    }));
    EXPECT_FALSE(events->isClosed());
    audio->close();
    stop();
    EXPECT_TRUE(events->isClosed());
}

TEST_F(SpeechServiceTest, FallbackFeedsAudioToTheCurrentRequestWithOnDeviceAndHintOptions) {
    service->setContextualStrings(
        {"  東京駅\n", "", " \t\r\n", "\u3000渋谷\u3000", "渋谷", "Kelvo"});
    const auto task = startFallback();
    EXPECT_EQ(recognizers.requestedLocale, "ja-JP");
    EXPECT_EQ(recognizers.authorizationRequests, 1);
    EXPECT_TRUE(task->options.shouldReportPartialResults &&
                task->options.requiresOnDeviceRecognition);
    EXPECT_FALSE(task->options.addsPunctuation);
    EXPECT_EQ(task->options.contextualStrings, (Lines{"東京駅", "渋谷", "渋谷", "Kelvo"}));

    audio->send(buffer(1365));
    audio->send(buffer(1366));
    EXPECT_TRUE(waitUntil([&] { return task->appendedSamples == 2731; }));
    task->deliverPartial("あした");
    EXPECT_EQ(events->receive(), TranscriptionEvent::partial("あした"));

    audio->close();
    EXPECT_TRUE(waitUntil([&] { return task->catchUpCount == 1; }))
        << "the consumer has the current request catch up when the stream ends";
    // Finishing the input then ends the audio and waits for the recogniser to decode its end, so
    // the last final arrives instead of being cancelled.
    auto finished = std::make_shared<bool>(false);
    QCoro::Task<> finishing = flagOnceDone(service->finishInput(), finished);
    task->decodeEnd();
    ASSERT_TRUE(waitUntil([&] { return task->endAudioCount == 1; }));
    EXPECT_FALSE(*finished || task->cancelled);
    task->deliverFinal("最後");
    task->decodeEnd();
    ASSERT_TRUE(waitUntil([&] { return *finished; }));
    EXPECT_EQ(drainEvents(*events), (Events{TranscriptionEvent::final_("最後")}));
}

// A final closes the segment and a new request takes the following audio 0.1 s later; "no speech
// detected" restarts after 0.3 s, silently; a cancelled request ends silently, and any other error
// is traced and ends recognition for this dictation.
TEST_F(SpeechServiceTest, FallbackRestartsAfterAFinalAndAfterNoSpeechButNotForOtherErrors) {
    recognizers.localeRecognizer->onDevice = false;
    startFallback();
    const auto& recognizer = *recognizers.localeRecognizer;
    EXPECT_FALSE(recognizer.tasks()[0]->options.requiresOnDeviceRecognition);
    using Task = FakeSegmentRecognitionTask;
    const struct {
        std::function<void(Task&)> deliver;
        std::optional<std::chrono::milliseconds> restartAfter;
    } steps[] = {
        {[](Task& task) { task.deliverFinal("一つ目。"); }, 100ms},
        {[](Task& task) { task.deliverError(1110, "No speech detected"); }, 300ms},
        {[](Task& task) { task.deliverError(216, "Request was canceled"); }, std::nullopt},
        {[](Task& task) { task.deliverError(203, "Retry"); }, std::nullopt},
    };
    for (const auto& step : steps) {
        const std::size_t before = recognizer.tasks().size();
        SCOPED_TRACE(before);
        step.deliver(*recognizer.tasks().back());
        clock.advance(step.restartAfter.value_or(1s) - 1ms);
        EXPECT_EQ(recognizer.tasks().size(), before);
        clock.advance(1ms);
        ASSERT_EQ(recognizer.tasks().size(), before + (step.restartAfter ? 1 : 0));
        if (step.restartAfter) {  // the new request receives the following audio
            audio->send(buffer(800));
            EXPECT_TRUE(
                waitUntil([&] { return recognizer.tasks()[before]->appendedSamples == 800; }));
        }
    }
    EXPECT_EQ(recognizer.tasks()[0]->appendedSamples.load(), 0u);
    EXPECT_EQ(trace.lines(),
              (Lines{fallbackLine("SpeechTranscriber is not available on this device"),
                     "[SpeechService] Recognition error: Retry"}));
    audio->close();
    stop();
    EXPECT_EQ(drainEvents(*events), (Events{TranscriptionEvent::final_("一つ目。")}));
}

// A stop with nothing started is harmless, also twice.
TEST_F(SpeechServiceTest, StoppingTheFallbackCancelsTheTaskAndNoRestartFollows) {
    stop();
    stop();
    EXPECT_TRUE(trace.lines().empty());
    const auto task = startFallback();
    task->deliverPartial("途中");
    stop();
    EXPECT_TRUE(task->cancelled);
    EXPECT_GE(task->endAudioCount.load(), 1);
    EXPECT_EQ(drainEvents(*events), (Events{TranscriptionEvent::partial("途中")}))
        << "a final that never came is not waited for";
    EXPECT_FALSE(service->activeEngine().has_value());

    // A final that arrives after stop is not turned into a restart.
    task->deliverFinal("遅れた");
    task->deliverError(1110, "No speech detected");
    clock.advance(1s);
    EXPECT_EQ(recognizers.localeRecognizer->tasks().size(), 1u);

    // The stopped dictation's audio ending late (its consumer thread starved) must not end the
    // audio of the next dictation's request.
    const auto first = audio;
    start();
    auto next = recognizers.localeRecognizer->tasks().at(1);
    first->close();
    // Nothing to wait for when it is right: the stopped dictation's thread gets a moment to err.
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(next->catchUpCount.load(), 0);

    // The service gone, its requests give up.
    service.reset();
    next->deliverFinal("後");
    clock.advance(1s);
    audio->send(buffer(10));
    audio->close();
    EXPECT_EQ(recognizers.localeRecognizer->tasks().size(), 2u);
}

// The recogniser decodes only when the test says so, as one behind real time does: the stop of a
// kept dictation cancels it only once the captured audio is in its last partial, or at the
// deadline. A request that ended at a final is followed at once, not after the restart delay, so
// that the audio after the final is decoded without waiting for the clock.
TEST_F(SpeechServiceTest, StoppingAKeptFallbackDictationWaitsForTheRecognizerToCatchUp) {
    for (const bool catchesUp : {true, false}) {
        const auto task = startFallback();
        const auto tasks = [&] { return recognizers.localeRecognizer->tasks(); };
        const std::size_t started = tasks().size();
        task->deliverPartial("明日の");
        if (catchesUp) {
            task->deliverFinal("明日の");
        }
        audio->send(buffer(4096));
        audio->close();  // capture stops first
        ASSERT_TRUE(waitUntil([&] { return task->catchUpCount == 1; }));
        auto stopped = std::make_shared<bool>(false);
        QCoro::Task<> stopping = flagOnceDone(service->stopAfterCatchingUp(), stopped);
        EXPECT_FALSE(*stopped || task->cancelled);
        EXPECT_EQ(tasks().size(), started + (catchesUp ? 1 : 0));
        if (catchesUp) {
            tasks().back()->deliverFinal("会議");  // and one that ends while the stop waits
            clock.runPending();
            ASSERT_EQ(tasks().size(), started + 2);
            tasks().back()->deliverPartial("です");
            task->decodeEnd();
        } else {
            clock.advance(SpeechService::legacyCatchUpDeadline);
        }
        ASSERT_TRUE(waitUntil([&] { return *stopped; }));
        EXPECT_TRUE(tasks().back()->cancelled);
        EXPECT_EQ(drainEvents(*events).back(),
                  TranscriptionEvent::partial(catchesUp ? "です" : "明日の"));
    }
    EXPECT_EQ(trace.lines().back(),
              "[SpeechService] Fallback recogniser still behind after 1500 ms; stopping with its "
              "last partial");
}

TEST_F(SpeechServiceTest, FallbackUsesTheDefaultLocaleOrEndsTheStreamWithoutARecognizer) {
    engine.available = false;
    recognizers.localeRecognizer = nullptr;
    recognizers.defaultRecognizer = std::make_shared<FakeSegmentRecognizer>("en-US");
    start();
    EXPECT_EQ(recognizers.defaultRecognizer->tasks().size(), 1u);
    stop();

    // Then an unavailable default recogniser, then none at all.
    recognizers.defaultRecognizer->available = false;
    for (int round = 0; round < 2; ++round) {
        start();
        EXPECT_TRUE(drainEvents(*events).empty());
        EXPECT_EQ(trace.lines().back(), "[SpeechService] No SFSpeechRecognizer available");
        stop();
        recognizers.defaultRecognizer = nullptr;
    }
}

}  // namespace
}  // namespace kelvo::test

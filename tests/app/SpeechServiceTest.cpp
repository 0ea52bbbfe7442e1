#include <gtest/gtest.h>
#include <atomic>

#include <QCoroTask>
#include <chrono>
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
#include "fakes/WaitUntil.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using app::AudioBuffer;
using app::Channel;
using app::SpeechService;
using app::TranscriptionEvent;
using platform::AssetStatus;

const std::string checkLineInstalled =
    "[SpeechService] SpeechTranscriber check locale=ja-JP resolved=ja-JP supportedCount=3 "
    "installedCount=1 assetStatus=installed";
const std::string usingAnalyzerLine = "[SpeechService] Using SpeechAnalyzer/SpeechTranscriber";

std::string fallbackLine(const std::string& description) {
    return "[SpeechService] SpeechAnalyzer unavailable: " + description +
           ". Falling back to SFSpeechRecognizer";
}

std::vector<TranscriptionEvent> drainEvents(Channel<TranscriptionEvent>& events) {
    std::vector<TranscriptionEvent> all;
    while (std::optional<TranscriptionEvent> event = events.receive()) {
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
    SpeechServiceTest() {
        ensureCoreApplication();
        service = std::make_shared<SpeechService>(engine, recognizers, clock, trace);
    }

    // Starts a dictation and waits until the service has settled on an engine (or given up).
    std::shared_ptr<Channel<TranscriptionEvent>> start() {
        events = service->startTranscription(audio);
        EXPECT_TRUE(
            waitUntil([&] { return service->activeEngine().has_value() || events->isClosed(); }));
        return events;
    }

    ~SpeechServiceTest() override {
        // Ends the audio of every dictation so that no consumer thread outlives the test.
        for (const auto& stream : audioStreams) {
            stream->close();
        }
    }

    std::shared_ptr<Channel<AudioBuffer>> newAudio() {
        audioStreams.push_back(std::make_shared<Channel<AudioBuffer>>());
        return audioStreams.back();
    }

    void stop() { QCoro::waitFor(service->stop()); }

    std::vector<std::string> lines() const { return trace.lines(); }

    void expectFallsBackWith(const std::string& description) {
        start();
        EXPECT_EQ(service->activeEngine(), SpeechService::TranscriptionEngine::legacy);
        EXPECT_TRUE(trace.contains(fallbackLine(description))) << ::testing::PrintToString(lines());
        EXPECT_FALSE(trace.contains(usingAnalyzerLine));
    }

    FakeClock clock;
    RecordingLog trace;
    FakeModelEngine engine;
    FakeSegmentRecognizerProvider recognizers;
    std::shared_ptr<SpeechService> service;
    std::vector<std::shared_ptr<Channel<AudioBuffer>>> audioStreams;
    std::shared_ptr<Channel<AudioBuffer>> audio = newAudio();
    std::shared_ptr<Channel<TranscriptionEvent>> events;
};

TEST_F(SpeechServiceTest, ContextualStringsAreTrimmedFilteredAndCappedAtOneHundred) {
    service->setContextualStrings(
        {"  東京駅\n", "", " \t\r\n", "\u3000渋谷\u3000", "渋谷", "Kelvo"});
    EXPECT_EQ(service->contextualStrings(),
              (std::vector<std::string>{"東京駅", "渋谷", "渋谷", "Kelvo"}));
    // Blanks do not count towards the hundred.
    std::vector<std::string> many;
    for (int i = 0; i < 150; ++i) {
        many.push_back(i % 10 == 0 ? " " : "term" + std::to_string(i));
    }
    service->setContextualStrings(many);
    ASSERT_EQ(service->contextualStrings().size(), 100u);
    EXPECT_EQ(service->contextualStrings().back(), "term111");
}

TEST_F(SpeechServiceTest, InstalledAssetsStartTheAnalyzerWithHintsAndDeliverItsResults) {
    service->setContextualStrings({"東京", " 渋谷 "});
    start();
    ASSERT_EQ(service->activeEngine(), SpeechService::TranscriptionEngine::speechAnalyzer);
    EXPECT_EQ(lines(), (std::vector<std::string>{
                           checkLineInstalled, "[SpeechService] contextualStrings applied count=2",
                           usingAnalyzerLine}));
    FakeModelTranscriber* transcriber = engine.transcriber();
    ASSERT_NE(transcriber, nullptr);
    EXPECT_EQ(transcriber->appliedContextualStrings(), (std::vector<std::string>{"東京", "渋谷"}));

    audio->send(buffer(1365));
    audio->send(buffer(1366));
    EXPECT_TRUE(waitUntil([&] { return transcriber->analyzedSampleCount() == 2731; }));

    transcriber->pushResult("こんにち", false);
    transcriber->pushResult("こんにちは。", true);
    EXPECT_EQ(events->receive(), TranscriptionEvent::partial("こんにち"));
    EXPECT_EQ(events->receive(), TranscriptionEvent::final_("こんにちは。"));
    EXPECT_EQ(engine.installationRequests(), 0);

    // Finishing the input: the analyser finalises through the end of it at once.
    audio->close();
    auto finished = std::make_shared<bool>(false);
    QCoro::Task<> finishing = flagOnceDone(service->finishInput(), finished);
    ASSERT_TRUE(waitUntil([&] { return *finished; }));
    EXPECT_TRUE(events->isClosed());
    EXPECT_TRUE(trace.contains("[SpeechService] SpeechAnalyzer finalized through end of input"));
}

TEST_F(SpeechServiceTest, HintsThatCannotBeAppliedAreTracedAndEmptyHintsApplyNothing) {
    engine.configureTranscriber = [](FakeModelTranscriber& transcriber) {
        transcriber.contextFailure = "prompt too long";
    };
    service->setContextualStrings({"東京"});
    start();
    EXPECT_EQ(service->activeEngine(), SpeechService::TranscriptionEngine::speechAnalyzer);
    EXPECT_TRUE(
        trace.contains("[SpeechService] Failed to apply contextualStrings: prompt too long"));
    audio->close();
    stop();

    engine.configureTranscriber = nullptr;
    service->setContextualStrings({" ", "\n"});
    audio = newAudio();
    start();
    EXPECT_EQ(service->activeEngine(), SpeechService::TranscriptionEngine::speechAnalyzer);
    for (const std::string& line : lines()) {
        EXPECT_EQ(line.find("contextualStrings applied"), std::string::npos) << line;
    }
    audio->close();
    stop();
}

// Supported or downloading assets go through the installation request
// (or, without one, a second status read) and are used only when installed afterwards; unsupported
// and unknown fall back at once.
TEST_F(SpeechServiceTest, EveryAssetStatusDecidesBetweenAnalyzerInstallationAndFallback) {
    using Installation = FakeModelEngine::Installation;
    const std::string check =
        "[SpeechService] SpeechTranscriber check locale=ja-JP resolved=ja-JP "
        "supportedCount=3 installedCount=1 assetStatus=";
    const std::string installing = "[SpeechService] Installing SpeechTranscriber assets progress=";
    const std::string after =
        "[SpeechService] SpeechTranscriber asset status after install request=";
    auto notInstalled = [](const char* status) {
        return fallbackLine(std::string("SpeechTranscriber assets are not installed after request "
                                        "(status=") +
                            status + ")");
    };
    auto expectOutcome = [&](std::vector<AssetStatus> statuses,
                             std::optional<Installation> installation, int requests,
                             int installationsRun, std::vector<std::string> expectedLines) {
        SCOPED_TRACE(expectedLines.front());
        FakeModelEngine localEngine;
        localEngine.statuses = std::move(statuses);
        localEngine.installation = std::move(installation);
        RecordingLog localTrace;
        auto localService =
            std::make_shared<SpeechService>(localEngine, recognizers, clock, localTrace);
        auto localEvents = localService->startTranscription(newAudio());
        ASSERT_TRUE(waitUntil([&] { return localService->activeEngine().has_value(); }));
        EXPECT_EQ(localService->activeEngine(),
                  expectedLines.back() == usingAnalyzerLine
                      ? SpeechService::TranscriptionEngine::speechAnalyzer
                      : SpeechService::TranscriptionEngine::legacy);
        EXPECT_EQ(localTrace.lines(), expectedLines);
        EXPECT_EQ(localEngine.installationRequests(), requests);
        EXPECT_EQ(localEngine.installationsRun(), installationsRun);
        audioStreams.back()->close();
        QCoro::waitFor(localService->stop());
    };
    expectOutcome({AssetStatus::unsupported}, {}, 0, 0,
                  {check + "unsupported", notInstalled("unsupported")});
    expectOutcome({AssetStatus::unknown}, {}, 0, 0, {check + "unknown", notInstalled("unknown")});
    expectOutcome(
        {AssetStatus::supported, AssetStatus::installed}, Installation{0.25, {}}, 1, 1,
        {check + "supported", installing + "0.25", after + "installed", usingAnalyzerLine});
    expectOutcome(
        {AssetStatus::downloading}, Installation{0, "model download failed"}, 1, 1,
        {check + "downloading", installing + "0.0", fallbackLine("model download failed")});
    expectOutcome({AssetStatus::downloading}, {}, 1, 0,
                  {check + "downloading", after + "downloading", notInstalled("downloading")});
}

TEST_F(SpeechServiceTest, ModuleLocaleAndPrepareFailuresFallBackWithTheirDescriptions) {
    engine.available = false;
    expectFallsBackWith("SpeechTranscriber is not available on this device");
    EXPECT_EQ(lines().size(), 1u) << "no check line when the module is missing";
    stop();

    engine.available = true;
    engine.equivalent = std::nullopt;
    audio = newAudio();
    expectFallsBackWith("SpeechTranscriber does not support locale ja-JP (supportedCount=3)");
    stop();

    engine.equivalent = "ja-JP";
    engine.configureTranscriber = [](FakeModelTranscriber& transcriber) {
        transcriber.prepareFailure = "ggml-base.bin: bad magic";
    };
    audio = newAudio();
    expectFallsBackWith("ggml-base.bin: bad magic");
    stop();
}

TEST_F(SpeechServiceTest, StoppingTheAnalyzerDeliversOutstandingFinalsBeforeTheStreamEnds) {
    engine.configureTranscriber = [](FakeModelTranscriber& transcriber) {
        transcriber.finalsOutstandingAtFinalize = {"明日の会議の", "資料です。"};
    };
    start();
    FakeModelTranscriber* transcriber = engine.transcriber();
    transcriber->pushResult("明日の", false);
    audio->send(buffer(4096));
    audio->close();  // capture stops first
    // Read while the service still holds the transcriber: stop() frees it.
    EXPECT_TRUE(waitUntil([&] { return transcriber->inputFinished(); }));
    stop();
    EXPECT_EQ(drainEvents(*events),
              (std::vector<TranscriptionEvent>{TranscriptionEvent::partial("明日の"),
                                               TranscriptionEvent::final_("明日の会議の"),
                                               TranscriptionEvent::final_("資料です。")}));
    EXPECT_TRUE(trace.contains("[SpeechService] SpeechAnalyzer finalized through end of input"));
    EXPECT_FALSE(service->activeEngine().has_value());
}

TEST_F(SpeechServiceTest, AnalyzerFailuresAreTracedAndTheStreamStillEnds) {
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
    audio = newAudio();
    start();
    audio->send(buffer(10));
    EXPECT_TRUE(drainEvents(*events).empty());
    EXPECT_TRUE(trace.contains("[SpeechService] SpeechAnalyzer input loop error: out of memory"));
    stop();

    // The result sequence fails: traced, the stream stays open until stop.
    engine.configureTranscriber = nullptr;
    audio = newAudio();
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
    engine.available = false;
    service->setContextualStrings({" 東京 ", "渋谷"});
    start();
    ASSERT_EQ(recognizers.requestedLocale, "ja-JP");
    EXPECT_EQ(recognizers.authorizationRequests, 1);
    auto tasks = recognizers.localeRecognizer->tasks();
    ASSERT_EQ(tasks.size(), 1u);
    const auto& options = tasks[0]->options;
    EXPECT_TRUE(options.shouldReportPartialResults && options.requiresOnDeviceRecognition);
    EXPECT_FALSE(options.addsPunctuation);
    EXPECT_EQ(options.contextualStrings, (std::vector<std::string>{"東京", "渋谷"}));

    audio->send(buffer(1365));
    audio->send(buffer(1366));
    EXPECT_TRUE(waitUntil([&] { return tasks[0]->appendedSamples() == 2731; }));

    tasks[0]->deliverPartial("あした");
    tasks[0]->deliverFinal("あしたは");
    EXPECT_EQ(events->receive(), TranscriptionEvent::partial("あした"));
    EXPECT_EQ(events->receive(), TranscriptionEvent::final_("あしたは"));

    audio->close();
    EXPECT_TRUE(waitUntil([&] { return tasks[0]->catchUpCount() == 1; }))
        << "the consumer has the current request catch up when the stream ends";

    // Finishing the input then ends the audio and waits for the recogniser to decode its end, so
    // the last final arrives instead of being cancelled.
    auto finished = std::make_shared<bool>(false);
    QCoro::Task<> finishing = flagOnceDone(service->finishInput(), finished);
    tasks[0]->decodeEnd();
    ASSERT_TRUE(waitUntil([&] { return tasks[0]->endAudioCount() == 1; }));
    EXPECT_FALSE(*finished || tasks[0]->wasCancelled());
    tasks[0]->deliverFinal("最後");
    tasks[0]->decodeEnd();
    ASSERT_TRUE(waitUntil([&] { return *finished; }));
    EXPECT_EQ(drainEvents(*events),
              (std::vector<TranscriptionEvent>{TranscriptionEvent::final_("最後")}));
}

TEST_F(SpeechServiceTest, FallbackRestartsAfterAFinalAndAfterNoSpeechButNotForOtherErrors) {
    engine.available = false;
    recognizers.localeRecognizer->onDevice = false;
    start();
    auto recognizer = recognizers.localeRecognizer;
    ASSERT_EQ(recognizer->tasks().size(), 1u);
    EXPECT_FALSE(recognizer->tasks()[0]->options.requiresOnDeviceRecognition);
    EXPECT_TRUE(recognizer->tasks()[0]->options.contextualStrings.empty());

    // A final closes the segment; a new request takes over 0.1 s later.
    recognizer->tasks()[0]->deliverFinal("一つ目。");
    clock.advance(99ms);
    EXPECT_EQ(recognizer->tasks().size(), 1u);
    clock.advance(1ms);
    ASSERT_EQ(recognizer->tasks().size(), 2u);

    // The new request receives the following audio.
    audio->send(buffer(800));
    EXPECT_TRUE(waitUntil([&] { return recognizer->tasks()[1]->appendedSamples() == 800; }));
    EXPECT_EQ(recognizer->tasks()[0]->appendedSamples(), 0u);

    // "No speech detected" (1110) is silent and restarts after 0.3 s.
    recognizer->tasks()[1]->deliverError(1110, "No speech detected");
    clock.advance(299ms);
    EXPECT_EQ(recognizer->tasks().size(), 2u);
    clock.advance(1ms);
    ASSERT_EQ(recognizer->tasks().size(), 3u);

    // A cancelled request (216) is silent and does not restart.
    recognizer->tasks()[2]->deliverError(216, "Request was canceled");
    clock.advance(1s);
    EXPECT_EQ(recognizer->tasks().size(), 3u);

    // Other errors are traced and end recognition for this dictation.
    recognizer->tasks()[2]->deliverError(203, "Retry");
    clock.advance(1s);
    EXPECT_EQ(recognizer->tasks().size(), 3u);

    EXPECT_EQ(lines(), (std::vector<std::string>{
                           fallbackLine("SpeechTranscriber is not available on this device"),
                           "[SpeechService] Recognition error: Retry"}));
    audio->close();
    stop();
    EXPECT_EQ(drainEvents(*events),
              (std::vector<TranscriptionEvent>{TranscriptionEvent::final_("一つ目。")}));
}

TEST_F(SpeechServiceTest, StoppingTheFallbackCancelsTheTaskAndNoRestartFollows) {
    engine.available = false;
    start();
    auto task = recognizers.localeRecognizer->tasks().at(0);
    task->deliverPartial("途中");
    stop();
    EXPECT_TRUE(task->wasCancelled());
    EXPECT_GE(task->endAudioCount(), 1);
    EXPECT_EQ(drainEvents(*events),
              (std::vector<TranscriptionEvent>{TranscriptionEvent::partial("途中")}))
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
    audio = newAudio();
    start();
    auto next = recognizers.localeRecognizer->tasks().at(1);
    first->close();
    // Nothing to wait for when it is right: the stopped dictation's thread gets a moment to err.
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(next->endAudioCount(), 0);
}

// The recogniser decodes only when the test says so, as one behind real time does: the stop of a
// kept dictation cancels it only once the captured audio is in its last partial, or at the
// deadline.
TEST_F(SpeechServiceTest, StoppingAKeptFallbackDictationWaitsForTheRecognizerToCatchUp) {
    engine.available = false;
    for (const bool catchesUp : {true, false}) {
        audio = newAudio();
        start();
        auto task = recognizers.localeRecognizer->tasks().back();
        task->deliverPartial("明日の");
        audio->send(buffer(4096));
        audio->close();  // capture stops first
        auto stopped = std::make_shared<bool>(false);
        QCoro::Task<> stopping = flagOnceDone(service->stopAfterCatchingUp(), stopped);
        ASSERT_TRUE(waitUntil([&] { return task->catchUpCount() == 1; }));
        EXPECT_FALSE(*stopped || task->wasCancelled());
        if (catchesUp) {
            task->deliverPartial("明日の会議");
            task->decodeEnd();
        } else {
            clock.advance(SpeechService::legacyCatchUpDeadline);
        }
        ASSERT_TRUE(waitUntil([&] { return *stopped; }));
        EXPECT_TRUE(task->wasCancelled());
        EXPECT_EQ(drainEvents(*events).back(),
                  TranscriptionEvent::partial(catchesUp ? "明日の会議" : "明日の"));
    }
    EXPECT_EQ(lines().back(),
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
        audio = newAudio();
        start();
        EXPECT_TRUE(events->isClosed());
        EXPECT_EQ(events->receive(), std::nullopt);
        EXPECT_EQ(lines().back(), "[SpeechService] No SFSpeechRecognizer available");
        stop();
        recognizers.defaultRecognizer = nullptr;
    }
}

TEST_F(SpeechServiceTest, StopWithNothingStartedIsHarmlessAndTasksGiveUpOnceTheServiceIsGone) {
    stop();
    stop();
    EXPECT_TRUE(lines().empty());
    engine.available = false;
    start();
    auto task = recognizers.localeRecognizer->tasks().at(0);
    service.reset();
    task->deliverFinal("後");
    clock.advance(1s);
    audio->send(buffer(10));
    audio->close();
    EXPECT_EQ(recognizers.localeRecognizer->tasks().size(), 1u);
}

}  // namespace
}  // namespace kelvo::test

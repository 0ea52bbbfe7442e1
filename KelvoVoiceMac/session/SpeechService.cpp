#include "KelvoVoiceMac/session/SpeechService.h"

#include <QCoroFuture>

#include <charconv>
#include <exception>
#include <utility>

#include "KelvoVoiceMac/session/BackgroundThread.h"
#include "KelvoVoiceMac/session/SpeechAnalyzerReadinessError.h"
#include "core/support/Unicode.h"
#include "platform/AssetInstallationRequest.h"

namespace kelvo::app {
namespace {

using platform::AssetStatus;
using platform::ModelTranscriber;
using platform::SegmentRecognitionTask;
using platform::SegmentRecognizer;

constexpr std::string_view tracePrefix = "[SpeechService] ";

// A fraction as a decimal number that always shows its point ("0.0", "0.25", "1.0").
std::string decimalText(double value) {
    char digits[64];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    std::string text(digits, end);
    if (text.find_first_of(".eEn") == std::string::npos) {
        text += ".0";
    }
    return text;
}

std::string joinedCount(std::size_t count) {
    return std::to_string(count);
}

}  // namespace

// What the start-up's background step hands back to the main thread.
struct SpeechService::StartUpOutcome {
    std::shared_ptr<ModelTranscriber> transcriber;
    std::string failure;
};

SpeechService::SpeechService(platform::ModelEngine& modelEngine,
                             platform::SegmentRecognizerProvider& segmentRecognizers,
                             platform::Clock& clock, platform::TraceOutput& trace,
                             std::string locale)
    : modelEngine_(modelEngine),
      segmentRecognizers_(segmentRecognizers),
      clock_(clock),
      trace_(trace),
      locale_(std::move(locale)) {}

SpeechService::~SpeechService() {
    // Threads still running hold their engines themselves; make them wind down.
    isActive_ = false;
    if (auto task = legacyTask_.load()) {
        task->cancel();
    }
    if (analyzer_) {
        analyzer_->cancel();
    }
    if (outputContinuation_) {
        outputContinuation_->close();
    }
    if (inputCaughtUp_) {
        inputCaughtUp_->close();
    }
}

void SpeechService::trace(const std::string& line) const {
    trace_.write(std::string(tracePrefix) + line);
}

void SpeechService::setContextualStrings(std::vector<std::string> strings) {
    std::vector<std::string> kept;
    for (const std::string& string : strings) {
        if (kept.size() == maximumContextualStringCount) {
            break;
        }
        const std::string_view trimmed = unicode::trimWhitespaceAndNewlines(string);
        if (!trimmed.empty()) {
            kept.emplace_back(trimmed);
        }
    }
    analysisContext_ = std::move(kept);
}

std::shared_ptr<Channel<TranscriptionEvent>> SpeechService::startTranscription(
    std::shared_ptr<Channel<AudioBuffer>> audio) {
    auto output = std::make_shared<Channel<TranscriptionEvent>>();
    outputContinuation_ = output;
    inputCaughtUp_ = std::make_shared<Channel<bool>>();
    isActive_ = true;
    const std::uint64_t dictation = ++dictation_;
    // Runs until its first suspension (handing the blocking work to a background thread), so this
    // returns at once; the task owns its frame and finishes on the main thread.
    runEngineStartUp(weak_from_this(), dictation, std::move(audio), output);
    return output;
}

bool SpeechService::isCurrentDictation(std::uint64_t dictation) const {
    return isActive_ && dictation_ == dictation;
}

QCoro::Task<> SpeechService::runEngineStartUp(std::weak_ptr<SpeechService> weakSelf,
                                              std::uint64_t dictation,
                                              std::shared_ptr<Channel<AudioBuffer>> audio,
                                              std::shared_ptr<Channel<TranscriptionEvent>> output) {
    // GCC 12 mishandles lambdas built inside a co_await expression, so the background work is
    // started by plain functions and only the resulting future is awaited here.
    auto outcome = std::make_shared<StartUpOutcome>();
    QFuture<void> preparation;
    {
        std::shared_ptr<SpeechService> self = weakSelf.lock();
        if (!self) {
            co_return;
        }
        preparation = prepareInBackground(self->modelEngine_, self->locale_, self->analysisContext_,
                                          self->trace_, outcome);
    }
    co_await preparation;

    std::shared_ptr<SpeechService> self = weakSelf.lock();
    if (!self || !self->isCurrentDictation(dictation)) {
        // Stopped (or gone) while the engine was being made ready: this dictation is over.
        if (outcome->transcriber) {
            outcome->transcriber->cancel();
        }
        co_return;
    }
    if (outcome->transcriber) {
        self->startAnalyzer(std::move(outcome->transcriber), std::move(audio), std::move(output));
        co_return;
    }
    self->trace("SpeechAnalyzer unavailable: " + outcome->failure +
                ". Falling back to SFSpeechRecognizer");
    self->startLegacy(std::move(audio), std::move(output));
}

QFuture<void> SpeechService::prepareInBackground(platform::ModelEngine& engine, std::string locale,
                                                 std::vector<std::string> hints,
                                                 platform::TraceOutput& trace,
                                                 std::shared_ptr<StartUpOutcome> outcome) {
    return runOnBackgroundThread([&engine, locale = std::move(locale), hints = std::move(hints),
                                  &trace, outcome = std::move(outcome)] {
        prepareModelEngine(engine, locale, hints, trace, *outcome);
    });
}

QFuture<void> SpeechService::finalizeInBackground(
    std::shared_ptr<ModelTranscriber> analyzer,
    std::shared_ptr<std::optional<std::string>> failure) {
    return runOnBackgroundThread([analyzer = std::move(analyzer), failure = std::move(failure)] {
        try {
            analyzer->finalizeThroughEndOfInput();
        } catch (const std::exception& error) {
            *failure = error.what();
        }
    });
}

void SpeechService::prepareModelEngine(platform::ModelEngine& engine, const std::string& locale,
                                       const std::vector<std::string>& hints,
                                       platform::TraceOutput& trace, StartUpOutcome& outcome) {
    const auto traceLine = [&trace](const std::string& line) {
        trace.write(std::string(tracePrefix) + line);
    };
    try {
        std::shared_ptr<ModelTranscriber> transcriber = checkReadiness(engine, locale, trace);
        if (!hints.empty()) {
            try {
                transcriber->setContextualStrings(hints);
                traceLine("contextualStrings applied count=" + joinedCount(hints.size()));
            } catch (const std::exception& error) {
                traceLine(std::string("Failed to apply contextualStrings: ") + error.what());
            }
        }
        transcriber->prepare();
        outcome.transcriber = std::move(transcriber);
    } catch (const std::exception& error) {
        outcome.failure = error.what();
    }
}

std::shared_ptr<ModelTranscriber> SpeechService::checkReadiness(platform::ModelEngine& engine,
                                                                const std::string& locale,
                                                                platform::TraceOutput& trace) {
    const auto traceLine = [&trace](const std::string& line) {
        trace.write(std::string(tracePrefix) + line);
    };
    if (!engine.isAvailable()) {
        throw SpeechAnalyzerReadinessError::moduleUnavailable();
    }
    const std::vector<std::string> supported = engine.supportedLocales();
    const std::optional<std::string> resolved = engine.supportedLocaleEquivalent(locale);
    if (!resolved) {
        throw SpeechAnalyzerReadinessError::localeUnsupported(locale, supported.size());
    }
    const std::vector<std::string> installed = engine.installedLocales();
    std::shared_ptr<ModelTranscriber> transcriber = engine.makeTranscriber(*resolved);
    const AssetStatus status = engine.assetStatus(*transcriber);
    traceLine("SpeechTranscriber check locale=" + locale + " resolved=" + *resolved +
              " supportedCount=" + joinedCount(supported.size()) +
              " installedCount=" + joinedCount(installed.size()) +
              " assetStatus=" + std::string(platform::assetStatusName(status)));

    switch (status) {
        case AssetStatus::installed:
            return transcriber;
        case AssetStatus::supported:
        case AssetStatus::downloading: {
            if (std::unique_ptr<platform::AssetInstallationRequest> request =
                    engine.assetInstallationRequest(*transcriber)) {
                traceLine("Installing SpeechTranscriber assets progress=" +
                          decimalText(request->fractionCompleted()));
                request->downloadAndInstall();
            }
            const AssetStatus statusAfter = engine.assetStatus(*transcriber);
            traceLine("SpeechTranscriber asset status after install request=" +
                      std::string(platform::assetStatusName(statusAfter)));
            if (statusAfter == AssetStatus::installed) {
                return transcriber;
            }
            throw SpeechAnalyzerReadinessError::assetsUnavailable(statusAfter);
        }
        case AssetStatus::unsupported:
        case AssetStatus::unknown:
            break;
    }
    throw SpeechAnalyzerReadinessError::assetsUnavailable(status);
}

void SpeechService::startAnalyzer(std::shared_ptr<ModelTranscriber> transcriber,
                                  std::shared_ptr<Channel<AudioBuffer>> audio,
                                  std::shared_ptr<Channel<TranscriptionEvent>> output) {
    analyzer_ = transcriber;
    activeEngine_ = TranscriptionEngine::speechAnalyzer;
    // stop() finalises the model engine through the end of its input.
    inputCaughtUp_->close();
    platform::TraceOutput& traceOutput = trace_;
    const std::weak_ptr<SpeechService> weakSelf = weak_from_this();

    auto resultsCancelled = std::make_shared<std::atomic<bool>>(false);
    resultsTask_ = BackgroundTask{
        runOnBackgroundThread([weakSelf, transcriber, output, &traceOutput, resultsCancelled] {
            try {
                while (std::optional<ModelTranscriber::Result> result = transcriber->nextResult()) {
                    if (weakSelf.expired() || *resultsCancelled) {
                        return;
                    }
                    if (result->isFinal) {
                        output->send(TranscriptionEvent::final_(result->text));
                        traceOutput.write(std::string(tracePrefix) +
                                          "SpeechAnalyzer final: " + result->text);
                    } else {
                        output->send(TranscriptionEvent::partial(result->text));
                        traceOutput.write(std::string(tracePrefix) +
                                          "SpeechAnalyzer partial: " + result->text);
                    }
                }
            } catch (const std::exception& error) {
                // The stream stays open: stop() still finishes it.
                traceOutput.write(std::string(tracePrefix) +
                                  "SpeechAnalyzer results error: " + error.what());
            }
        }),
        resultsCancelled};

    auto analysisCancelled = std::make_shared<std::atomic<bool>>(false);
    analysisTask_ = BackgroundTask{
        runOnBackgroundThread(
            [weakSelf, transcriber, audio, output, &traceOutput, analysisCancelled] {
                try {
                    while (std::optional<AudioBuffer> buffer = audio->receive()) {
                        if (*analysisCancelled) {
                            return;
                        }
                        transcriber->analyze(buffer->samples);
                    }
                    transcriber->finishInput();
                } catch (const std::exception& error) {
                    traceOutput.write(std::string(tracePrefix) +
                                      "SpeechAnalyzer input loop error: " + error.what());
                    if (!weakSelf.expired()) {
                        output->close();
                    }
                }
            }),
        analysisCancelled};

    trace("Using SpeechAnalyzer/SpeechTranscriber");
}

void SpeechService::startLegacy(std::shared_ptr<Channel<AudioBuffer>> audio,
                                std::shared_ptr<Channel<TranscriptionEvent>> output) {
    activeEngine_ = TranscriptionEngine::legacy;
    segmentRecognizers_.requestAuthorization([](bool) {});

    std::shared_ptr<SegmentRecognizer> recognizer = segmentRecognizers_.makeRecognizer(locale_);
    if (!recognizer) {
        recognizer = segmentRecognizers_.makeDefaultRecognizer();
    }
    if (!recognizer || !recognizer->isAvailable()) {
        trace("No SFSpeechRecognizer available");
        output->close();
        inputCaughtUp_->close();
        return;
    }
    legacyRecognizer_ = recognizer;
    startLegacyRequest(recognizer, output);

    const std::weak_ptr<SpeechService> weakSelf = weak_from_this();
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    const std::uint64_t dictation = dictation_;
    audioConsumerTask_ = BackgroundTask{
        runOnBackgroundThread([weakSelf, audio, cancelled, dictation, caughtUp = inputCaughtUp_] {
            while (std::optional<AudioBuffer> buffer = audio->receive()) {
                std::shared_ptr<SpeechService> self = weakSelf.lock();
                if (!self || !self->isActive_ || *cancelled) {
                    break;
                }
                if (auto task = self->legacyTask_.load()) {
                    task->appendAudio(buffer->samples);
                }
            }
            // Once stopped, the request is this dictation's no more: stop() ended its audio, and
            // on a busy machine this thread may get here after the next dictation has started
            // (whose audio it would end).
            std::shared_ptr<platform::SegmentRecognitionTask> task;
            if (std::shared_ptr<SpeechService> self = weakSelf.lock();
                self && !*cancelled && self->isCurrentDictation(dictation)) {
                task = self->legacyTask_.load();
            }
            // The audio is not ended here: a stop cancels the request and keeps its last partial,
            // and finishInput() ends it once this backlog has been decoded.
            if (task) {
                task->catchUp([caughtUp] { caughtUp->close(); });
            } else {
                caughtUp->close();
            }
        }),
        cancelled};
}

void SpeechService::startLegacyRequest(std::shared_ptr<SegmentRecognizer> recognizer,
                                       std::shared_ptr<Channel<TranscriptionEvent>> output) {
    SegmentRecognizer::RequestOptions options;
    options.shouldReportPartialResults = true;
    options.requiresOnDeviceRecognition = recognizer->supportsOnDeviceRecognition();
    options.addsPunctuation = false;
    if (!analysisContext_.empty()) {
        options.contextualStrings = analysisContext_;
    }
    const std::weak_ptr<SpeechService> weakSelf = weak_from_this();
    const std::uint64_t dictation = dictation_;
    // The recogniser may keep its task, and the task keeps this handler: a strong reference to
    // the recogniser here would make a cycle that is never freed.
    const std::weak_ptr<SegmentRecognizer> weakRecognizer = recognizer;
    legacyTask_ =
        recognizer->start(options, [weakSelf, weakRecognizer, output, dictation](
                                       const std::optional<SegmentRecognitionTask::Result>& result,
                                       const std::optional<SegmentRecognitionTask::Error>& error) {
            std::shared_ptr<SpeechService> self = weakSelf.lock();
            std::shared_ptr<SegmentRecognizer> recognizer = weakRecognizer.lock();
            if (self && recognizer) {
                self->handleLegacyCallback(recognizer, output, dictation, result, error);
            }
        });
}

void SpeechService::handleLegacyCallback(
    const std::shared_ptr<SegmentRecognizer>& recognizer,
    const std::shared_ptr<Channel<TranscriptionEvent>>& output, std::uint64_t dictation,
    const std::optional<SegmentRecognitionTask::Result>& result,
    const std::optional<SegmentRecognitionTask::Error>& error) {
    // Runs on the recogniser's thread: touches only the stream, the atomics and the clock.
    if (result) {
        if (!result->isFinal) {
            output->send(TranscriptionEvent::partial(result->text));
        } else {
            output->send(TranscriptionEvent::final_(result->text));
            if (isActive_) {
                scheduleLegacyRestart(legacyRestartDelayAfterFinal, recognizer, output, dictation);
            }
        }
    }
    if (error) {
        const bool cancelled = error->code == SegmentRecognitionTask::Error::cancelledCode;
        const bool noSpeech = error->code == SegmentRecognitionTask::Error::noSpeechDetectedCode;
        if (!cancelled && !noSpeech) {
            trace("Recognition error: " + error->description);
        }
        if (noSpeech && isActive_) {
            scheduleLegacyRestart(legacyRestartDelayAfterNoSpeech, recognizer, output, dictation);
        }
    }
}

void SpeechService::scheduleLegacyRestart(std::chrono::milliseconds delay,
                                          std::shared_ptr<SegmentRecognizer> recognizer,
                                          std::shared_ptr<Channel<TranscriptionEvent>> output,
                                          std::uint64_t dictation) {
    const std::weak_ptr<SpeechService> weakSelf = weak_from_this();
    // Run by the timer or by restartLegacyRequestsAtOnce(), whichever comes first.
    auto started = std::make_shared<std::atomic<bool>>(false);
    std::function<void()> restart = [weakSelf, recognizer, output, dictation, started] {
        std::shared_ptr<SpeechService> self = weakSelf.lock();
        if (!started->exchange(true) && self && self->isCurrentDictation(dictation)) {
            self->startLegacyRequest(recognizer, output);
        }
    };
    const std::lock_guard lock(restartMutex_);
    clock_.schedule(restartsAtOnce_ ? std::chrono::milliseconds::zero() : delay, restart);
    pendingRestart_ = std::move(restart);
}

void SpeechService::restartLegacyRequestsAtOnce() {
    // The delays pace a live dictation's segments. Once the audio has ended, a request that
    // ended at a final just before the key came up (PocketSphinx's end of speech falls at about
    // the drain's end) would keep the captured audio after it undecoded until its restart, and
    // the stop waiting for that: a tenth of a second on every such dictation. The recogniser
    // decodes nothing while no request is attached, so starting it now changes no text.
    std::function<void()> pending;
    {
        const std::lock_guard lock(restartMutex_);
        restartsAtOnce_ = true;
        pending = std::exchange(pendingRestart_, nullptr);
    }
    if (pending) {
        pending();
    }
}

QCoro::Task<> SpeechService::stop() {
    // Keeps the service alive across the waits below when it is shared-owned.
    const std::shared_ptr<SpeechService> keepAlive = weak_from_this().lock();
    isActive_ = false;
    ++dictation_;

    if (activeEngine_ == TranscriptionEngine::legacy) {
        if (auto task = legacyTask_.load()) {
            task->cancel();
            task->endAudio(nullptr);
        }
        for (std::optional<BackgroundTask>* background :
             {&analysisTask_, &resultsTask_, &audioConsumerTask_}) {
            if (*background) {
                *(*background)->cancelled = true;
            }
        }
        if (analyzer_) {
            analyzer_->cancel();
        }
    } else {
        if (std::shared_ptr<ModelTranscriber> analyzer = analyzer_) {
            auto failure = std::make_shared<std::optional<std::string>>();
            const QFuture<void> finalized = finalizeInBackground(analyzer, failure);
            co_await finalized;
            if (!*failure) {
                trace("SpeechAnalyzer finalized through end of input");
            } else {
                trace("SpeechAnalyzer finalize failed: " + **failure);
                analyzer->cancel();
            }
        }
        if (analysisTask_) {
            const QFuture<void> finished = analysisTask_->finished;
            co_await finished;
        }
        if (resultsTask_) {
            const QFuture<void> finished = resultsTask_->finished;
            co_await finished;
        }
    }

    if (outputContinuation_) {
        outputContinuation_->close();
    }
    if (inputCaughtUp_) {
        inputCaughtUp_->close();
    }
    reset();
}

QCoro::Task<> SpeechService::stopAfterCatchingUp() {
    const std::shared_ptr<SpeechService> keepAlive = weak_from_this().lock();
    if (activeEngine_ == TranscriptionEngine::legacy && inputCaughtUp_) {
        restartLegacyRequestsAtOnce();
        const std::shared_ptr<Channel<bool>> caughtUp = inputCaughtUp_;
        auto late = std::make_shared<std::atomic<bool>>(false);
        const std::uint64_t deadline = clock_.schedule(legacyCatchUpDeadline, [caughtUp, late] {
            *late = !caughtUp->isClosed();
            caughtUp->close();
        });
        co_await caughtUp->next();
        clock_.cancel(deadline);
        if (*late) {
            trace("Fallback recogniser still behind after " +
                  std::to_string(legacyCatchUpDeadline.count()) +
                  " ms; stopping with its last partial");
        }
    }
    co_await stop();
}

QCoro::Task<> SpeechService::finishInput() {
    const std::shared_ptr<SpeechService> keepAlive = weak_from_this().lock();
    if (const std::shared_ptr<Channel<bool>> caughtUp = inputCaughtUp_) {
        restartLegacyRequestsAtOnce();
        co_await caughtUp->next();
    }
    // Then the end of the audio, so that the last segment comes as a final.
    if (std::shared_ptr<SegmentRecognitionTask> task = legacyTask_.load();
        task && activeEngine_ == TranscriptionEngine::legacy) {
        auto decoded = std::make_shared<Channel<bool>>();
        task->endAudio([decoded] { decoded->close(); });
        co_await decoded->next();
    }
    co_await stop();
}

void SpeechService::reset() {
    analyzer_.reset();
    analysisTask_.reset();
    resultsTask_.reset();
    audioConsumerTask_.reset();
    legacyRecognizer_.reset();
    legacyTask_.store(nullptr);
    outputContinuation_.reset();
    inputCaughtUp_.reset();
    activeEngine_.reset();
    const std::lock_guard lock(restartMutex_);
    pendingRestart_ = nullptr;
    restartsAtOnce_ = false;
}

}  // namespace kelvo::app

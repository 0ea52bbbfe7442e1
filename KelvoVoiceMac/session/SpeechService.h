#pragma once

// SpeechService turns one dictation's stream of 16 kHz mono buffers into a stream of
// TranscriptionEvents, recognising "ja-JP" with the on-device model engine (ModelEngine, the
// SpeechAnalyzer/SpeechTranscriber role) when its assets are ready and with the segment recogniser
// (SegmentRecognizerProvider, the SFSpeechRecognizer role) otherwise. Callers never see which
// engine runs and never get an error: failures are traced ("[SpeechService] ...") and turn into
// the fallback or an event stream that ends.
//
// Ownership and threads. The service must be owned by a std::shared_ptr (std::make_shared): its
// start-up task, reader threads and scheduled restarts hold it weakly and give up once it is gone.
// setContextualStrings(), startTranscription() and stop() are called on the main thread, one
// dictation at a time (stop before starting again). Engine start-up runs its blocking steps on a
// background thread and comes back to the main thread to install the engine; the model engine's
// result reader and input feeder and the segment recogniser's audio consumer run on threads of
// their own; the segment recogniser's result handler runs on the recogniser's thread and schedules
// request restarts on the main thread through the Clock. The engines, the clock and the trace
// output must outlive the service and every thread it started.

#include <QCoroTask>
#include <QFuture>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/AudioBuffer.h"
#include "KelvoVoiceMac/session/Channel.h"
#include "KelvoVoiceMac/session/DictationRecognizer.h"
#include "KelvoVoiceMac/session/TranscriptionEvent.h"
#include "platform/Clock.h"
#include "platform/ModelEngine.h"
#include "platform/ModelTranscriber.h"
#include "platform/SegmentRecognitionTask.h"
#include "platform/SegmentRecognizer.h"
#include "platform/SegmentRecognizerProvider.h"
#include "platform/TraceOutput.h"

namespace kelvo::app {

class SpeechService final : public DictationRecognizer,
                            public std::enable_shared_from_this<SpeechService> {
  public:
    enum class TranscriptionEngine { speechAnalyzer, legacy };

    static constexpr std::size_t maximumContextualStringCount = 100;
    // A segment ends with its final result; the next request takes the following speech.
    static constexpr std::chrono::milliseconds legacyRestartDelayAfterFinal{100};
    // "No speech detected" ends a request too; give the speaker a moment before listening again.
    static constexpr std::chrono::milliseconds legacyRestartDelayAfterNoSpeech{300};
    // How long a kept dictation's stop lets the segment recogniser catch up with the audio already
    // captured. Unloaded, PocketSphinx decodes at about five times real time and is done within
    // milliseconds. Starved (the application held to 15 % of a CPU, a stand-in for a load of 10-20
    // on two cores) it is seconds behind: 1.5 s took the soak from 2-15 empty dictations in 60 to
    // none and from 2 to 7 words of 8 at the median, 3 s to 8 of 8. Release to text is the 650 ms
    // drain, this at most, and the insertion: a user waits past two seconds for no more than a
    // word.
    static constexpr std::chrono::milliseconds legacyCatchUpDeadline{1500};

    SpeechService(platform::ModelEngine& modelEngine,
                  platform::SegmentRecognizerProvider& segmentRecognizers, platform::Clock& clock,
                  platform::TraceOutput& trace, std::string locale = "ja-JP");
    ~SpeechService() override;

    const std::string& locale() const noexcept { return locale_; }

    // Trimmed, non-empty, in order, at most maximumContextualStringCount; used from the next start.
    void setContextualStrings(std::vector<std::string> strings) override;
    const std::vector<std::string>& contextualStrings() const noexcept { return analysisContext_; }

    std::shared_ptr<Channel<TranscriptionEvent>> startTranscription(
        std::shared_ptr<Channel<AudioBuffer>> audio) override;

    // After it returns, every final result the engine produced is on the stream, which is closed.
    QCoro::Task<> stop() override;

    // stop() once the segment recogniser has decoded the audio of the ended audio stream and
    // delivered the partial that covers it, or after legacyCatchUpDeadline; the model engine
    // finalises through the end of its input in stop() itself. Callers stop capture first. A
    // request that ended meanwhile, or just before, is followed at once rather than after its
    // restart delay.
    QCoro::Task<> stopAfterCatchingUp() override;

    // Stops once the engine has decoded the end of the audio: for a caller that has ended the audio
    // stream and wants every word of it, where stop() would cancel the segment recogniser's last
    // segment. The model engine finalises through the end of its input in stop() itself, so that
    // runs as soon as the engine is chosen; the segment recogniser is first left to decode the rest
    // of its queued audio. Called instead of stop(), on the main thread.
    QCoro::Task<> finishInput();

    std::optional<TranscriptionEngine> activeEngine() const noexcept { return activeEngine_; }

  private:
    // A background loop that stop() may abandon: it checks `cancelled` between items.
    struct BackgroundTask {
        QFuture<void> finished;
        std::shared_ptr<std::atomic<bool>> cancelled;
    };

    struct StartUpOutcome;

    static QCoro::Task<> runEngineStartUp(std::weak_ptr<SpeechService> weakSelf,
                                          std::uint64_t dictation,
                                          std::shared_ptr<Channel<AudioBuffer>> audio,
                                          std::shared_ptr<Channel<TranscriptionEvent>> output);
    static QFuture<void> prepareInBackground(platform::ModelEngine& engine, std::string locale,
                                             std::vector<std::string> hints,
                                             platform::TraceOutput& trace,
                                             std::shared_ptr<StartUpOutcome> outcome);
    static QFuture<void> finalizeInBackground(std::shared_ptr<platform::ModelTranscriber> analyzer,
                                              std::shared_ptr<std::optional<std::string>> failure);
    static void prepareModelEngine(platform::ModelEngine& engine, const std::string& locale,
                                   const std::vector<std::string>& hints,
                                   platform::TraceOutput& trace, StartUpOutcome& outcome);
    static std::shared_ptr<platform::ModelTranscriber> checkReadiness(platform::ModelEngine& engine,
                                                                      const std::string& locale,
                                                                      platform::TraceOutput& trace);

    bool isCurrentDictation(std::uint64_t dictation) const;
    void startAnalyzer(std::shared_ptr<platform::ModelTranscriber> transcriber,
                       std::shared_ptr<Channel<AudioBuffer>> audio,
                       std::shared_ptr<Channel<TranscriptionEvent>> output);
    void startLegacy(std::shared_ptr<Channel<AudioBuffer>> audio,
                     std::shared_ptr<Channel<TranscriptionEvent>> output);
    void startLegacyRequest(std::shared_ptr<platform::SegmentRecognizer> recognizer,
                            std::shared_ptr<Channel<TranscriptionEvent>> output);
    void handleLegacyCallback(const std::shared_ptr<platform::SegmentRecognizer>& recognizer,
                              const std::shared_ptr<Channel<TranscriptionEvent>>& output,
                              std::uint64_t dictation,
                              const std::optional<platform::SegmentRecognitionTask::Result>& result,
                              const std::optional<platform::SegmentRecognitionTask::Error>& error);
    void scheduleLegacyRestart(std::chrono::milliseconds delay,
                               std::shared_ptr<platform::SegmentRecognizer> recognizer,
                               std::shared_ptr<Channel<TranscriptionEvent>> output,
                               std::uint64_t dictation);
    // For a stop that waits for the ended audio to be decoded: from now on a request that ended
    // is followed at once, and one already waiting for its delay starts now.
    void restartLegacyRequestsAtOnce();
    void trace(const std::string& line) const;
    void reset();

    platform::ModelEngine& modelEngine_;
    platform::SegmentRecognizerProvider& segmentRecognizers_;
    platform::Clock& clock_;
    platform::TraceOutput& trace_;

    // The recognition locale: "ja-JP" in the application; kelvo dictate may name another.
    const std::string locale_;
    std::optional<TranscriptionEngine> activeEngine_;
    std::shared_ptr<platform::SegmentRecognizer> legacyRecognizer_;
    // The current request and its task in one object. Replaced on the main thread by restarts while
    // the consumer thread appends to it, hence atomic.
    std::atomic<std::shared_ptr<platform::SegmentRecognitionTask>> legacyTask_;
    // Read by the consumer thread and the recogniser's handler, written on the main thread.
    std::atomic<bool> isActive_ = false;
    // The analyser and its transcription module are one object behind the ModelTranscriber seam.
    std::shared_ptr<platform::ModelTranscriber> analyzer_;
    std::vector<std::string> analysisContext_;
    std::optional<BackgroundTask> analysisTask_;
    std::optional<BackgroundTask> resultsTask_;
    std::shared_ptr<Channel<TranscriptionEvent>> outputContinuation_;
    // Closed once stop() may end the dictation without losing its audio: the engine was chosen and
    // is the model engine, or the audio stream has ended and the segment recogniser has decoded
    // all of it but its end, or nothing will ever decode it. Replaced at every start.
    std::shared_ptr<Channel<bool>> inputCaughtUp_;
    std::optional<BackgroundTask> audioConsumerTask_;
    // The restart that a request's end scheduled and that has not run yet, and whether restarts
    // skip their delay; set from the recogniser's thread, taken on the main thread.
    std::mutex restartMutex_;
    std::function<void()> pendingRestart_;
    bool restartsAtOnce_ = false;
    // Numbers the dictations so that a late start-up or restart of an earlier one does nothing.
    std::atomic<std::uint64_t> dictation_ = 0;
};

}  // namespace kelvo::app

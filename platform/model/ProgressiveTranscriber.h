#pragma once

// ProgressiveTranscriber is the model engine's transcriber for engines that decode whole windows
// of audio (whisper): it turns a live stream into volatile partial results and settled finals.
// The open segment is decoded again on a worker thread whenever another `partialInterval` of
// audio has come in while somebody speaks; the segment is closed, decoded once more and delivered
// as a final at a pause (`pauseForFinal` of silence by SpeechActivityDetector) or before it
// outgrows the model's 30-second window. Silence is never decoded: without speech the window is
// trimmed to a short pre-roll. Text decoded from audio in which nobody spoke is passed through
// TranscriptGuard (stock hallucinations, prompt echoes). The language is always the transcriber's
// own; the contextual strings become the initial prompt (InitialPrompt). analyze() waits while the
// window is longer than maximumSegment and two seconds: audio that comes faster than it is decoded
// is held back at the feeder.
//
// Threads: see ModelTranscriber. analyze()/finishInput() (feeder), nextResult() (reader) and
// finalizeThroughEndOfInput() (stop) may run at once; the decoder runs only on the worker thread,
// which prepare() starts and the destructor joins. The decoder comes from `acquireDecoder` in
// prepare() and is held until the transcriber is destroyed.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/ModelTranscriber.h"
#include "platform/model/SegmentDecoder.h"
#include "platform/model/SpeechActivityDetector.h"

namespace kelvo::platform {

class ProgressiveTranscriber : public ModelTranscriber {
  public:
    struct Options {
        std::chrono::milliseconds partialInterval{500};
        std::chrono::milliseconds pauseForFinal{600};
        std::chrono::milliseconds maximumSegment{28'000};
        // Less speech than this in a segment counts as nobody having spoken.
        std::chrono::milliseconds minimumSpeech{200};
        // Silence kept before speech starts and after it ends, so words are not clipped.
        std::chrono::milliseconds preRoll{300};
        std::chrono::milliseconds tailPadding{240};
        // Stop a partial decode that is running when a pause closes the segment: the final
        // supersedes it, and it would hold up the final (at a key release, the text).
        bool abortPartialAtPause = true;
    };

    struct Statistics {
        std::uint64_t partialDecodes = 0;
        std::uint64_t finalDecodes = 0;
        std::uint64_t droppedByGuard = 0;
        std::size_t promptTermCount = 0;
    };

    using DecoderSource = std::function<std::shared_ptr<SegmentDecoder>()>;
    using Log = std::function<void(const std::string&)>;

    // `language` is the whisper language code the transcriber is for ("ja").
    ProgressiveTranscriber(std::string language, DecoderSource acquireDecoder, Options options,
                           Log log = {});
    ~ProgressiveTranscriber() override;

    const std::string& locale() const override { return language_; }
    void setContextualStrings(const std::vector<std::string>& strings) override;
    void prepare() override;
    void analyze(std::span<const std::int16_t> samples16kMono) override;
    void finishInput() override;
    std::optional<Result> nextResult() override;
    void finalizeThroughEndOfInput() override;
    void cancel() override;

    Statistics statistics() const;
    const std::string& initialPrompt() const { return prompt_; }

  private:
    struct Action {
        enum class Kind { none, partial, final_, end } kind = Kind::none;
        std::size_t cutSamples = 0;  // for final_
    };

    void runWorker();
    Action nextAction();
    bool hasSpeech() const;
    std::size_t trailingSilenceFrames() const;
    void push(Result result);

    const std::string language_;
    const DecoderSource acquireDecoder_;
    const Options options_;
    const Log log_;
    std::vector<std::string> contextualStrings_;
    std::string prompt_;
    std::shared_ptr<SegmentDecoder> decoder_;
    std::thread worker_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    SpeechActivityDetector detector_;
    std::vector<float> window_;  // the open segment
    std::deque<bool> frames_;    // speech flag per classified frame of window_
    std::uint64_t totalSamples_ = 0;
    std::uint64_t lastPartialAt_ = 0;
    bool partialShown_ = false;
    std::string lastPartial_;
    bool inputFinished_ = false;
    bool workerDone_ = true;
    bool ended_ = false;
    bool cancelled_ = false;
    bool decodingPartial_ = false;
    std::optional<std::string> error_;
    std::deque<Result> results_;
    Statistics statistics_;
    std::atomic<bool> abortDecode_ = false;
};

}  // namespace kelvo::platform

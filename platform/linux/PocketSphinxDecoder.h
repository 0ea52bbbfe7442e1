#pragma once

// PocketSphinxDecoder is the decoding half of a PocketSphinxRecognizer: one loaded PocketSphinx
// model, a queue of audio and one thread (run(), started by the recogniser) that decodes the queue
// in order and routes the results to the attached task. The audio of one dictation is one stream,
// whichever task it was appended to: a task that reached its final keeps feeding the stream, and
// decoding pauses while no task is attached (between a final and the next request), so the
// segmentation and the text do not depend on when the next request arrives or on how fast the
// audio comes. Partial hypotheses go out after every appended buffer that changes them; a final
// goes out at the voice-activity endpoint (PocketSphinx's end of speech, half a second of
// non-speech) and ends the task; the end of the audio ends the last segment with a final, or with
// "no speech detected" (1110) when nothing was heard. A segment whose hypothesis comes back empty
// after partials were shown for it ends with an empty final, which withdraws them. Cancelling the
// newest task ends the stream: its queued audio is dropped and the next task starts a new one. The
// stream's end-of-audio callback (endAudio) runs once its end has been decoded, or once the stream
// is dropped (cancelled, model not loadable); a catch-up callback (catchUp) marks its place in the
// queue and runs once the audio before it has been decoded and its partial delivered, or once the
// stream is dropped.
//
// Each dictation is decoded from the same starting point, the model's own channel estimates
// (cepstral mean, noise level), so the same audio gives the same text whatever was dictated before.
// The model is loaded when the first task is attached (about 0.3 s; a model that cannot be loaded
// ends that task with an error) and kept between dictations; once no task has been attached for
// idleRelease, a timer of the injected Clock asks the thread to free it. Contextual strings become
// dictionary words: a string's words that the dictionary only knows in lower case are added in the
// string's own spelling with that pronunciation (and as language-model unigrams), so the result
// reads as the user writes the term; words with no pronunciation are skipped. In languages written
// with spaces every final ends with one, so that finals joined by the reader still read as words.
//
// Threads: run() on the recogniser's thread; the task methods from any thread; the idle timer on
// the Clock's thread. The Clock must outlive the decoder's thread. Shared by the recogniser, its
// thread and (weakly) its tasks.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/Clock.h"
#include "platform/linux/PocketSphinxModel.h"
#include "platform/linux/PocketSphinxRecognitionTask.h"

struct cmd_ln_s;
struct ps_decoder_s;

namespace kelvo::platform {

class PocketSphinxDecoder final : public std::enable_shared_from_this<PocketSphinxDecoder> {
  public:
    // Code of the error that ends a task whose model could not be loaded.
    static constexpr long modelUnavailableCode = 1;
    // Undecoded audio beyond which append() waits for the decoder: a feeder faster than real time
    // (a file) is held back instead of queueing all of it; live audio is never this far behind.
    static constexpr std::size_t maximumQueuedSamples = 30 * 16000;

    PocketSphinxDecoder(PocketSphinxModel model, Clock& clock, Clock::Duration idleRelease);
    ~PocketSphinxDecoder();

    PocketSphinxDecoder(const PocketSphinxDecoder&) = delete;
    PocketSphinxDecoder& operator=(const PocketSphinxDecoder&) = delete;

    // The thread's loop; returns after shutDown().
    void run();
    void shutDown();

    // Makes task the one that receives results; a task still attached is ended with "cancelled"
    // (216).
    void attach(const std::shared_ptr<PocketSphinxRecognitionTask>& task);

    void append(const PocketSphinxRecognitionTask& task, std::span<const std::int16_t> samples);
    void endAudio(const PocketSphinxRecognitionTask& task, std::function<void()> decoded);
    void catchUp(const PocketSphinxRecognitionTask& task, std::function<void()> caughtUp);
    void cancel(const PocketSphinxRecognitionTask& task);

    bool isModelLoaded() const noexcept { return loaded_; }
    static bool isSpaceSeparated(const std::string& locale);

  private:
    struct Item {
        std::uint64_t stream = 0;
        std::vector<std::int16_t> samples;
        bool endOfAudio = false;
        // Set on a catch-up mark, which holds no audio.
        std::function<void()> caughtUp;
    };

    bool accepts(const PocketSphinxRecognitionTask& task) const;
    // Drops the current stream's queued audio and starts a new stream; returns the dropped
    // stream's end-of-audio and catch-up callbacks, to be run without the lock.
    std::vector<std::function<void()>> dropStreamLocked();
    void scheduleIdleRelease();
    void requestRelease();

    // Decoder thread only.
    bool load(std::string& failure);
    void unload();
    void applyHints(const SegmentRecognizer::RequestOptions& options);
    void process(const Item& item, const std::shared_ptr<PocketSphinxRecognitionTask>& task);
    void finishStream(const std::shared_ptr<PocketSphinxRecognitionTask>& task,
                      std::uint64_t stream);
    void abandonUtterance();
    void startFromTheModelsChannel();
    std::string hypothesis();
    void deliverFinal(const std::shared_ptr<PocketSphinxRecognitionTask>& task, std::string text);
    void endTask(const std::shared_ptr<PocketSphinxRecognitionTask>& task,
                 const std::optional<SegmentRecognitionTask::Result>& result,
                 const std::optional<SegmentRecognitionTask::Error>& error);

    const PocketSphinxModel model_;
    Clock& clock_;
    const Clock::Duration idleRelease_;
    const bool spaceSeparated_;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    // Signalled when queued audio was taken or dropped, for an append() that waits.
    std::condition_variable room_;
    std::deque<Item> queue_;
    std::size_t queuedSamples_ = 0;
    std::uint64_t stream_ = 1;
    bool streamEnded_ = false;
    // The current stream's end-of-audio callback, from endAudio() until its end is decoded.
    std::function<void()> endDecoded_;
    std::uint64_t lastSerial_ = 0;
    std::shared_ptr<PocketSphinxRecognitionTask> attached_;
    bool stopping_ = false;
    bool releaseRequested_ = false;
    std::optional<std::uint64_t> idleTimer_;
    std::atomic<bool> loaded_ = false;

    // Owned by the decoder thread.
    cmd_ln_s* config_ = nullptr;
    ps_decoder_s* decoder_ = nullptr;
    std::uint64_t decodingStream_ = 0;
    std::uint64_t preparedSerial_ = 0;
    bool inUtterance_ = false;
    bool heardSpeech_ = false;
    std::string lastPartial_;
    std::unordered_set<std::string> addedWords_;
    // The model's initial cepstral mean (its -cmninit), read once loaded.
    std::vector<float> initialCepstralMean_;
};

}  // namespace kelvo::platform

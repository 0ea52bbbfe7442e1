#pragma once

// SegmentRecognitionTask is one running request of a SegmentRecognizer: the audio-buffer request
// and the recognition task of the macOS Speech framework in one object. appendAudio() takes 16 kHz
// mono int16 samples and queues them for the decode thread, waiting only while the recogniser is
// far behind (so a feeder faster than real time is held back; never call it from the thread that
// would start the next request); endAudio() says no more audio follows, so the last segment is
// decoded and reported as final, and runs `decoded` (when given) once, on the recogniser's thread,
// after the end of the audio has been decoded and its last result delivered (to whichever task of
// the dictation is current by then), or as soon as that can no longer happen (the dictation was
// cancelled, the model could not be loaded): a caller that wants every word waits for it before
// cancelling. catchUp() asks for the audio appended so far to be decoded without ending it, and
// runs `caughtUp` once, on the recogniser's thread, when the partial hypothesis delivered last
// covers all of that audio, or as soon as that can no longer happen: a recogniser that runs behind
// real time has the words of a stopped dictation in its last partial before the task is cancelled.
// cancel() stops decoding at once, after which the handler is called no more (a final result may
// then never come). All four may be called from any thread, in any order, any number of times.
// The handler gets a result, an error, or both, on the recogniser's thread. Error codes follow the
// Speech framework's numbering where there is one: 216 is "the request was cancelled", 1110 is "no
// speech detected".

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace kelvo::platform {

class SegmentRecognitionTask {
  public:
    struct Result {
        std::string text;
        bool isFinal = false;
    };

    struct Error {
        static constexpr long cancelledCode = 216;
        static constexpr long noSpeechDetectedCode = 1110;

        long code = 0;
        std::string description;
    };

    using ResultHandler =
        std::function<void(const std::optional<Result>& result, const std::optional<Error>& error)>;

    virtual ~SegmentRecognitionTask() = default;

    virtual void appendAudio(std::span<const std::int16_t> samples16kMono) = 0;
    virtual void endAudio(std::function<void()> decoded) = 0;
    virtual void catchUp(std::function<void()> caughtUp) = 0;
    virtual void cancel() = 0;
};

}  // namespace kelvo::platform

#pragma once

// PocketSphinxRecognitionTask is one request of a PocketSphinxRecognizer (see
// SegmentRecognitionTask for the contract). It forwards its audio and its end to the recogniser's
// PocketSphinxDecoder, which decodes on its own thread and calls deliver() with the results meant
// for this task. A task stays usable after its final result: audio appended to it then belongs to
// the speech that follows, and the decoder keeps it for the next task of the same dictation, so
// nothing said between a segment's end and the next request is lost. After cancel() the handler is
// called no more (cancel() waits for a call in progress unless it is made from inside the handler);
// after the task's last result (a final or an error) the handler is released, so the objects it
// holds do not outlive the request. Methods are callable from any thread.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/SegmentRecognitionTask.h"
#include "platform/SegmentRecognizer.h"

namespace kelvo::platform {

class PocketSphinxDecoder;

class PocketSphinxRecognitionTask final : public SegmentRecognitionTask {
  public:
    PocketSphinxRecognitionTask(std::weak_ptr<PocketSphinxDecoder> decoder,
                                SegmentRecognizer::RequestOptions options, ResultHandler handler);

    void appendAudio(std::span<const std::int16_t> samples16kMono) override;
    void endAudio(std::function<void()> decoded) override;
    void catchUp(std::function<void()> caughtUp) override;
    void cancel() override;

    // For the decoder. `stream` is the dictation the task belongs to and `serial` its place among
    // the decoder's tasks; both are written and read under the decoder's mutex only.
    struct DecoderPlace {
        std::uint64_t stream = 0;
        std::uint64_t serial = 0;
    };
    DecoderPlace place;

    const SegmentRecognizer::RequestOptions& options() const noexcept { return options_; }
    bool isCancelled() const noexcept { return cancelled_; }
    // Calls the handler unless the task was cancelled; a terminal call is the task's last.
    void deliver(const std::optional<Result>& result, const std::optional<Error>& error,
                 bool terminal);

  private:
    std::weak_ptr<PocketSphinxDecoder> decoder_;
    const SegmentRecognizer::RequestOptions options_;
    // Recursive: a handler may cancel its own task from inside the call.
    std::recursive_mutex handlerMutex_;
    ResultHandler handler_;
    std::atomic<bool> cancelled_ = false;
};

}  // namespace kelvo::platform

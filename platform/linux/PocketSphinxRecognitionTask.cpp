#include "platform/linux/PocketSphinxRecognitionTask.h"

#include "platform/linux/PocketSphinxDecoder.h"

namespace kelvo::platform {

PocketSphinxRecognitionTask::PocketSphinxRecognitionTask(std::weak_ptr<PocketSphinxDecoder> decoder,
                                                         SegmentRecognizer::RequestOptions options,
                                                         ResultHandler handler)
    : decoder_(std::move(decoder)), options_(std::move(options)), handler_(std::move(handler)) {}

void PocketSphinxRecognitionTask::appendAudio(std::span<const std::int16_t> samples16kMono) {
    if (auto decoder = decoder_.lock()) {
        decoder->append(*this, samples16kMono);
    }
}

void PocketSphinxRecognitionTask::endAudio(std::function<void()> decoded) {
    if (auto decoder = decoder_.lock()) {
        decoder->endAudio(*this, std::move(decoded));
    } else if (decoded) {
        decoded();  // the recogniser is gone: nothing more will be decoded
    }
}

void PocketSphinxRecognitionTask::catchUp(std::function<void()> caughtUp) {
    if (auto decoder = decoder_.lock()) {
        decoder->catchUp(*this, std::move(caughtUp));
    } else if (caughtUp) {
        caughtUp();
    }
}

void PocketSphinxRecognitionTask::cancel() {
    {
        // Waits for a result being delivered on the decoder's thread, so none follows cancel().
        const std::lock_guard lock(handlerMutex_);
        cancelled_ = true;
        handler_ = nullptr;
    }
    if (auto decoder = decoder_.lock()) {
        decoder->cancel(*this);
    }
}

void PocketSphinxRecognitionTask::deliver(const std::optional<Result>& result,
                                          const std::optional<Error>& error, bool terminal) {
    const std::lock_guard lock(handlerMutex_);
    if (cancelled_ || !handler_) {
        return;
    }
    // A copy, so that a handler which cancels this task does not destroy itself while running.
    const ResultHandler handler = handler_;
    if (terminal) {
        handler_ = nullptr;
    }
    handler(result, error);
}

}  // namespace kelvo::platform

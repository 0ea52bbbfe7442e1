#include "platform/linux/PocketSphinxRecognizer.h"

#include "platform/linux/PocketSphinxDecoder.h"
#include "platform/linux/PocketSphinxRecognitionTask.h"

namespace kelvo::platform {

PocketSphinxRecognizer::PocketSphinxRecognizer(PocketSphinxModel model, Clock& clock,
                                               Clock::Duration idleRelease)
    : model_(model),
      decoder_(std::make_shared<PocketSphinxDecoder>(std::move(model), clock, idleRelease)) {}

PocketSphinxRecognizer::~PocketSphinxRecognizer() {
    decoder_->shutDown();
    const std::lock_guard lock(threadMutex_);
    if (!thread_.joinable()) {
        return;
    }
    if (thread_.get_id() == std::this_thread::get_id()) {
        // The last owner was a result handler on the decoder's own thread; that thread holds the
        // decoder itself and returns from its loop once this call has finished.
        thread_.detach();
    } else {
        thread_.join();
    }
}

bool PocketSphinxRecognizer::isAvailable() {
    return model_.isComplete();
}

bool PocketSphinxRecognizer::isModelLoaded() const {
    return decoder_->isModelLoaded();
}

std::shared_ptr<SegmentRecognitionTask> PocketSphinxRecognizer::start(
    const RequestOptions& options, SegmentRecognitionTask::ResultHandler handler) {
    {
        const std::lock_guard lock(threadMutex_);
        if (!thread_.joinable()) {
            thread_ = std::thread([decoder = decoder_] { decoder->run(); });
        }
    }
    auto task =
        std::make_shared<PocketSphinxRecognitionTask>(decoder_, options, std::move(handler));
    decoder_->attach(task);
    return task;
}

}  // namespace kelvo::platform

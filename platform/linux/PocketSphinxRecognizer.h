#pragma once

// PocketSphinxRecognizer is the Linux SegmentRecognizer (the SFSpeechRecognizer role): one
// locale's PocketSphinx model, decoded by a PocketSphinxDecoder on a thread of its own that is
// started with the first request and ended with the recogniser. start() attaches a new
// PocketSphinxRecognitionTask to the decoder and returns at once; the handler then runs on the
// decoder's thread. The model stays loaded between requests and dictations, and is freed after
// idleRelease without requests (timed by the injected Clock, which must outlive the recogniser).
// The recogniser may be destroyed
// on any thread, including its own decoder thread (the thread then finishes on its own). Callable
// from any thread.

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/Clock.h"
#include "platform/SegmentRecognizer.h"
#include "platform/linux/PocketSphinxModel.h"

namespace kelvo::platform {

class PocketSphinxDecoder;

class PocketSphinxRecognizer final : public SegmentRecognizer {
  public:
    static constexpr std::chrono::minutes defaultIdleRelease{10};

    PocketSphinxRecognizer(PocketSphinxModel model, Clock& clock,
                           Clock::Duration idleRelease = defaultIdleRelease);
    ~PocketSphinxRecognizer() override;

    PocketSphinxRecognizer(const PocketSphinxRecognizer&) = delete;
    PocketSphinxRecognizer& operator=(const PocketSphinxRecognizer&) = delete;

    const std::string& locale() const override { return model_.locale; }
    // The model's files are all there.
    bool isAvailable() override;
    // Always: nothing leaves the machine.
    bool supportsOnDeviceRecognition() override { return true; }

    std::shared_ptr<SegmentRecognitionTask> start(
        const RequestOptions& options, SegmentRecognitionTask::ResultHandler handler) override;

    const PocketSphinxModel& model() const noexcept { return model_; }
    bool isModelLoaded() const;

  private:
    const PocketSphinxModel model_;
    const std::shared_ptr<PocketSphinxDecoder> decoder_;
    std::mutex threadMutex_;
    std::thread thread_;
};

}  // namespace kelvo::platform

#pragma once

// FakeAudioInput stands in for the microphone: the test sets the permission answer and the device
// format, then plays the capture thread itself with deliver(), which calls the capture handler on
// the calling thread. It records opens, starts and closes. A permission request is answered from a
// thread of its own, as a system prompt would be.

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <type_traits>
#include <vector>

#include "platform/AudioInput.h"

namespace kelvo::test {

class FakeAudioInput final : public platform::AudioInput {
  public:
    ~FakeAudioInput() override;

    Authorization authorization() override { return authorizationStatus; }
    void requestAuthorization(std::function<void(bool granted)> completion) override;
    std::optional<Format> open() override;
    void start(std::uint32_t framesPerRead, FramesHandler handler) override;
    void close() override;

    // Calls the capture handler with one read; ignored when not started.
    template <typename Sample>
    void deliver(std::span<const Sample> interleaved) {
        if (!handler_ || !deviceFormat) {
            return;
        }
        Frames frames;
        frames.format = *deviceFormat;
        frames.frameCount =
            static_cast<std::uint32_t>(interleaved.size() / deviceFormat->channelCount);
        if constexpr (std::is_same_v<Sample, float>) {
            frames.float32Samples = interleaved;
        } else {
            frames.int16Samples = interleaved;
        }
        handler_(frames);
    }

    Authorization authorizationStatus = Authorization::authorized;
    bool grantsRequest = true;
    std::optional<Format> deviceFormat = Format{48000, 2, SampleFormat::float32};
    // When set, start() throws AudioInputError with this description.
    std::optional<std::string> startFailure;

    int authorizationRequests = 0;
    int openCount = 0;
    int closeCount = 0;
    bool isStarted = false;
    std::uint32_t requestedFramesPerRead = 0;

  private:
    FramesHandler handler_;
    std::thread answerThread_;
};

}  // namespace kelvo::test

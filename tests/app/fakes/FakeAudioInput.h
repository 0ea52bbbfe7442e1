#pragma once

// FakeAudioInput stands in for the microphone: the test sets the permission answer and the device
// format, then plays the capture thread itself with deliver(), which calls the capture handler on
// the calling thread. It records opens, starts and closes. A permission request is answered from a
// thread of its own, as a system prompt would be.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <type_traits>

#include "platform/AudioInput.h"
#include "platform/AudioInputError.h"

namespace kelvo::test {

class FakeAudioInput final : public platform::AudioInput {
  public:
    ~FakeAudioInput() override {
        if (answerThread_.joinable()) {
            answerThread_.join();
        }
    }

    Authorization authorization() override { return authorizationStatus; }
    void requestAuthorization(std::function<void(bool granted)> completion) override {
        ++authorizationRequests;
        if (answerThread_.joinable()) {
            answerThread_.join();
        }
        answerThread_ = std::thread([completion, granted = grantsRequest] { completion(granted); });
    }
    std::optional<Format> open() override {
        ++openCount;
        return deviceFormat;
    }
    void start(std::uint32_t framesPerRead, FramesHandler handler) override {
        if (startFailure) {
            throw platform::AudioInputError(*startFailure);
        }
        requestedFramesPerRead = framesPerRead;
        handler_ = std::move(handler);
        isStarted = true;
    }
    void close() override {
        ++closeCount;
        handler_ = nullptr;
        isStarted = false;
    }

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
    int authorizationRequests = 0, openCount = 0, closeCount = 0;
    bool isStarted = false;
    std::uint32_t requestedFramesPerRead = 0;

  private:
    FramesHandler handler_;
    std::thread answerThread_;
};

}  // namespace kelvo::test

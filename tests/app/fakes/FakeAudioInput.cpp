#include "fakes/FakeAudioInput.h"

#include "platform/AudioInputError.h"

namespace kelvo::test {

FakeAudioInput::~FakeAudioInput() {
    if (answerThread_.joinable()) {
        answerThread_.join();
    }
}

void FakeAudioInput::requestAuthorization(std::function<void(bool granted)> completion) {
    ++authorizationRequests;
    if (answerThread_.joinable()) {
        answerThread_.join();
    }
    answerThread_ = std::thread(
        [completion = std::move(completion), granted = grantsRequest] { completion(granted); });
}

std::optional<platform::AudioInput::Format> FakeAudioInput::open() {
    ++openCount;
    return deviceFormat;
}

void FakeAudioInput::start(std::uint32_t framesPerRead, FramesHandler handler) {
    if (startFailure) {
        throw platform::AudioInputError(*startFailure);
    }
    requestedFramesPerRead = framesPerRead;
    handler_ = std::move(handler);
    isStarted = true;
}

void FakeAudioInput::close() {
    ++closeCount;
    handler_ = nullptr;
    isStarted = false;
}

}  // namespace kelvo::test

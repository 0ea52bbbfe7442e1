#pragma once

// AudioCaptureService owns the microphone for one dictation at a time: start() checks the
// microphone permission, opens the default input through the AudioInput seam and returns a fresh
// stream of 16 kHz mono int16 AudioBuffers; stop() closes the input, drains the converter's tail
// into the stream and finishes it. Each start builds fresh conversion state and a fresh stream.
// The conversion runs on the input's capture thread and only converts and sends; the stream is
// unbounded, so a slow reader never blocks capture. start(), stop() and isRecording() belong to one
// thread (the main thread) and must not overlap; the AudioInput must outlive the service.

#include <QCoroTask>

#include <cstdint>
#include <memory>

#include "KelvoVoiceMac/session/AudioBuffer.h"
#include "KelvoVoiceMac/session/AudioConverter.h"
#include "KelvoVoiceMac/session/Channel.h"
#include "KelvoVoiceMac/session/DictationAudioSource.h"
#include "platform/AudioInput.h"

namespace kelvo::app {

class AudioCaptureService final : public DictationAudioSource {
  public:
    static constexpr std::uint32_t inputBus = 0;
    static constexpr std::uint32_t bufferSize = 4096;

    explicit AudioCaptureService(platform::AudioInput& audioInput);
    ~AudioCaptureService() override;
    AudioCaptureService(const AudioCaptureService&) = delete;
    AudioCaptureService& operator=(const AudioCaptureService&) = delete;

    // Throws CaptureError, or the input's AudioInputError when the device does not start.
    QCoro::Task<std::shared_ptr<Channel<AudioBuffer>>> start() override;

    // Never fails; harmless when idle or called twice.
    void stop() override;

    bool isRecording() const noexcept { return isRecording_; }

  private:
    QCoro::Task<bool> requestMicrophoneAccess();

    platform::AudioInput& audioInput_;
    // The running capture's converter; shared with the capture-thread handler, which holds it
    // until the input has closed.
    std::shared_ptr<AudioConverter> converter_;
    bool inputOpen_ = false;
    std::shared_ptr<Channel<AudioBuffer>> streamContinuation_;
    bool isRecording_ = false;
};

}  // namespace kelvo::app

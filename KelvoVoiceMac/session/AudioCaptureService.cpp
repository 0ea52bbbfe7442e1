#include "KelvoVoiceMac/session/AudioCaptureService.h"

#include "KelvoVoiceMac/session/CaptureError.h"

namespace kelvo::app {

using platform::AudioInput;

AudioCaptureService::AudioCaptureService(AudioInput& audioInput) : audioInput_(audioInput) {}

AudioCaptureService::~AudioCaptureService() {
    stop();
}

QCoro::Task<std::shared_ptr<Channel<AudioBuffer>>> AudioCaptureService::start() {
    if (isRecording_) {
        throw CaptureError(CaptureError::Code::alreadyRecording);
    }

    switch (audioInput_.authorization()) {
        case AudioInput::Authorization::authorized:
            break;
        case AudioInput::Authorization::notDetermined:
            if (!co_await requestMicrophoneAccess()) {
                throw CaptureError(CaptureError::Code::microphonePermissionDenied);
            }
            // Another start may have opened the microphone while the prompt was up.
            if (isRecording_) {
                throw CaptureError(CaptureError::Code::alreadyRecording);
            }
            break;
        case AudioInput::Authorization::denied:
            throw CaptureError(CaptureError::Code::microphonePermissionDenied);
    }

    const std::optional<AudioInput::Format> format = audioInput_.open();
    std::shared_ptr<AudioConverter> converter;
    if (format && format->sampleRateHz > 0 && format->channelCount > 0) {
        converter = AudioConverter::make(*format);
    }
    if (!converter) {
        audioInput_.close();
        throw CaptureError(CaptureError::Code::inputFormatUnavailable);
    }

    auto stream = std::make_shared<Channel<AudioBuffer>>();
    streamContinuation_ = stream;

    try {
        audioInput_.start(bufferSize, [converter, stream](const AudioInput::Frames& frames) {
            if (std::optional<AudioBuffer> buffer = converter->convert(frames)) {
                stream->send(std::move(*buffer));
            }
        });
    } catch (...) {
        // The device is released, but the stream stays stored until the next start or stop.
        audioInput_.close();
        throw;
    }

    converter_ = std::move(converter);
    inputOpen_ = true;
    isRecording_ = true;
    co_return stream;
}

void AudioCaptureService::stop() {
    if (!isRecording_) {
        return;
    }
    if (inputOpen_) {
        audioInput_.close();
        // The input delivers nothing after close(), so the converter is ours again: its held-back
        // tail is the last words of the dictation and goes out before the stream ends.
        if (std::optional<AudioBuffer> tail = converter_->flush(); tail && streamContinuation_) {
            streamContinuation_->send(std::move(*tail));
        }
    }
    if (streamContinuation_) {
        streamContinuation_->close();
    }
    streamContinuation_.reset();
    converter_.reset();
    inputOpen_ = false;
    isRecording_ = false;
}

QCoro::Task<bool> AudioCaptureService::requestMicrophoneAccess() {
    // The permission answer may come on any thread; a one-shot channel brings it back to ours.
    auto answer = std::make_shared<Channel<bool>>();
    audioInput_.requestAuthorization([answer](bool granted) {
        answer->send(granted);
        answer->close();
    });
    const std::optional<bool> granted = co_await answer->next();
    co_return granted.value_or(false);
}

}  // namespace kelvo::app

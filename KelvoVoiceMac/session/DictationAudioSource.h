#pragma once

// DictationAudioSource is what the dictation session needs of microphone capture, kept abstract so
// that the session can be tested without a microphone; AudioCaptureService implements it. start()
// opens the input and yields the stream of 16 kHz mono buffers, or throws the capture error
// (whose what() is its description); stop() ends capture and closes that stream, and is harmless
// when capture never started. Main thread only.

#include <QCoroTask>
#include <memory>

#include "KelvoVoiceMac/session/AudioBuffer.h"
#include "KelvoVoiceMac/session/Channel.h"

namespace kelvo::app {

class DictationAudioSource {
  public:
    virtual ~DictationAudioSource() = default;

    virtual QCoro::Task<std::shared_ptr<Channel<AudioBuffer>>> start() = 0;
    virtual void stop() = 0;
};

}  // namespace kelvo::app

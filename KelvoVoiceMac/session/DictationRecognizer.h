#pragma once

// DictationRecognizer is what the dictation session needs of speech recognition, kept abstract so
// that the session can be tested with a scripted recogniser; SpeechService implements it.
// setContextualStrings() applies hint terms to the next recognition; startTranscription() returns
// at once with the event stream for the given audio stream; stop() finalises recognition
// (delivering any last results), closes the event stream and never fails, and is harmless when
// nothing is running. stopAfterCatchingUp() is stop() for a dictation whose words are kept: once
// capture has stopped, a recogniser that runs behind real time first decodes the audio captured
// so far (for a bounded time) so that its last results cover it. Main thread only.

#include <QCoroTask>
#include <memory>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/AudioBuffer.h"
#include "KelvoVoiceMac/session/Channel.h"
#include "KelvoVoiceMac/session/TranscriptionEvent.h"

namespace kelvo::app {

class DictationRecognizer {
  public:
    virtual ~DictationRecognizer() = default;

    virtual void setContextualStrings(std::vector<std::string> strings) = 0;
    virtual std::shared_ptr<Channel<TranscriptionEvent>> startTranscription(
        std::shared_ptr<Channel<AudioBuffer>> audio) = 0;
    virtual QCoro::Task<> stop() = 0;
    virtual QCoro::Task<> stopAfterCatchingUp() = 0;
};

}  // namespace kelvo::app

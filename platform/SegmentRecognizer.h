#pragma once

// SegmentRecognizer is one locale's segment recogniser: each recognition task listens to the audio
// appended to it, reports growing partial hypotheses and ends with one final result at the end of
// a segment (for PocketSphinx: the voice-activity endpoint), after which a new task must be started
// for the speech that follows. Tasks decode on the recogniser's own thread; the result handler runs
// there, never inside start(). isAvailable() is false when the model cannot be used right now.
// Callable from any thread.

#include <memory>
#include <string>
#include <vector>

#include "platform/SegmentRecognitionTask.h"

namespace kelvo::platform {

class SegmentRecognizer {
  public:
    struct RequestOptions {
        bool shouldReportPartialResults = true;
        bool requiresOnDeviceRecognition = false;
        bool addsPunctuation = false;
        std::vector<std::string> contextualStrings;
    };

    virtual ~SegmentRecognizer() = default;

    virtual const std::string& locale() const = 0;
    virtual bool isAvailable() = 0;
    virtual bool supportsOnDeviceRecognition() = 0;

    // Starts a recognition task for the audio that will be appended to it; the handler receives
    // every result and error of this task.
    virtual std::shared_ptr<SegmentRecognitionTask> start(
        const RequestOptions& options, SegmentRecognitionTask::ResultHandler handler) = 0;
};

}  // namespace kelvo::platform

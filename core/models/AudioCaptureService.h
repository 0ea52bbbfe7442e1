#pragma once

#include <filesystem>

namespace kelvo {

/// Records audio into a file for the voice-memo pipeline. (The desktop application's live
/// microphone stream is a different type in the application layer.)
class AudioCaptureService {
public:
    virtual ~AudioCaptureService() = default;
    /// Begins recording to a new file.
    virtual void startRecording() = 0;
    /// Ends recording and returns the recorded file.
    virtual std::filesystem::path stopRecording() = 0;
};

}  // namespace kelvo

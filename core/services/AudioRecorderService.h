#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "core/models/AudioCaptureService.h"
#include "core/services/AudioSampleSource.h"

namespace kelvo {

/// Records the microphone (the default PulseAudio source) into a 16 kHz mono AAC-LC file,
/// "kelvo-recording-<UUID>.m4a" in the temporary folder ($TMPDIR, else /tmp), for the file-based
/// voice input pipeline. startRecording() opens the source and the file on the caller's thread
/// and starts a capture thread owned by the service; stopRecording() ends that thread, finishes
/// the file and hands it over (the caller deletes it when done). Starting while a recording is
/// under way discards the earlier recording (its thread ends, its file is removed). A recording
/// that captured no audio is discarded and reported as fileNotFound, because an AAC file without
/// samples cannot be read back. Destroying the service discards a recording under way.
///
/// Errors: stopRecording() throws AudioRecorderError (notRecording, fileNotFound); a failing
/// source (PulseAudioCapture::Error, e.g. no server) or file (AacFileWriter::Error) passes through
/// unchanged, and a failed start leaves the service as it was. The service is not thread-safe:
/// start and stop must not run at the same time (any one thread at a time may call them).
class AudioRecorderService : public AudioCaptureService {
  public:
    /// Opens a fresh source for each recording; throws when it cannot.
    using SourceFactory = std::function<std::unique_ptr<AudioSampleSource>()>;

    /// Records the default PulseAudio source.
    AudioRecorderService();
    /// Records whatever `openSource` yields (tests use scripted sources).
    explicit AudioRecorderService(SourceFactory openSource);
    ~AudioRecorderService() override;

    AudioRecorderService(const AudioRecorderService&) = delete;
    AudioRecorderService& operator=(const AudioRecorderService&) = delete;

    void startRecording() override;
    std::filesystem::path stopRecording() override;

    /// How many 16 kHz samples the file returned by the last successful stop holds; 0 before.
    std::int64_t lastRecordingSampleCount() const noexcept { return lastRecordingSampleCount_; }

  private:
    struct Recording;

    SourceFactory openSource_;
    std::unique_ptr<Recording> recording_;
    std::int64_t lastRecordingSampleCount_ = 0;
};

}  // namespace kelvo

#include "core/services/AudioRecorderService.h"

#include <exception>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "core/services/AacFileWriter.h"
#include "core/services/AudioRecorderError.h"
#include "core/services/PulseAudioCapture.h"
#include "core/support/Uuid.h"

namespace kelvo {
namespace {

constexpr const char* fileNamePrefix = "kelvo-recording-";
constexpr const char* fileNameExtension = ".m4a";
constexpr const char* pulseAudioClientName = "KelvoVoice";

// 20 ms per read matches the PulseAudio fragment, so a stop request is seen within one fragment.
constexpr std::size_t readBlockSamples = AudioSampleSource::sampleRateHz / 50;

}  // namespace

// Everything one recording owns. The capture thread is declared last so that it is joined before
// the source and the writer it uses are destroyed. The failure fields are written by the capture
// thread and read only after it has been joined.
struct AudioRecorderService::Recording {
    std::filesystem::path path;
    std::unique_ptr<AudioSampleSource> source;
    std::unique_ptr<AacFileWriter> writer;
    std::exception_ptr sourceFailure;
    std::exception_ptr writerFailure;
    std::jthread captureThread;

    void capture(std::stop_token stopToken) {
        std::vector<std::int16_t> block(readBlockSamples);
        while (!stopToken.stop_requested()) {
            std::size_t count = 0;
            try {
                count = source->read(block);
            } catch (...) {
                sourceFailure = std::current_exception();
                return;
            }
            try {
                writer->write(std::span<const std::int16_t>(block.data(), count));
            } catch (...) {
                writerFailure = std::current_exception();
                return;
            }
            if (count < block.size()) {
                return;  // the source has ended
            }
        }
    }

    // Ends capture and removes the file, whatever state it is in.
    void discard() noexcept {
        captureThread = std::jthread();  // requests stop and joins
        writer.reset();                  // an unfinished writer removes its file
    }
};

AudioRecorderService::AudioRecorderService()
    : AudioRecorderService([]() -> std::unique_ptr<AudioSampleSource> {
          return std::make_unique<PulseAudioCapture>(pulseAudioClientName);
      }) {}

AudioRecorderService::AudioRecorderService(SourceFactory openSource)
    : openSource_(std::move(openSource)) {}

AudioRecorderService::~AudioRecorderService() {
    if (recording_) {
        recording_->discard();
    }
}

void AudioRecorderService::startRecording() {
    auto recording = std::make_unique<Recording>();
    recording->path =
        std::filesystem::temp_directory_path() / (fileNamePrefix + makeUuid() + fileNameExtension);
    // Source first: when the server is unreachable no file is created at all.
    recording->source = openSource_();
    recording->writer = std::make_unique<AacFileWriter>(recording->path);
    recording->captureThread =
        std::jthread([raw = recording.get()](std::stop_token token) { raw->capture(token); });

    if (recording_) {
        recording_->discard();
    }
    recording_ = std::move(recording);
}

std::filesystem::path AudioRecorderService::stopRecording() {
    if (!recording_) {
        throw AudioRecorderError::notRecording();
    }
    // Whatever happens below, the service is idle afterwards.
    const std::unique_ptr<Recording> recording = std::move(recording_);
    recording->captureThread = std::jthread();

    if (recording->writerFailure) {
        recording->writer.reset();
        std::rethrow_exception(recording->writerFailure);
    }
    if (recording->writer->samplesWritten() == 0) {
        recording->writer.reset();
        // A source that failed before delivering anything says more than "not found" would.
        if (recording->sourceFailure) {
            std::rethrow_exception(recording->sourceFailure);
        }
        throw AudioRecorderError::fileNotFound();
    }
    // A source that failed midway (the server went away) still leaves a usable recording of
    // everything captured until then, so that is kept.
    const std::int64_t sampleCount = recording->writer->samplesWritten();
    recording->writer->finish();
    recording->writer.reset();

    std::error_code error;
    if (!std::filesystem::exists(recording->path, error)) {
        throw AudioRecorderError::fileNotFound();
    }
    lastRecordingSampleCount_ = sampleCount;
    return recording->path;
}

}  // namespace kelvo

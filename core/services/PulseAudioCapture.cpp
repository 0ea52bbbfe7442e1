#include "core/services/PulseAudioCapture.h"

#include <pulse/error.h>
#include <pulse/simple.h>

namespace kelvo {
namespace {

// Short fragments keep stopping responsive: the capture thread notices a stop request between
// reads, so a stop waits for at most one fragment.
constexpr std::uint32_t fragmentFrames = AudioSampleSource::sampleRateHz / 50;  // 20 ms

}  // namespace

PulseAudioCapture::PulseAudioCapture(const std::string& applicationName) {
    // We ask the server for 16 kHz mono s16 and let it resample, rather than capturing the
    // source's native format and resampling here: PulseAudio's resamplers (speex by default,
    // soxr when configured; PipeWire's own) filter before decimating, the recording is
    // AAC-compressed at 16 kHz anyway, and the capture thread then does no signal processing.
    // (The live dictation path resamples itself with libsoxr because it also needs exact chunk
    // timing; this one does not.)
    const pa_sample_spec spec{PA_SAMPLE_S16NE, AudioSampleSource::sampleRateHz, 1};
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<std::uint32_t>(-1);
    attributes.tlength = static_cast<std::uint32_t>(-1);
    attributes.prebuf = static_cast<std::uint32_t>(-1);
    attributes.minreq = static_cast<std::uint32_t>(-1);
    attributes.fragsize = fragmentFrames * static_cast<std::uint32_t>(sizeof(std::int16_t));
    int error = 0;
    stream_ = pa_simple_new(nullptr, applicationName.c_str(), PA_STREAM_RECORD, nullptr,
                            "Voice memo", &spec, nullptr, &attributes, &error);
    if (stream_ == nullptr) {
        throw Error(pa_strerror(error));
    }
}

PulseAudioCapture::~PulseAudioCapture() {
    pa_simple_free(stream_);
}

std::size_t PulseAudioCapture::read(std::span<std::int16_t> samples) {
    int error = 0;
    if (pa_simple_read(stream_, samples.data(), samples.size_bytes(), &error) < 0) {
        throw Error(pa_strerror(error));
    }
    return samples.size();
}

}  // namespace kelvo

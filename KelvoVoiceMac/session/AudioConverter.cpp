#include "KelvoVoiceMac/session/AudioConverter.h"

#include <algorithm>
#include <cmath>

namespace kelvo::app {
namespace {

using platform::AudioInput;

constexpr double outputRateHz = AudioBuffer::sampleRateHz;
// Room beyond the nominal size for the blocks the resampler releases at once; the loop below
// grows the buffer if a block is larger still.
constexpr std::size_t releaseMarginFrames = 1024;

std::int16_t toInt16(float sample) {
    // Same scaling and clipping as soxr's float-to-int16 path, so 16 kHz inputs sound alike.
    const long scaled = std::lrint(static_cast<double>(sample) * 32768.0);
    return static_cast<std::int16_t>(std::clamp<long>(scaled, -32768, 32767));
}

bool sameFormat(const AudioInput::Format& a, const AudioInput::Format& b) {
    return a.sampleRateHz == b.sampleRateHz && a.channelCount == b.channelCount &&
           a.sampleFormat == b.sampleFormat;
}

}  // namespace

std::unique_ptr<AudioConverter> AudioConverter::make(const AudioInput::Format& format) {
    if (!(format.sampleRateHz > 0) || format.channelCount == 0) {
        return nullptr;
    }
    soxr_t resampler = nullptr;
    if (format.sampleRateHz != outputRateHz) {
        soxr_error_t error = nullptr;
        soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_INT16_I);
        io.flags |= SOXR_NO_DITHER;
        const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
        // One thread: the conversion runs on the capture thread and must not fan out.
        const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
        resampler =
            soxr_create(format.sampleRateHz, outputRateHz, 1, &error, &io, &quality, &runtime);
        if (resampler == nullptr || error != nullptr) {
            soxr_delete(resampler);
            return nullptr;
        }
    }
    return std::unique_ptr<AudioConverter>(new AudioConverter(format, resampler));
}

AudioConverter::AudioConverter(const AudioInput::Format& format, soxr_t resampler)
    : format_(format), resampler_(resampler) {}

AudioConverter::~AudioConverter() {
    soxr_delete(resampler_);
}

std::uint32_t AudioConverter::nominalOutputFrames(double inputRateHz, std::uint32_t frameCount) {
    if (!(inputRateHz > 0)) {
        return 0;
    }
    const double ratio = outputRateHz / inputRateHz;
    return static_cast<std::uint32_t>(ratio * static_cast<double>(frameCount));
}

bool AudioConverter::downmix(const AudioInput::Frames& frames) {
    const std::size_t channels = format_.channelCount;
    const std::size_t sampleCount = static_cast<std::size_t>(frames.frameCount) * channels;
    mono_.resize(frames.frameCount);
    if (format_.sampleFormat == AudioInput::SampleFormat::float32) {
        if (frames.float32Samples.size() < sampleCount) {
            return false;
        }
        const float* in = frames.float32Samples.data();
        const float gain = 1.0f / static_cast<float>(channels);
        for (std::size_t i = 0; i < frames.frameCount; ++i) {
            float sum = 0;
            for (std::size_t c = 0; c < channels; ++c) {
                sum += in[i * channels + c];
            }
            mono_[i] = sum * gain;
        }
    } else {
        if (frames.int16Samples.size() < sampleCount) {
            return false;
        }
        const std::int16_t* in = frames.int16Samples.data();
        const float gain = 1.0f / (32768.0f * static_cast<float>(channels));
        for (std::size_t i = 0; i < frames.frameCount; ++i) {
            std::int32_t sum = 0;
            for (std::size_t c = 0; c < channels; ++c) {
                sum += in[i * channels + c];
            }
            mono_[i] = static_cast<float>(sum) * gain;
        }
    }
    return true;
}

std::optional<AudioBuffer> AudioConverter::convert(const AudioInput::Frames& frames) {
    if (flushed_ || !sameFormat(frames.format, format_)) {
        return std::nullopt;
    }
    const std::uint32_t nominalFrames =
        nominalOutputFrames(format_.sampleRateHz, frames.frameCount);
    if (nominalFrames == 0 || !downmix(frames)) {
        return std::nullopt;
    }

    AudioBuffer buffer;
    if (resampler_ == nullptr) {
        buffer.samples.resize(mono_.size());
        std::transform(mono_.begin(), mono_.end(), buffer.samples.begin(), toInt16);
        return buffer;
    }

    buffer.samples.resize(nominalFrames + releaseMarginFrames);
    std::size_t produced = 0;
    const float* input = mono_.data();
    std::size_t inputLeft = mono_.size();
    for (;;) {
        std::size_t consumed = 0;
        std::size_t written = 0;
        const std::size_t room = buffer.samples.size() - produced;
        if (soxr_process(resampler_, input, inputLeft, &consumed, buffer.samples.data() + produced,
                         room, &written) != nullptr) {
            return std::nullopt;
        }
        input += consumed;
        inputLeft -= consumed;
        produced += written;
        if (written == room) {
            buffer.samples.resize(buffer.samples.size() + releaseMarginFrames);
        } else if (inputLeft == 0 || (consumed == 0 && written == 0)) {
            break;
        }
    }
    buffer.samples.resize(produced);
    if (produced == 0) {
        return std::nullopt;
    }
    return buffer;
}

std::optional<AudioBuffer> AudioConverter::flush() {
    if (flushed_) {
        return std::nullopt;
    }
    flushed_ = true;
    if (resampler_ == nullptr) {
        return std::nullopt;
    }
    AudioBuffer buffer;
    std::size_t produced = 0;
    for (;;) {
        buffer.samples.resize(produced + releaseMarginFrames);
        std::size_t written = 0;
        // A null input tells soxr the stream has ended, so it releases its filter tail.
        if (soxr_process(resampler_, nullptr, 0, nullptr, buffer.samples.data() + produced,
                         releaseMarginFrames, &written) != nullptr) {
            break;
        }
        produced += written;
        if (written == 0) {
            break;
        }
    }
    buffer.samples.resize(produced);
    if (produced == 0) {
        return std::nullopt;
    }
    return buffer;
}

}  // namespace kelvo::app

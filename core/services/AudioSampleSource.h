#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kelvo {

/// Where the audio file recorder gets its sound: a blocking stream of 16 kHz mono signed 16-bit
/// samples. The production source is the default PulseAudio input; tests substitute scripted
/// ones. A source is created on the caller's thread and then read by exactly one thread at a time
/// (the recorder's capture thread); it is destroyed after its reader has finished.
class AudioSampleSource {
  public:
    static constexpr int sampleRateHz = 16000;

    virtual ~AudioSampleSource() = default;

    /// Blocks until `samples` is full and returns its size, or returns fewer (0 included) when the
    /// source has ended and will deliver nothing more. Throws a kelvo::Error-derived error when
    /// the source fails; it delivers nothing after that.
    virtual std::size_t read(std::span<std::int16_t> samples) = 0;
};

}  // namespace kelvo

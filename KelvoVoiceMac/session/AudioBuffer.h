#pragma once

// AudioBuffer is one converted microphone buffer on the audio stream from AudioCaptureService to
// SpeechService: 16 kHz, one channel, 16-bit signed integer samples. A plain value that moves
// between threads by value.

#include <cstdint>
#include <vector>

namespace kelvo::app {

struct AudioBuffer {
    static constexpr double sampleRateHz = 16000.0;

    std::vector<std::int16_t> samples;

    std::size_t frameCount() const noexcept { return samples.size(); }
};

}  // namespace kelvo::app

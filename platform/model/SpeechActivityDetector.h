#pragma once

// SpeechActivityDetector tells speech from pauses by the energy of 30 ms frames of 16 kHz mono
// audio, against a noise floor that follows the room: a frame is speech when it is at least
// 12 dB above the floor and louder than -45 dBFS. The progressive transcriber uses it to close a
// segment at a pause, to skip decoding silence, and to judge whether anybody spoke at all when
// the model produces text. A plain value owned by one transcriber; not thread-safe.

#include <cstddef>
#include <span>
#include <vector>

namespace kelvo::platform {

class SpeechActivityDetector {
  public:
    static constexpr std::size_t kFrameSamples = 480;  // 30 ms at 16 kHz

    // Classifies every complete frame in `samples` (carrying an incomplete tail to the next
    // call) and returns one flag per classified frame.
    std::vector<bool> classify(std::span<const float> samples);

    double noiseFloorDecibels() const { return noiseFloorDecibels_; }

  private:
    std::vector<float> pending_;
    double noiseFloorDecibels_ = -60.0;
};

}  // namespace kelvo::platform

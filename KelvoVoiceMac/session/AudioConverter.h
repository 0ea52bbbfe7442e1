#pragma once

// AudioConverter turns the microphone's native reads (any rate, any channel count, interleaved
// float or int16) into 16 kHz mono int16 AudioBuffers for the recognisers: channels are averaged,
// then libsoxr resamples in streaming mode at high quality (never Quick, which does not filter
// aliases) and writes int16 without dither, so the output is deterministic. A 16 kHz input skips
// the resampler and keeps its frame count exactly.
//
// Per read, the nominal output size is ratio x frames, truncated (1365 frames for a 4096-frame read
// at 48 kHz). A read whose nominal size is 0 is dropped unconverted. Otherwise the read goes
// through the resampler, which keeps back a filter tail and releases its output in its own blocks:
// per read the output varies around the nominal size (979 or 1468 frames for 4096-frame reads at 48
// kHz) and a read that releases nothing yields no buffer. Nothing is lost or duplicated: over a
// capture the output is ratio x input frames (+-1) once flush() has drained the tail at the end.
//
// One instance per capture. convert() runs on the capture thread, flush() once after the input
// has stopped delivering; never both at once. Not copyable.

#include <soxr.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "KelvoVoiceMac/session/AudioBuffer.h"
#include "platform/AudioInput.h"

namespace kelvo::app {

class AudioConverter {
  public:
    // nullptr when no conversion from format exists (no rate, no channels, resampler refused).
    static std::unique_ptr<AudioConverter> make(const platform::AudioInput::Format& format);

    ~AudioConverter();
    AudioConverter(const AudioConverter&) = delete;
    AudioConverter& operator=(const AudioConverter&) = delete;

    // ratio x frameCount at 16 kHz, truncated.
    static std::uint32_t nominalOutputFrames(double inputRateHz, std::uint32_t frameCount);

    // The converted read, or std::nullopt when it is dropped or releases nothing yet.
    std::optional<AudioBuffer> convert(const platform::AudioInput::Frames& frames);

    // The resampler's held-back tail, or std::nullopt when there is none. Further conversions are
    // not possible afterwards.
    std::optional<AudioBuffer> flush();

  private:
    AudioConverter(const platform::AudioInput::Format& format, soxr_t resampler);

    bool downmix(const platform::AudioInput::Frames& frames);

    platform::AudioInput::Format format_;
    soxr_t resampler_;  // null when the input is already at 16 kHz
    bool flushed_ = false;
    std::vector<float> mono_;
};

}  // namespace kelvo::app

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "core/services/AudioSampleSource.h"
#include "core/support/Error.h"

struct pa_simple;

namespace kelvo {

/// A record stream on the default PulseAudio source (through libpulse-simple), delivering 16 kHz
/// mono signed 16-bit samples. The server converts from the source's own format. Connects in the
/// constructor on the caller's thread; afterwards one thread at a time may read. read() blocks for
/// at most about one fragment (20 ms of audio) while the source is running. Works against
/// PipeWire's PulseAudio server as well.
class PulseAudioCapture : public AudioSampleSource {
  public:
    /// A PulseAudio failure; `what()` is PulseAudio's own description (e.g. "Connection refused").
    class Error : public kelvo::Error {
      public:
        using kelvo::Error::Error;
    };

    /// Connects to the server named by the usual PulseAudio configuration ($PULSE_SERVER,
    /// client.conf, the user's runtime socket) and opens the record stream. Throws Error.
    explicit PulseAudioCapture(const std::string& applicationName);
    ~PulseAudioCapture() override;

    PulseAudioCapture(const PulseAudioCapture&) = delete;
    PulseAudioCapture& operator=(const PulseAudioCapture&) = delete;

    /// Always fills `samples` completely; a lost connection throws Error.
    std::size_t read(std::span<std::int16_t> samples) override;

  private:
    pa_simple* stream_ = nullptr;
};

}  // namespace kelvo

#pragma once

// AudioInput is the seam to the default microphone (PulseAudioInput on Linux, the audio engine's
// input node on macOS). One capture at a time: open() the default device in its native format,
// start() delivery, close(). Reads of about framesPerRead frames arrive as interleaved float or
// int16 frames on the input's own capture thread, through the handler given to start(); the
// handler must only convert and hand the data on (it must not block). After close() returns the
// handler is never called again, and the input may be opened again. authorization() and
// requestAuthorization() stand for the microphone privacy permission: on Linux a refused server
// connection or an access-denied source reads as denied. The owner calls open/start/close from one
// thread (the main thread); the object must outlive the captures made with it.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace kelvo::platform {

class AudioInput {
  public:
    enum class Authorization { authorized, notDetermined, denied };

    enum class SampleFormat { float32, int16 };

    struct Format {
        double sampleRateHz = 0;
        std::uint32_t channelCount = 0;
        SampleFormat sampleFormat = SampleFormat::float32;
    };

    // One read: frameCount frames of format.channelCount interleaved samples each, in exactly
    // one of the two spans (the one that matches format.sampleFormat). Valid during the call only.
    struct Frames {
        Format format;
        std::uint32_t frameCount = 0;
        std::span<const float> float32Samples;
        std::span<const std::int16_t> int16Samples;
    };

    using FramesHandler = std::function<void(const Frames&)>;

    virtual ~AudioInput() = default;

    virtual Authorization authorization() = 0;

    // Asks the user or the system for access; completion(granted) may run on any thread.
    virtual void requestAuthorization(std::function<void(bool granted)> completion) = 0;

    // Opens the default input device and reports its native format; std::nullopt when there is no
    // input device. A format with a zero rate or no channels means the device could not tell.
    virtual std::optional<Format> open() = 0;

    // Starts delivering reads to handler on the capture thread. Throws AudioInputError when the
    // device cannot start; the input is then still open and close() must follow.
    virtual void start(std::uint32_t framesPerRead, FramesHandler handler) = 0;

    // Stops delivery and releases the device; harmless when nothing is open.
    virtual void close() = 0;
};

}  // namespace kelvo::platform

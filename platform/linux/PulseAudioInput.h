#pragma once

// PulseAudioInput is the Linux AudioInput: one PulseAudio source (the server's default source, or
// the one named at construction, the `kvmac_microphoneSource` preference) captured in its native
// sample rate and channel count, so that the only resampling is our own (libsoxr, in the capture
// service's converter). open() asks the server, through the introspection API, which source is
// meant and what its sample spec is; start() opens a record stream (libpulse-simple) with that
// spec and reads framesPerRead frames at a time on a capture thread of its own, calling the
// handler there. Sources in a 16-bit integer format are read as int16, every other format as
// float32 (the server converts the sample format only, never the rate or channel layout).
//
// Permission: Linux has no microphone prompt; a server that refuses the connection (access denied,
// connection refused) reads as denied and never as "not determined". Works against PipeWire's
// PulseAudio server too.
//
// Threads: open/start/close and authorization() are called from one thread (the main thread) and
// block briefly on the server. close() waits for a handler call in progress but not for the read in
// progress, whose audio is dropped; the capture thread ends with that read, and the next start()
// (or the destructor) waits for it. The handler must not call back into this object.

#include <memory>
#include <string>
#include <thread>

#include "platform/AudioInput.h"

struct pa_simple;

namespace kelvo::platform {

class PulseAudioInput final : public AudioInput {
  public:
    // sourceName empty: the server's default source.
    explicit PulseAudioInput(std::string sourceName = {},
                             std::string applicationName = "KelvoVoice");
    ~PulseAudioInput() override;

    PulseAudioInput(const PulseAudioInput&) = delete;
    PulseAudioInput& operator=(const PulseAudioInput&) = delete;

    Authorization authorization() override;
    void requestAuthorization(std::function<void(bool granted)> completion) override;

    // std::nullopt when the server has no such source (or no default source).
    std::optional<Format> open() override;

    // Throws AudioInputError with pa_strerror's text when the record stream cannot be made.
    void start(std::uint32_t framesPerRead, FramesHandler handler) override;

    void close() override;

    // The source that open() resolved ("vmic"); empty before.
    const std::string& openedSourceName() const noexcept { return openedSource_; }

  private:
    struct Capture;
    static void captureLoop(Capture& capture, pa_simple* stream, const Format& format,
                            std::uint32_t framesPerRead, const FramesHandler& handler);

    std::string sourceName_;
    std::string applicationName_;
    std::string openedSource_;
    std::optional<Format> format_;
    std::shared_ptr<Capture> capture_;  // of the running capture
    std::thread captureThread_;
};

}  // namespace kelvo::platform

#pragma once

// PulseAudioSourceList asks the PulseAudio server (or PipeWire's pulse server) which capture
// sources it has, for the settings window's microphone choice. Monitors of output sinks are left
// out: they record what the machine plays, not a microphone. Each call opens its own short
// connection with its own main loop, blocks until the answer or the timeout, and never starts a
// server; call it off the GUI thread. Qt-free; any thread.

#include <chrono>
#include <vector>

#include "platform/AudioSourceInfo.h"

namespace kelvo::platform {

class PulseAudioSourceList {
  public:
    PulseAudioSourceList() = delete;

    // The sources in the server's order. Throws kelvo::Error naming the cause when the server
    // cannot be reached or does not answer within `timeout`.
    static std::vector<AudioSourceInfo> list(
        std::chrono::milliseconds timeout = std::chrono::seconds(5));
};

}  // namespace kelvo::platform

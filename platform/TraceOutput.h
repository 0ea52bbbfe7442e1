#pragma once

// TraceOutput is the seam for the transcript and service traces ("[Partial] ", "[Final] ",
// "[SpeechService] ...", "[TextInsertion] ..."), kept apart from the system log on purpose: they
// are meant for a developer watching standard output. One finished line per call, without a
// trailing newline. Production writes unbuffered to stdout (StdoutTraceOutput); tests record them.
// May be called from any thread; implementations serialise whole lines.

#include <string_view>

namespace kelvo::platform {

class TraceOutput {
  public:
    virtual ~TraceOutput() = default;

    virtual void write(std::string_view line) = 0;
};

}  // namespace kelvo::platform

#pragma once

// StdoutTraceOutput is the production TraceOutput: each line is written to standard output with a
// newline in one fwrite and flushed at once, so traces appear immediately even when stdout is a
// pipe (the app also switches stdout to unbuffered mode at start-up). Safe from any thread.

#include <string_view>

#include "platform/TraceOutput.h"

namespace kelvo::platform {

class StdoutTraceOutput final : public TraceOutput {
  public:
    void write(std::string_view line) override;
};

}  // namespace kelvo::platform

#pragma once

// SystemLog is the seam for the application's state lines ("[KelvoVoice] ..."): the session,
// gesture and status-item code write one finished line per call, already formatted, without a
// trailing newline. Production sends them to the system log (SyslogSystemLog); tests record them.
// Callers use it on the main thread; implementations must still tolerate calls from any thread.

#include <string_view>

namespace kelvo::platform {

class SystemLog {
  public:
    virtual ~SystemLog() = default;

    virtual void write(std::string_view line) = 0;
};

}  // namespace kelvo::platform

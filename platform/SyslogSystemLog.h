#pragma once

// SyslogSystemLog is the production SystemLog: every line goes to syslog (journald picks it up)
// under the identity given at construction, and is mirrored to standard error when standard error
// is a terminal (or always, when asked to), so a developer running the app from a shell sees the
// state lines too. Safe to call from any thread (syslog and a single fwrite per line are both
// atomic enough for whole lines). One instance per process: it owns the openlog()/closelog() pair.

#include <string>
#include <string_view>

#include "platform/SystemLog.h"

namespace kelvo::platform {

class SyslogSystemLog final : public SystemLog {
  public:
    explicit SyslogSystemLog(std::string identity, bool alwaysMirrorToStderr = false);
    ~SyslogSystemLog() override;

    SyslogSystemLog(const SyslogSystemLog&) = delete;
    SyslogSystemLog& operator=(const SyslogSystemLog&) = delete;

    void write(std::string_view line) override;

  private:
    // openlog() keeps the pointer, so the identity must outlive the connection.
    std::string identity_;
    bool mirrorToStderr_;
};

}  // namespace kelvo::platform

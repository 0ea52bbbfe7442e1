#include "platform/SyslogSystemLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdio>

namespace kelvo::platform {

SyslogSystemLog::SyslogSystemLog(std::string identity, bool alwaysMirrorToStderr)
    : identity_(std::move(identity)),
      mirrorToStderr_(alwaysMirrorToStderr || isatty(STDERR_FILENO) == 1) {
    openlog(identity_.c_str(), LOG_PID, LOG_USER);
}

SyslogSystemLog::~SyslogSystemLog() {
    closelog();
}

void SyslogSystemLog::write(std::string_view line) {
    syslog(LOG_NOTICE, "%.*s", static_cast<int>(line.size()), line.data());
    if (mirrorToStderr_) {
        std::string withNewline(line);
        withNewline.push_back('\n');
        std::fwrite(withNewline.data(), 1, withNewline.size(), stderr);
    }
}

}  // namespace kelvo::platform

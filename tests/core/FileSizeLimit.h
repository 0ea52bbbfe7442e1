#pragma once

#include <signal.h>
#include <sys/resource.h>

namespace kelvo::testing {

/// Makes every write that would grow a file past `maxBytes` fail with EFBIG for the life of the
/// object. Unlike a read-only folder this also fails for root, so a test can make an atomic save
/// fail half-way on any machine.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t maxBytes) {
        ::getrlimit(RLIMIT_FSIZE, &old_);
        oldHandler_ = ::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = old_;
        limit.rlim_cur = maxBytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &old_);
        ::signal(SIGXFSZ, oldHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit old_{};
    sighandler_t oldHandler_;
};

}  // namespace kelvo::testing

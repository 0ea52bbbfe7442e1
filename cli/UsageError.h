#pragma once

#include "core/support/Error.h"

namespace kelvo::cli {

/// A command line that does not fit the command: an unknown command, option or enumeration value,
/// a missing or repeated option, a malformed number. The command dispatcher answers it with exit
/// status 2 and the command's usage line, before anything has been read or written.
class UsageError : public Error {
  public:
    using Error::Error;
};

}  // namespace kelvo::cli

#pragma once

#include "core/support/Error.h"

namespace kelvo::cli {

/// A failure whose result is itself the report: the command has already written its output (for
/// example a SaveResult with `success` false) and that output is kept. The dispatcher writes it,
/// then the usual "kelvo: " line, and exits with status 1.
class ReportedFailure : public Error {
  public:
    using Error::Error;
};

}  // namespace kelvo::cli

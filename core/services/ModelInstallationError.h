#pragma once

#include <string>

#include "core/support/Error.h"

namespace kelvo {

/// Why a model installation did not put a verified model in place. `what()` is the message for
/// the user; `kind()` tells callers what to offer next: `interrupted`, `noSpace` and `cancelled`
/// leave the partial download for a resume, `corrupt` (size or checksum wrong) deletes it.
class ModelInstallationError : public Error {
  public:
    enum class Kind {
        /// Another installation of the same model is running.
        alreadyRunning,
        /// The server answered with an error status.
        server,
        /// The connection failed or broke off.
        interrupted,
        /// The downloaded file is not the published one (size or checksum).
        corrupt,
        /// The disk is full or a write failed.
        noSpace,
        cancelled,
    };

    ModelInstallationError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}

    Kind kind() const noexcept { return kind_; }

  private:
    Kind kind_;
};

}  // namespace kelvo

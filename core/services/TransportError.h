#pragma once

#include <string>

#include "core/support/Error.h"

namespace kelvo {

/// The HTTP exchange itself failed: no answer could be had from the worker. `what()` is the
/// transfer library's own message (for example "Operation timed out after 200 milliseconds with
/// 0 bytes received"), passed on unchanged; `kind()` lets callers tell a time-out from a refused
/// or dropped connection without parsing that text. Immutable; safe to copy and read anywhere.
class TransportError : public Error {
  public:
    enum class Kind {
        /// The call's time limit ran out.
        timedOut,
        /// The host could not be resolved or refused the connection.
        cannotConnect,
        /// The connection broke before a complete answer arrived.
        connectionLost,
        other,
    };

    TransportError(Kind kind, int curlCode, const std::string& message)
        : Error(message), kind_(kind), curlCode_(curlCode) {}

    Kind kind() const noexcept { return kind_; }
    bool timedOut() const noexcept { return kind_ == Kind::timedOut; }
    /// libcurl's CURLcode, for diagnostics.
    int curlCode() const noexcept { return curlCode_; }

  private:
    Kind kind_;
    int curlCode_;
};

}  // namespace kelvo

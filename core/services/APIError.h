#pragma once

#include <string>

#include "core/support/Error.h"

namespace kelvo {

/// The worker answered, but not with success. `what()` is the text shown to the user, e.g.
/// "API error (401): unauthorized"; `statusCode()` and `body()` keep the parts for callers that
/// react to the status. Immutable; safe to copy and read from any thread.
class APIError : public Error {
  public:
    enum class Case { httpError };

    /// A status code outside 200...299 with the response body read as text.
    static APIError httpError(int statusCode, std::string body) {
        return APIError(statusCode, std::move(body));
    }

    Case errorCase() const noexcept { return Case::httpError; }
    int statusCode() const noexcept { return statusCode_; }
    const std::string& body() const noexcept { return body_; }

  private:
    APIError(int statusCode, std::string body)
        : Error("API error (" + std::to_string(statusCode) + "): " + body),
          statusCode_(statusCode),
          body_(std::move(body)) {}

    int statusCode_;
    std::string body_;
};

}  // namespace kelvo

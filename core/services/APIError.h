#pragma once

#include <string>

#include "core/support/Error.h"
#include "core/support/Utf8.h"

namespace kelvo {

/// The worker answered, but not with success. `what()` is the text shown to the user, e.g.
/// "API error (401): unauthorized", with the body shortened to `shownBodyBytes` and its control
/// characters escaped (a server chooses those bytes, a terminal would obey them); `statusCode()`
/// and `body()` keep the parts, the body whole, for callers that react to them. Immutable; safe to
/// copy and read from any thread.
class APIError : public Error {
  public:
    enum class Case { httpError };

    static constexpr std::size_t shownBodyBytes = 300;

    /// A status code outside 200...299 with the response body read as text.
    static APIError httpError(int statusCode, std::string body) {
        return APIError(statusCode, std::move(body));
    }

    Case errorCase() const noexcept { return Case::httpError; }
    int statusCode() const noexcept { return statusCode_; }
    const std::string& body() const noexcept { return body_; }

  private:
    APIError(int statusCode, std::string body)
        : Error("API error (" + std::to_string(statusCode) +
                "): " + visibleText(body, shownBodyBytes)),
          statusCode_(statusCode),
          body_(std::move(body)) {}

    int statusCode_;
    std::string body_;
};

}  // namespace kelvo

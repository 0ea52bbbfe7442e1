#include "core/services/WorkerAnswer.h"

#include <string_view>

#include "core/services/APIError.h"
#include "core/support/Utf8.h"

namespace kelvo {

namespace {

constexpr std::string_view kUnknownErrorBody = "Unknown error";

// Every occurrence of `secret` in `text` replaced, so that a server echoing the token back does
// not get it printed or logged. A "token" of a few letters is no secret worth mangling every
// word that contains it for.
void redact(std::string& text, const std::string& secret) {
    if (secret.size() < 4) {
        return;
    }
    static constexpr std::string_view kHidden = "[token hidden]";
    for (std::size_t at = text.find(secret); at != std::string::npos;
         at = text.find(secret, at + kHidden.size())) {
        text.replace(at, secret.size(), kHidden);
    }
}

}  // namespace

void WorkerAnswer::checkStatus(const std::string& authToken,
                               const std::optional<std::string>& deviceToken) const {
    if (statusCode == 0 || (statusCode >= 200 && statusCode <= 299)) {
        return;
    }
    std::string shown = isValidUtf8(body) ? body : std::string(kUnknownErrorBody);
    if (statusCode >= 300 && statusCode <= 399) {
        shown = "redirect to " + (redirectTarget.empty() ? "an unnamed target" : redirectTarget) +
                " not followed";
    }
    redact(shown, authToken);
    if (deviceToken) {
        redact(shown, *deviceToken);
    }
    throw APIError::httpError(static_cast<int>(statusCode), std::move(shown));
}

}  // namespace kelvo

#pragma once

#include <optional>
#include <string>

#include "core/models/Json.h"
#include "core/services/JsonFile.h"
#include "core/support/Error.h"

namespace kelvo {

/// An answer of the worker as WorkerAPIClient received it, and how the client reads one: the
/// status decides between success and an APIError, and the body of a success decodes into the
/// record the call expects. Everything in it came from a server, so reading it must fail only
/// with the project's errors whatever the bytes. A plain value; any thread may read its own.
struct WorkerAnswer {
    /// 0 when the answer was not an HTTP response.
    long statusCode = 0;
    std::string body;
    /// Where a 3xx answer pointed; never followed.
    std::string redirectTarget;

    /// Returns for 0 and 2xx. Otherwise throws APIError with the status and the body as text
    /// ("Unknown error" when it is not UTF-8; for a redirect, where it pointed), `authToken` and
    /// `deviceToken` hidden wherever the server echoed them.
    void checkStatus(const std::string& authToken,
                     const std::optional<std::string>& deviceToken) const;

    /// The body of a successful answer as `Record`. Throws DecodingError when it is not JSON or
    /// does not fit the record.
    template <typename Record>
    Record decodedBody() const {
        // The files' parser: a message in words, without the JSON library's codes.
        return jsonfile::parse("the worker's answer", body).get<Record>();
    }
};

}  // namespace kelvo

#pragma once

#include <string>

#include "core/models/Json.h"

namespace kelvo {

/// The body of a successful "process" answer. Only `text` is read; the worker may add other
/// keys, which are ignored.
struct ProcessResponse {
    std::string text;

    friend bool operator==(const ProcessResponse&, const ProcessResponse&) = default;
};

inline void to_json(Json& out, const ProcessResponse& response) {
    out = Json::object();
    out["text"] = response.text;
}

inline void from_json(const Json& in, ProcessResponse& response) {
    response.text = json::required<std::string>(in, "text");
}

}  // namespace kelvo

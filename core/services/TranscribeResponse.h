#pragma once

#include <optional>
#include <string>

#include "core/models/Json.h"

namespace kelvo {

/// The body of a successful "transcribe" answer. Keys equal the field names; only `text` is
/// required.
struct TranscribeResponse {
    std::string text;
    std::optional<std::string> language;
    /// Seconds of audio, as the worker measured them.
    std::optional<double> duration;

    friend bool operator==(const TranscribeResponse&, const TranscribeResponse&) = default;
};

inline void to_json(Json& out, const TranscribeResponse& response) {
    out = Json::object();
    out["text"] = response.text;
    json::putOptional(out, "language", response.language);
    json::putOptional(out, "duration", response.duration);
}

inline void from_json(const Json& in, TranscribeResponse& response) {
    response.text = json::required<std::string>(in, "text");
    response.language = json::optional<std::string>(in, "language");
    response.duration = json::optional<double>(in, "duration");
}

}  // namespace kelvo

#pragma once

#include <optional>
#include <string>

#include "core/models/Json.h"

namespace kelvo {

struct TranscriptionResult {
    std::string text;
    std::optional<std::string> language;
    /// Seconds of audio.
    std::optional<double> duration;

    friend bool operator==(const TranscriptionResult&, const TranscriptionResult&) = default;
};

inline void to_json(Json& out, const TranscriptionResult& result) {
    out = Json::object();
    out["text"] = result.text;
    json::putOptional(out, "language", result.language);
    json::putOptional(out, "duration", result.duration);
}

inline void from_json(const Json& in, TranscriptionResult& result) {
    result.text = json::required<std::string>(in, "text");
    result.language = json::optional<std::string>(in, "language");
    result.duration = json::optional<double>(in, "duration");
}

}  // namespace kelvo

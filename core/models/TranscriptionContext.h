#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/models/Json.h"

namespace kelvo {

/// Hints handed to a transcription service.
struct TranscriptionContext {
    /// Language code such as "ja"; empty lets the service detect the language.
    std::string language;
    std::optional<std::string> prompt;
    std::vector<std::string> dictionaryHints;

    friend bool operator==(const TranscriptionContext&, const TranscriptionContext&) = default;
};

inline void to_json(Json& out, const TranscriptionContext& context) {
    out = Json::object();
    out["language"] = context.language;
    json::putOptional(out, "prompt", context.prompt);
    out["dictionaryHints"] = context.dictionaryHints;
}

inline void from_json(const Json& in, TranscriptionContext& context) {
    context.language = json::required<std::string>(in, "language");
    context.prompt = json::optional<std::string>(in, "prompt");
    context.dictionaryHints = json::required<std::vector<std::string>>(in, "dictionaryHints");
}

}  // namespace kelvo

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/models/Json.h"
#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"

namespace kelvo {

/// Input of a text processing service.
struct TextProcessingRequest {
    std::string text;
    SummaryLevel summaryLevel = SummaryLevel::verbatim;
    ProcessingMode processingMode = ProcessingMode::voiceInput;
    std::vector<std::string> dictionaryHints;
    std::optional<std::string> targetLanguage;

    friend bool operator==(const TextProcessingRequest&, const TextProcessingRequest&) = default;
};

inline void to_json(Json& out, const TextProcessingRequest& request) {
    out = Json::object();
    out["text"] = request.text;
    out["summaryLevel"] = request.summaryLevel;
    out["processingMode"] = request.processingMode;
    out["dictionaryHints"] = request.dictionaryHints;
    json::putOptional(out, "targetLanguage", request.targetLanguage);
}

inline void from_json(const Json& in, TextProcessingRequest& request) {
    request.text = json::required<std::string>(in, "text");
    request.summaryLevel = json::required<SummaryLevel>(in, "summaryLevel");
    request.processingMode = json::required<ProcessingMode>(in, "processingMode");
    request.dictionaryHints = json::required<std::vector<std::string>>(in, "dictionaryHints");
    request.targetLanguage = json::optional<std::string>(in, "targetLanguage");
}

}  // namespace kelvo

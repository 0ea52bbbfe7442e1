#pragma once

#include <string>
#include <vector>

#include "core/models/Json.h"
#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"

namespace kelvo {

/// Output of the voice input pipeline, one text per stage.
struct VoiceInputResult {
    /// As transcribed.
    std::string rawTranscript;
    /// After dictionary correction.
    std::string correctedText;
    /// After text processing.
    std::string processedText;
    /// After the second correction; what the user receives.
    std::string finalText;
    SummaryLevel summaryLevel = SummaryLevel::verbatim;
    ProcessingMode processingMode = ProcessingMode::voiceInput;
    /// Entries that matched, in application order (both passes, duplicates kept).
    std::vector<std::string> usedDictionaryEntryIDs;

    friend bool operator==(const VoiceInputResult&, const VoiceInputResult&) = default;
};

inline void to_json(Json& out, const VoiceInputResult& result) {
    out = Json::object();
    out["rawTranscript"] = result.rawTranscript;
    out["correctedText"] = result.correctedText;
    out["processedText"] = result.processedText;
    out["finalText"] = result.finalText;
    out["summaryLevel"] = result.summaryLevel;
    out["processingMode"] = result.processingMode;
    out["usedDictionaryEntryIDs"] = result.usedDictionaryEntryIDs;
}

inline void from_json(const Json& in, VoiceInputResult& result) {
    result.rawTranscript = json::required<std::string>(in, "rawTranscript");
    result.correctedText = json::required<std::string>(in, "correctedText");
    result.processedText = json::required<std::string>(in, "processedText");
    result.finalText = json::required<std::string>(in, "finalText");
    result.summaryLevel = json::required<SummaryLevel>(in, "summaryLevel");
    result.processingMode = json::required<ProcessingMode>(in, "processingMode");
    const auto ids = json::required<std::vector<std::string>>(in, "usedDictionaryEntryIDs");
    result.usedDictionaryEntryIDs.clear();
    for (const auto& id : ids) {
        try {
            result.usedDictionaryEntryIDs.push_back(canonicalUuid(id));
        } catch (const DecodingError& error) {
            throw DecodingError(std::string("member \"usedDictionaryEntryIDs\": ") + error.what());
        }
    }
}

}  // namespace kelvo

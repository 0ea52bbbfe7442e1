#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/models/DictionaryScope.h"
#include "core/models/Json.h"
#include "core/models/OutputFormat.h"
#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"

namespace kelvo {

/// Input of the voice input pipeline: recorded audio, or text that is already recognised.
struct VoiceInputRequest {
    /// Local audio file; stored in JSON as its "file://" URL text.
    std::optional<std::filesystem::path> audioFileURL;
    /// Used instead of audio when there is no audio file.
    std::optional<std::string> rawText;
    SummaryLevel summaryLevel = SummaryLevel::verbatim;
    ProcessingMode processingMode = ProcessingMode::voiceInput;
    OutputFormat outputFormat = OutputFormat::plainText;
    DictionaryScope dictionaryScope = DictionaryScope::all;
    std::optional<std::string> targetLanguage;

    friend bool operator==(const VoiceInputRequest&, const VoiceInputRequest&) = default;
};

inline void to_json(Json& out, const VoiceInputRequest& request) {
    out = Json::object();
    if (request.audioFileURL) {
        out["audioFileURL"] = fileUrlString(*request.audioFileURL);
    }
    json::putOptional(out, "rawText", request.rawText);
    out["summaryLevel"] = request.summaryLevel;
    out["processingMode"] = request.processingMode;
    out["outputFormat"] = request.outputFormat;
    out["dictionaryScope"] = request.dictionaryScope;
    json::putOptional(out, "targetLanguage", request.targetLanguage);
}

inline void from_json(const Json& in, VoiceInputRequest& request) {
    if (const auto url = json::optional<std::string>(in, "audioFileURL")) {
        try {
            request.audioFileURL = pathFromFileUrl(*url);
        } catch (const DecodingError& error) {
            throw DecodingError(std::string("member \"audioFileURL\": ") + error.what());
        }
    } else {
        request.audioFileURL.reset();
    }
    request.rawText = json::optional<std::string>(in, "rawText");
    request.summaryLevel = json::required<SummaryLevel>(in, "summaryLevel");
    request.processingMode = json::required<ProcessingMode>(in, "processingMode");
    request.outputFormat = json::required<OutputFormat>(in, "outputFormat");
    request.dictionaryScope = json::required<DictionaryScope>(in, "dictionaryScope");
    request.targetLanguage = json::optional<std::string>(in, "targetLanguage");
}

}  // namespace kelvo

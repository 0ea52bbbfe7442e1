#include "core/services/OpenAITranscriptionService.h"

#include "core/support/Unicode.h"

namespace kelvo {

std::optional<std::string> OpenAITranscriptionService::promptFor(
    const TranscriptionContext& context) {
    if (!context.dictionaryHints.empty()) {
        std::string prompt = context.prompt.value_or("");
        prompt += ' ';
        for (std::size_t i = 0; i < context.dictionaryHints.size(); ++i) {
            if (i > 0) {
                prompt += ", ";
            }
            prompt += context.dictionaryHints[i];
        }
        return std::string(unicode::trimSpacesAndTabs(prompt));
    }
    if (context.prompt) {
        return std::string(unicode::trimSpacesAndTabs(*context.prompt));
    }
    return std::nullopt;
}

TranscriptionResult OpenAITranscriptionService::transcribe(
    const std::filesystem::path& audioFileURL, const TranscriptionContext& context) {
    // No duration and no request id: the client measures the file and makes a fresh id.
    TranscribeResponse response =
        client->transcribe(audioFileURL, model, context.language, promptFor(context));
    return TranscriptionResult{std::move(response.text), std::move(response.language),
                               response.duration};
}

}  // namespace kelvo

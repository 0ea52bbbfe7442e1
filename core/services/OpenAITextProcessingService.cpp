#include "core/services/OpenAITextProcessingService.h"

namespace kelvo {

std::string_view OpenAITextProcessingService::wireWord(SummaryLevel level) noexcept {
    switch (level) {
        case SummaryLevel::verbatim:
            return "verbatim";
        case SummaryLevel::cleanup:
            return "cleanup";
        case SummaryLevel::concise:
            return "concise";
        case SummaryLevel::summarize:
            return "summarize";
        case SummaryLevel::bulletsOrTodo:
            return "bullets";
        case SummaryLevel::trim:
            return "verbatim";
        case SummaryLevel::translate:
            return "translate";
    }
    return "verbatim";
}

std::string_view OpenAITextProcessingService::wireWord(ProcessingMode mode) noexcept {
    switch (mode) {
        case ProcessingMode::voiceInput:
            return "voiceInput";
        case ProcessingMode::cleanup:
            return "cleanup";
        case ProcessingMode::summarize:
            return "summarize";
        case ProcessingMode::todo:
            return "todo";
        case ProcessingMode::markdown:
            return "markdown";
        case ProcessingMode::translate:
            return "translate";
    }
    return "voiceInput";
}

std::string OpenAITextProcessingService::process(const TextProcessingRequest& request) {
    return client->process(request.text, std::string(wireWord(request.summaryLevel)),
                           std::string(wireWord(request.processingMode)), request.dictionaryHints,
                           request.targetLanguage);
}

}  // namespace kelvo

#include "core/services/OpenAITextProcessingService.h"

namespace kelvo {

std::string OpenAITextProcessingService::process(const TextProcessingRequest& request) {
    return client->process(request.text, std::string(summaryLevelWord(request.summaryLevel)),
                           std::string(enumName(request.processingMode)), request.dictionaryHints,
                           request.targetLanguage);
}

}  // namespace kelvo

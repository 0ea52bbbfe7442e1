#include "core/engines/VoiceInputEngine.h"

#include <utility>

#include "core/engines/FillerRemovalEngine.h"
#include "core/support/Uuid.h"

namespace kelvo {

namespace {

/// Recognition language for every level but translation, where the service detects it.
constexpr const char* kTranscriptionLanguage = "ja";

}  // namespace

VoiceInputEngine::VoiceInputEngine(std::shared_ptr<TranscriptionService> transcriptionService,
                                   std::shared_ptr<TextProcessingService> textProcessingService,
                                   std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine,
                                   std::shared_ptr<HistoryStore> historyStore, Clock now)
    : transcriptionService_(std::move(transcriptionService)),
      textProcessingService_(std::move(textProcessingService)),
      dictionaryEngine_(std::move(dictionaryEngine)),
      historyStore_(std::move(historyStore)),
      now_(std::move(now)) {}

VoiceInputResult VoiceInputEngine::process(const VoiceInputRequest& request) {
    const DictionaryScope scope = request.dictionaryScope;

    std::string rawTranscript;
    if (request.audioFileURL) {
        TranscriptionContext context;
        context.language =
            request.summaryLevel == SummaryLevel::translate ? "" : kTranscriptionLanguage;
        context.dictionaryHints = dictionaryEngine_->hints(scope);
        rawTranscript = transcriptionService_->transcribe(*request.audioFileURL, context).text;
    } else {
        rawTranscript = request.rawText.value_or("");
    }

    auto firstPass = dictionaryEngine_->apply(rawTranscript, scope);

    // The level, not the mode, decides who reworks the text; the two local levels need no service.
    std::string processedText;
    switch (request.summaryLevel) {
        case SummaryLevel::verbatim:
            processedText = firstPass.text;
            break;
        case SummaryLevel::trim:
            processedText = FillerRemovalEngine().removeFillers(firstPass.text);
            break;
        case SummaryLevel::cleanup:
        case SummaryLevel::concise:
        case SummaryLevel::summarize:
        case SummaryLevel::bulletsOrTodo:
        case SummaryLevel::translate: {
            TextProcessingRequest processing;
            processing.text = firstPass.text;
            processing.summaryLevel = request.summaryLevel;
            processing.processingMode = request.processingMode;
            processing.dictionaryHints = dictionaryEngine_->hints(scope);
            processing.targetLanguage = request.targetLanguage;
            processedText = textProcessingService_->process(processing);
            break;
        }
    }

    // Processing may respell dictionary terms; the second pass puts them back.
    auto secondPass = dictionaryEngine_->apply(processedText, scope);

    VoiceInputResult result;
    result.rawTranscript = std::move(rawTranscript);
    result.correctedText = std::move(firstPass.text);
    result.processedText = std::move(processedText);
    result.finalText = std::move(secondPass.text);
    result.summaryLevel = request.summaryLevel;
    result.processingMode = request.processingMode;
    // Both passes, as they are: an entry used twice is counted twice.
    result.usedDictionaryEntryIDs = std::move(firstPass.usedEntryIDs);
    result.usedDictionaryEntryIDs.insert(result.usedDictionaryEntryIDs.end(),
                                         secondPass.usedEntryIDs.begin(),
                                         secondPass.usedEntryIDs.end());

    historyStore_->appendItem(HistoryItem{makeUuid(), now_(), request, result});
    return result;
}

}  // namespace kelvo

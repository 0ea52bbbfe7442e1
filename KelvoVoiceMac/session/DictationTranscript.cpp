#include "KelvoVoiceMac/session/DictationTranscript.h"

#include <utility>

namespace kelvo::app {

void DictationTranscript::apply(const TranscriptionEvent& event) {
    if (event.kind == TranscriptionEvent::Kind::partial) {
        partialText_ = event.text;
    } else {
        confirmedText_ += event.text;
        partialText_.clear();
    }
}

void DictationTranscript::clear() {
    confirmedText_.clear();
    partialText_.clear();
}

DictationTranscript::Finished DictationTranscript::finished(
    const DictionaryCorrectionEngine* dictionary, bool removeFillers) const {
    Finished result{text()};
    if (result.text.empty()) {
        return result;
    }
    if (dictionary) {
        DictionaryCorrectionEngine::Result corrected =
            dictionary->apply(result.text, DictionaryScope::all);
        result.text = std::move(corrected.text);
        result.correctionCount = corrected.usedEntryIDs.size();
    }
    if (removeFillers) {
        std::string cleaned = fillerRemovalEngine_.removeFillers(result.text);
        result.fillersRemoved = cleaned != result.text;
        result.text = std::move(cleaned);
    }
    return result;
}

}  // namespace kelvo::app

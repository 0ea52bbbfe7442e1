#pragma once

#include <string>
#include <vector>

#include "core/models/ProcessingMode.h"
#include "core/models/SummaryLevel.h"

namespace kelvo {

/// Composes the Japanese system prompt that tells a language model how to rework a transcript:
/// a paragraph for the summary level, one for the processing mode and, when the dictionary gives
/// terms, one that pins their spelling. Stateless; safe on any thread. The target language of a
/// translation is not part of the prompt; it travels with the request.
class PromptBuilder {
  public:
    /// Paragraphs are separated by one blank line; there is no trailing line feed. Hints are kept
    /// in order, duplicates included.
    static std::string buildSystemPrompt(SummaryLevel summaryLevel, ProcessingMode processingMode,
                                         const std::vector<std::string>& dictionaryHints);
};

}  // namespace kelvo

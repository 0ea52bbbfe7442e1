#pragma once

#include <optional>
#include <vector>

#include "core/engines/WatchedSpan.h"
#include "core/models/CorrectionSuggestion.h"
#include "core/models/DictionaryEntry.h"

namespace kelvo {

/// Decides whether the user's edits of dictated text were a correction of a misrecognised word,
/// and turns one into a dictionary suggestion. A correction replaces a word or short phrase of the
/// dictated text with other text (typed, or converted by the input method: kana committed as
/// kanji). Not corrections: pure additions or deletions, changes of punctuation or spacing only,
/// rewrites of most of a sentence, and edits that reach outside the dictated text. A changed part
/// of a word (a letter or a kanji) counts as the whole word it sits in; kana runs are not split
/// into words, since they are mostly particles and endings. Stateless.
class CorrectionDetector {
  public:
    /// Longest replaced text and replacement, in characters, that still count as a word or phrase.
    static constexpr std::size_t maximumReplacedCharacters = 20;
    static constexpr std::size_t maximumReplacementCharacters = 30;

    /// The suggestion for what was done to `span` (no id, count 1), or nothing. `entryID` names
    /// the entry of `dictionary` whose canonical text is the replacement; nothing is suggested
    /// when that entry already corrects the replaced text. Texts are in NFC.
    static std::optional<CorrectionSuggestion> detect(
        const WatchedSpan& span, const std::vector<DictionaryEntry>& dictionary);

    /// Writes an accepted suggestion into the dictionary: into the entry with its canonical text
    /// when there is one (the reading and the misrecognition are added unless present), else as a
    /// new enabled entry with priority 50. A reading goes into `readings`, the replaced text into
    /// `commonMisrecognitions` unless it is that reading.
    static void mergeInto(std::vector<DictionaryEntry>& entries,
                          const CorrectionSuggestion& suggestion);
};

}  // namespace kelvo

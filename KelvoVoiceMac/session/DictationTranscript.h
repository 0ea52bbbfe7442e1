#pragma once

// DictationTranscript is the text of one dictation as the recogniser's events build it, and the
// one rule that turns it into the finished text: the dictation session inserts that text and
// `kelvo dictate` prints it, so both give the same words for the same audio.
//
// Events fold as follows: a partial replaces the previous partial; a final is appended to the
// confirmed text without a separator and clears the partial. An empty final clears it too: the
// recogniser settled that segment on nothing, so the hypothesis the user saw for it is withdrawn.
// The composed text is the confirmed text followed directly by the trailing partial, which is kept
// although it never became final. The finished text is that, corrected with the user dictionary
// (scope all), then cleaned of fillers when that is on. A plain value confined to its owner's
// thread; the correction engine is thread-safe and borrowed for the call only.

#include <cstddef>
#include <string>

#include "KelvoVoiceMac/session/TranscriptionEvent.h"
#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/engines/FillerRemovalEngine.h"

namespace kelvo::app {

class DictationTranscript {
  public:
    struct Finished {
        std::string text;
        // How many dictionary entries were applied (each counted once).
        std::size_t correctionCount = 0;
        // Whether filler removal changed the text.
        bool fillersRemoved = false;
    };

    void apply(const TranscriptionEvent& event);
    void clear();

    const std::string& confirmedText() const noexcept { return confirmedText_; }
    const std::string& partialText() const noexcept { return partialText_; }
    std::string text() const { return confirmedText_ + partialText_; }

    // Empty text stays empty without consulting the dictionary. Without a dictionary (it failed to
    // load) the text passes uncorrected.
    Finished finished(const DictionaryCorrectionEngine* dictionary, bool removeFillers) const;

  private:
    std::string confirmedText_;
    std::string partialText_;
    FillerRemovalEngine fillerRemovalEngine_;
};

}  // namespace kelvo::app

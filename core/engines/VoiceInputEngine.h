#pragma once

#include <functional>
#include <memory>

#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/models/HistoryStore.h"
#include "core/models/TextProcessingService.h"
#include "core/models/TranscriptionService.h"
#include "core/models/VoiceInputRequest.h"
#include "core/models/VoiceInputResult.h"
#include "core/support/Date.h"

namespace kelvo {

/// Turns one recorded dictation (audio file or already recognised text) into a result: transcribe,
/// correct with the user dictionary, rework by summary level, correct again, and record the
/// outcome in the history. The engine shares its collaborators and keeps no mutable state, so
/// concurrent `process` calls from any threads are safe; each keeps its texts to itself. The
/// history store is not locked here: concurrent calls append as the store allows.
class VoiceInputEngine {
  public:
    using Clock = std::function<Date()>;

    VoiceInputEngine(std::shared_ptr<TranscriptionService> transcriptionService,
                     std::shared_ptr<TextProcessingService> textProcessingService,
                     std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine,
                     std::shared_ptr<HistoryStore> historyStore, Clock now = Date::now);

    /// Blocks until the result is recorded in the history. Any collaborator's error is thrown
    /// unchanged and ends the call there: nothing after it runs, and nothing is recorded unless
    /// every step succeeded. The audio file is neither moved nor deleted.
    VoiceInputResult process(const VoiceInputRequest& request);

  private:
    const std::shared_ptr<TranscriptionService> transcriptionService_;
    const std::shared_ptr<TextProcessingService> textProcessingService_;
    const std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine_;
    const std::shared_ptr<HistoryStore> historyStore_;
    const Clock now_;
};

}  // namespace kelvo

#pragma once

// CorrectionSuggestionNotifier takes the corrections the CorrectionLearner saw: it records each in
// the suggestion store (off the main thread) and offers it in a desktop notification,
// "「<replaced>」→「<correction>」を辞書に追加しますか?", with the buttons "追加" (accept: the
// dictionary entry is written and the engine reloads, so the next dictation is corrected) and
// "無視" (reject: never proposed again). Without a notification server the suggestion waits in
// the dictionary window and `kelvo dictionary suggestions`. It also tells the user, once, that
// learning is on.
//
// Main thread only; owned by the AppDelegate. The log is borrowed and must outlive it.

#include <QCoroTask>
#include <QFuture>
#include <QThreadPool>
#include <memory>
#include <optional>
#include <string>

#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/models/CorrectionSuggestion.h"
#include "core/services/JSONDictionaryStore.h"
#include "core/services/JSONSuggestionStore.h"
#include "platform/SystemLog.h"

namespace kelvo::app {

class CorrectionSuggestionNotifier {
  public:
    CorrectionSuggestionNotifier(std::shared_ptr<JSONSuggestionStore> suggestions,
                                 std::shared_ptr<JSONDictionaryStore> dictionary,
                                 std::shared_ptr<DictionaryCorrectionEngine> engine,
                                 platform::SystemLog& systemLog);
    ~CorrectionSuggestionNotifier();

    CorrectionSuggestionNotifier(const CorrectionSuggestionNotifier&) = delete;
    CorrectionSuggestionNotifier& operator=(const CorrectionSuggestionNotifier&) = delete;

    // Records `seen` and, unless it was rejected before, offers it.
    QCoro::Task<> offer(CorrectionSuggestion seen);
    // Says that learning from corrections is on and where to switch it off.
    void announceLearning();

  private:
    struct Recorded {
        std::optional<CorrectionSuggestion> suggestion;
        std::string error;
    };

    QFuture<Recorded> recordOnWorker(const CorrectionSuggestion& seen);
    // The error in words; empty on success.
    QFuture<std::string> answerOnWorker(const CorrectionSuggestion& suggestion, bool accepted);
    QCoro::Task<> answer(CorrectionSuggestion suggestion, bool accepted);

    std::shared_ptr<JSONSuggestionStore> suggestions_;
    std::shared_ptr<JSONDictionaryStore> dictionary_;
    std::shared_ptr<DictionaryCorrectionEngine> engine_;
    platform::SystemLog& systemLog_;
    // Its own worker, one file write at a time, never queued behind the shared pool's work.
    std::unique_ptr<QThreadPool> pool_;
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace kelvo::app

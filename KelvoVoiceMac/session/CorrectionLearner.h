#pragma once

// CorrectionLearner learns dictionary entries from the corrections the user makes right after a
// dictation. It stands between the session and the insertion service and the status item: when a
// dictation went into a field through the input method or the accessibility interface (not by
// paste, where the field is unknown), it watches that field (FieldEditWatcher) for a while (the
// preference "kvmac_correctionWatchSeconds", 30 s), until the focus leaves it, or until the next
// dictation starts (the session's recording state). Once the user's edits have settled for
// settleWait, CorrectionDetector decides whether they replaced a word of the dictation; a
// correction is handed to `suggest` and ends the watch. Only the dictated text and its
// neighbourhood are held, and nothing once the watch is over; no timer runs outside a watch.
//
// The preference "kvmac_correctionLearningEnabled" (default true) switches it off; the first
// watch ever calls `firstUse` once, so that the user is told learning is on.
//
// Main thread only. Collaborators are borrowed and must outlive it.

#include <QCoroTask>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KelvoVoiceMac/session/DictationTextInserter.h"
#include "KelvoVoiceMac/session/StatusItemPresenter.h"
#include "KelvoVoiceMac/session/TextInsertionService.h"
#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/engines/WatchedSpan.h"
#include "core/models/CorrectionSuggestion.h"
#include "platform/Clock.h"
#include "platform/FieldEditWatcher.h"
#include "platform/Preferences.h"
#include "platform/TraceOutput.h"

namespace kelvo::app {

class CorrectionLearner final : public DictationTextInserter, public StatusItemPresenter {
  public:
    struct Dependencies {
        TextInsertionService& textInsertionService;
        StatusItemPresenter& statusItem;
        platform::FieldEditWatcher& fieldEditWatcher;
        // None when the dictionary failed to load: corrections are still learnt.
        std::shared_ptr<const DictionaryCorrectionEngine> dictionaryEngine;
        platform::Preferences& preferences;
        platform::Clock& clock;
        platform::TraceOutput& traceOutput;
        std::function<void(const CorrectionSuggestion&)> suggest;
        std::function<void()> firstUse;
    };

    // Characters read on either side of the dictated text.
    static constexpr std::size_t neighbourhoodCharacters = 20;
    static constexpr platform::Clock::Duration settleWait = std::chrono::milliseconds(1500);

    explicit CorrectionLearner(Dependencies dependencies);
    ~CorrectionLearner() override;

    CorrectionLearner(const CorrectionLearner&) = delete;
    CorrectionLearner& operator=(const CorrectionLearner&) = delete;

    QCoro::Task<bool> insert(std::string text, bool restore) override;
    void refresh(RecordingState state) override;
    void setDictationItemEnabled(bool enabled) override;

    bool isWatching() const noexcept { return span_.has_value(); }

  private:
    QCoro::Task<> watch(std::string text);
    void edited();
    void derive();
    void finish();
    void stopWatching();

    TextInsertionService& textInsertionService_;
    StatusItemPresenter& statusItem_;
    platform::FieldEditWatcher& fieldEditWatcher_;
    std::shared_ptr<const DictionaryCorrectionEngine> dictionaryEngine_;
    platform::Preferences& preferences_;
    platform::Clock& clock_;
    platform::TraceOutput& traceOutput_;
    std::function<void(const CorrectionSuggestion&)> suggest_;
    std::function<void()> firstUse_;

    std::uint64_t generation_ = 0;
    std::optional<WatchedSpan> span_;
    std::optional<std::uint64_t> settleTimer_;
    std::optional<std::uint64_t> watchTimer_;
};

}  // namespace kelvo::app

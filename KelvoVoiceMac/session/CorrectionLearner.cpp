#include "KelvoVoiceMac/session/CorrectionLearner.h"

#include <utility>
#include <vector>

#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "core/engines/CorrectionDetector.h"

namespace kelvo::app {

using Route = TextInsertionService::Route;

CorrectionLearner::CorrectionLearner(Dependencies dependencies)
    : textInsertionService_(dependencies.textInsertionService),
      statusItem_(dependencies.statusItem),
      fieldEditWatcher_(dependencies.fieldEditWatcher),
      dictionaryEngine_(std::move(dependencies.dictionaryEngine)),
      preferences_(dependencies.preferences),
      clock_(dependencies.clock),
      traceOutput_(dependencies.traceOutput),
      suggest_(std::move(dependencies.suggest)),
      firstUse_(std::move(dependencies.firstUse)) {
    preferences_.registerDefault(PreferenceKeys::correctionLearningEnabled, true);
}

CorrectionLearner::~CorrectionLearner() {
    stopWatching();
}

QCoro::Task<bool> CorrectionLearner::insert(std::string text, bool restore) {
    stopWatching();
    const bool inserted = co_await textInsertionService_.insert(text, restore);
    const Route route = textInsertionService_.lastRoute();
    if (inserted && (route == Route::inputMethod || route == Route::accessibility) &&
        preferences_.boolValue(PreferenceKeys::correctionLearningEnabled)) {
        // Runs on by itself; the session goes idle meanwhile.
        watch(std::move(text));
    }
    co_return inserted;
}

void CorrectionLearner::refresh(RecordingState state) {
    if (state == RecordingState::recording) {
        stopWatching();
    }
    statusItem_.refresh(state);
}

void CorrectionLearner::setDictationItemEnabled(bool enabled) {
    statusItem_.setDictationItemEnabled(enabled);
}

QCoro::Task<> CorrectionLearner::watch(std::string text) {
    const std::uint64_t generation = ++generation_;
    if (!preferences_.boolValue(PreferenceKeys::correctionLearningNoticeShown)) {
        preferences_.setBool(PreferenceKeys::correctionLearningNoticeShown, true);
        if (firstUse_) {
            firstUse_();
        }
    }
    platform::FieldEditWatcher::Handlers handlers{
        .inserted =
            [this](std::size_t offset, const std::string& added) {
                if (span_) {
                    span_->inserted(offset, added);
                    edited();
                }
            },
        .deleted =
            [this](std::size_t offset, std::size_t length) {
                if (span_) {
                    span_->deleted(offset, length);
                    edited();
                }
            },
        .ended = [this] { finish(); },
    };
    auto baseline =
        co_await fieldEditWatcher_.watch(std::move(text), neighbourhoodCharacters, handlers);
    if (generation != generation_) {
        co_return;  // the next dictation began meanwhile
    }
    if (!baseline) {
        traceOutput_.write("[Learning] Field not watched");
        co_return;
    }
    span_.emplace(baseline->text, baseline->offset, baseline->spanStart, baseline->spanEnd);
    const int seconds = preferences_.intValue(PreferenceKeys::correctionWatchSeconds,
                                              PreferenceKeys::defaultCorrectionWatchSeconds);
    watchTimer_ = clock_.schedule(std::chrono::seconds(seconds), [this] {
        watchTimer_.reset();
        finish();
    });
    traceOutput_.write("[Learning] Watching the field for corrections");
}

void CorrectionLearner::edited() {
    if (settleTimer_) {
        clock_.cancel(*settleTimer_);
    }
    settleTimer_ = clock_.schedule(settleWait, [this] {
        settleTimer_.reset();
        derive();
    });
}

void CorrectionLearner::derive() {
    if (!span_) {
        return;
    }
    std::vector<DictionaryEntry> entries;
    if (dictionaryEngine_) {
        entries = *dictionaryEngine_->cachedEntries();
    }
    auto suggestion = CorrectionDetector::detect(*span_, entries);
    if (!suggestion) {
        traceOutput_.write("[Learning] Edits settled, no correction");
        return;
    }
    traceOutput_.write("[Learning] Correction seen");
    stopWatching();
    if (suggest_) {
        suggest_(*suggestion);
    }
}

void CorrectionLearner::finish() {
    if (settleTimer_) {
        derive();  // edits that had not settled yet
    }
    if (span_) {
        traceOutput_.write("[Learning] Watch ended");
    }
    stopWatching();
}

void CorrectionLearner::stopWatching() {
    ++generation_;
    fieldEditWatcher_.stop();
    for (auto* timer : {&settleTimer_, &watchTimer_}) {
        if (*timer) {
            clock_.cancel(**timer);
            timer->reset();
        }
    }
    span_.reset();
}

}  // namespace kelvo::app

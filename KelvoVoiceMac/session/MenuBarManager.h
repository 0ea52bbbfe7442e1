#pragma once

// MenuBarManager owns the dictation session: it takes start, stop and discard requests from the
// menu and the trigger-key gestures, runs them through a state machine that never lets two
// transitions overlap (a stop or discard that arrives while the microphone is still opening is
// queued and run when the start completes), folds the recogniser's partial and final results into
// the session's DictationTranscript, and at the end hands the transcript's finished text (corrected
// with the user dictionary, fillers removed when the user wants that) to the inserter. It also
// keeps the last dictated text so that the menu can paste it again, and so that nothing said is
// lost when insertion fails.
//
// Confined to the main thread: requests are synchronous calls that return at once; the start,
// finish and consumption work runs as coroutines launched through the clock (never inline in the
// request), interleaving with requests only at their waiting points. `isTransitioning` is set
// before any task is launched and cleared only when it ends, which is what keeps those
// interleavings safe. The collaborators are borrowed and must outlive the manager; the manager
// lives as long as the process in the application (suspended tasks hold `this`), so in tests let
// every task finish before destroying it.

#include <QCoroTask>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KelvoVoiceMac/session/Channel.h"
#include "KelvoVoiceMac/session/DictationAudioSource.h"
#include "KelvoVoiceMac/session/DictationRecognizer.h"
#include "KelvoVoiceMac/session/DictationRequestHandler.h"
#include "KelvoVoiceMac/session/DictationTextInserter.h"
#include "KelvoVoiceMac/session/DictationTranscript.h"
#include "KelvoVoiceMac/session/OwnedTask.h"
#include "KelvoVoiceMac/session/RecordingState.h"
#include "KelvoVoiceMac/session/StatusItemPresenter.h"
#include "KelvoVoiceMac/session/TranscriptionEvent.h"
#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/models/DictionaryStore.h"
#include "platform/Clock.h"
#include "platform/Preferences.h"
#include "platform/SystemLog.h"
#include "platform/TraceOutput.h"

namespace kelvo::app {

class MenuBarManager final : public DictationRequestHandler {
  public:
    struct Dependencies {
        DictationAudioSource& audioCaptureService;
        DictationRecognizer& speechService;
        DictationTextInserter& textInsertionService;
        // Kept for the dictionary window; the session itself does not read it.
        std::shared_ptr<DictionaryStore> dictionaryStore;
        // None when the dictionary failed to load: no hints and no corrections then.
        std::shared_ptr<const DictionaryCorrectionEngine> dictionaryEngine;
        platform::Preferences& preferences;
        platform::Clock& clock;
        platform::SystemLog& systemLog;
        platform::TraceOutput& traceOutput;
        StatusItemPresenter& statusItem;
    };

    static constexpr platform::Clock::Duration finalPartialDrainWait =
        std::chrono::milliseconds(650);

    // Registers the preference defaults (the filler setting's is true) and shows the idle status.
    explicit MenuBarManager(Dependencies dependencies);
    ~MenuBarManager() override;

    MenuBarManager(const MenuBarManager&) = delete;
    MenuBarManager& operator=(const MenuBarManager&) = delete;

    bool startDictation(const std::string& trigger) override;
    bool stopDictation(const std::string& trigger) override;
    bool discardDictation(const std::string& trigger) override;

    // The dictation menu item's action: stop when recording, else start, with trigger "menu".
    void startDictation();

    // Inserts the last dictated text again: the one whose insertion failed if there is one, else
    // the last one inserted. Accepted only when idle and not in transition; true when accepted.
    bool pasteLastText();

    RecordingState recordingState() const noexcept { return recordingState_; }
    bool isTransitioning() const noexcept { return isTransitioning_; }
    const std::string& partialText() const noexcept { return transcript_.partialText(); }
    const std::string& confirmedText() const noexcept { return transcript_.confirmedText(); }
    const std::optional<std::string>& queuedStopTrigger() const noexcept {
        return queuedStopTrigger_;
    }
    bool queuedDiscard() const noexcept { return queuedDiscard_; }
    // The text of the last successful insertion, kept for pasting it again.
    const std::optional<std::string>& lastInsertedText() const noexcept {
        return lastInsertedText_;
    }
    // The text of the last dictation whose insertion failed, until it is pasted successfully.
    const std::optional<std::string>& lastUninsertedText() const noexcept {
        return lastUninsertedText_;
    }
    const std::shared_ptr<DictionaryStore>& dictionaryStore() const noexcept {
        return dictionaryStore_;
    }
    const std::shared_ptr<const DictionaryCorrectionEngine>& dictionaryEngine() const noexcept {
        return dictionaryEngine_;
    }

  private:
    void beginTransition();
    void endTransition();
    void setRecordingState(RecordingState state);
    void log(const std::string& line);
    // Posts work to the main thread through the clock so the requester returns first; dropped if
    // the manager is gone by then.
    void launch(std::function<void()> work);
    static platform::Clock::Duration drainWaitFor(const std::string& trigger);

    QCoro::Task<> runStartTask();
    OwnedTask consumeEvents(std::shared_ptr<Channel<TranscriptionEvent>> events);
    QCoro::Task<> finish(platform::Clock::Duration drainWait, bool discarding);
    QCoro::Task<> runFinishTask(platform::Clock::Duration drainWait, bool discarding);
    QCoro::Task<> runPasteLastText(std::string text);
    QCoro::Task<> insertAndRemember(std::string text);

    DictationAudioSource& audioCaptureService_;
    DictationRecognizer& speechService_;
    DictationTextInserter& textInsertionService_;
    std::shared_ptr<DictionaryStore> dictionaryStore_;
    std::shared_ptr<const DictionaryCorrectionEngine> dictionaryEngine_;
    platform::Preferences& preferences_;
    platform::Clock& clock_;
    platform::SystemLog& systemLog_;
    platform::TraceOutput& traceOutput_;
    StatusItemPresenter& statusItem_;

    // Owns the reader's frame, so a manager destroyed mid-dictation frees it too.
    std::optional<OwnedTask> transcriptionTask_;
    DictationTranscript transcript_;
    std::optional<std::string> queuedStopTrigger_;
    bool queuedDiscard_ = false;
    bool isTransitioning_ = false;
    RecordingState recordingState_ = RecordingState::idle;
    std::optional<std::string> lastInsertedText_;
    std::optional<std::string> lastUninsertedText_;

    // Expires with the manager, so work posted through the clock can tell it is gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace kelvo::app

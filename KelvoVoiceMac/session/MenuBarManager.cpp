#include "KelvoVoiceMac/session/MenuBarManager.h"

#include <exception>
#include <utility>

#include "KelvoVoiceMac/session/ClockSleep.h"
#include "KelvoVoiceMac/session/DictationTrigger.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "platform/LogFormat.h"

namespace kelvo::app {
namespace {

constexpr const char* kMenuTrigger = DictationTrigger::menu;
constexpr const char* kHoldTrigger = DictationTrigger::fnHold;
constexpr const char* kFailedToStartPrefix = "[KelvoVoice] Failed to start dictation: ";
constexpr const char* kPartialPrefix = "[Partial] ";
constexpr const char* kFinalPrefix = "[Final] ";

std::string withTrigger(const char* before, const std::string& trigger, const char* after = "") {
    return std::string(before) + trigger + after;
}

}  // namespace

MenuBarManager::MenuBarManager(Dependencies dependencies)
    : audioCaptureService_(dependencies.audioCaptureService),
      speechService_(dependencies.speechService),
      textInsertionService_(dependencies.textInsertionService),
      dictionaryStore_(std::move(dependencies.dictionaryStore)),
      dictionaryEngine_(std::move(dependencies.dictionaryEngine)),
      preferences_(dependencies.preferences),
      clock_(dependencies.clock),
      systemLog_(dependencies.systemLog),
      traceOutput_(dependencies.traceOutput),
      statusItem_(dependencies.statusItem) {
    PreferenceKeys::registerDefaults(preferences_);
    statusItem_.refresh(recordingState_);
    statusItem_.setDictationItemEnabled(true);
}

MenuBarManager::~MenuBarManager() = default;

bool MenuBarManager::startDictation(const std::string& trigger) {
    if (isTransitioning_) {
        log(withTrigger("[KelvoVoice] Ignored startDictation trigger=", trigger,
                        " because transition is active"));
        return false;
    }
    if (recordingState_ == RecordingState::recording) {
        log(withTrigger("[KelvoVoice] Ignored startDictation trigger=", trigger,
                        " because recording is already active"));
        return false;
    }
    beginTransition();
    log(withTrigger("[KelvoVoice] Starting dictation trigger=", trigger));
    launch([this] { runStartTask(); });
    return true;
}

bool MenuBarManager::stopDictation(const std::string& trigger) {
    if (isTransitioning_ && recordingState_ == RecordingState::recording) {
        log(withTrigger("[KelvoVoice] Ignored stopDictation trigger=", trigger,
                        " because transition is active"));
        return false;
    }
    if (isTransitioning_) {
        queuedStopTrigger_ = trigger;
        log(withTrigger("[KelvoVoice] Queued stopDictation trigger=", trigger,
                        " until start completes"));
        return true;
    }
    if (recordingState_ == RecordingState::idle) {
        log(withTrigger("[KelvoVoice] Ignored stopDictation trigger=", trigger,
                        " because recording is not active"));
        return false;
    }
    beginTransition();
    log(withTrigger("[KelvoVoice] Stopping dictation trigger=", trigger));
    auto drainWait = drainWaitFor(trigger);
    launch([this, drainWait] { runFinishTask(drainWait, false); });
    return true;
}

bool MenuBarManager::discardDictation(const std::string& trigger) {
    if (!isTransitioning_ && recordingState_ == RecordingState::idle) {
        return false;
    }
    if (!isTransitioning_) {
        beginTransition();
        log(withTrigger("[KelvoVoice] Discarding dictation trigger=", trigger));
        launch([this] { runFinishTask(platform::Clock::Duration::zero(), true); });
        return true;
    }
    if (recordingState_ == RecordingState::recording) {
        log(withTrigger("[KelvoVoice] Ignored discard trigger=", trigger,
                        " because transition is active"));
        return false;
    }
    queuedDiscard_ = true;
    queuedStopTrigger_.reset();
    log(withTrigger("[KelvoVoice] Queued discard trigger=", trigger, " until start completes"));
    return true;
}

void MenuBarManager::startDictation() {
    if (recordingState_ == RecordingState::recording) {
        stopDictation(kMenuTrigger);
    } else {
        startDictation(kMenuTrigger);
    }
}

bool MenuBarManager::pasteLastText() {
    if (isTransitioning_) {
        log("[KelvoVoice] Ignored pasteLastText because transition is active");
        return false;
    }
    if (recordingState_ == RecordingState::recording) {
        log("[KelvoVoice] Ignored pasteLastText because recording is active");
        return false;
    }
    const auto& text = lastUninsertedText_ ? lastUninsertedText_ : lastInsertedText_;
    if (!text) {
        log("[KelvoVoice] Ignored pasteLastText because there is no dictated text");
        return false;
    }
    beginTransition();
    log("[KelvoVoice] Pasting last dictated text again");
    launch([this, copy = *text] { runPasteLastText(copy); });
    return true;
}

void MenuBarManager::beginTransition() {
    isTransitioning_ = true;
    statusItem_.setDictationItemEnabled(false);
}

void MenuBarManager::endTransition() {
    isTransitioning_ = false;
    statusItem_.setDictationItemEnabled(true);
}

void MenuBarManager::setRecordingState(RecordingState state) {
    recordingState_ = state;
    statusItem_.refresh(state);
}

void MenuBarManager::log(const std::string& line) {
    systemLog_.write(line);
}

void MenuBarManager::launch(std::function<void()> work) {
    std::weak_ptr<int> alive = lifetime_;
    clock_.schedule(platform::Clock::Duration::zero(), [alive, work = std::move(work)] {
        if (alive.lock()) {
            work();
        }
    });
}

platform::Clock::Duration MenuBarManager::drainWaitFor(const std::string& trigger) {
    return trigger == kHoldTrigger ? finalPartialDrainWait : platform::Clock::Duration::zero();
}

QCoro::Task<> MenuBarManager::runStartTask() {
    if (recordingState_ != RecordingState::idle) {
        endTransition();
        co_return;
    }
    // Hints go in before the microphone opens, so they apply to this recognition.
    if (dictionaryEngine_) {
        speechService_.setContextualStrings(dictionaryEngine_->hints(DictionaryScope::all));
    }

    std::shared_ptr<Channel<AudioBuffer>> audio;
    std::optional<std::string> failure;
    try {
        audio = co_await audioCaptureService_.start();
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (failure) {
        queuedStopTrigger_.reset();
        queuedDiscard_ = false;
        traceOutput_.write(kFailedToStartPrefix + *failure);
        // Stops whatever did start, finds no text and returns to idle.
        co_await finish(platform::Clock::Duration::zero(), false);
        // Requests queued while that clean-up ran belong to the failed start too; left queued,
        // they would fire on the next successful start.
        queuedStopTrigger_.reset();
        queuedDiscard_ = false;
        endTransition();
        co_return;
    }

    auto events = speechService_.startTranscription(std::move(audio));
    setRecordingState(RecordingState::recording);
    if (events) {
        transcriptionTask_.emplace(consumeEvents(std::move(events)));
    }

    if (queuedDiscard_) {
        queuedDiscard_ = false;
        queuedStopTrigger_.reset();
        log("[KelvoVoice] Running queued discard after start completed");
        co_await finish(platform::Clock::Duration::zero(), true);
    } else if (queuedStopTrigger_) {
        auto trigger = std::move(*queuedStopTrigger_);
        queuedStopTrigger_.reset();
        log(withTrigger("[KelvoVoice] Running queued stop after start completed trigger=",
                        trigger));
        co_await finish(drainWaitFor(trigger), false);
    } else {
        endTransition();
    }
}

OwnedTask MenuBarManager::consumeEvents(std::shared_ptr<Channel<TranscriptionEvent>> events) {
    while (auto event = co_await events->next()) {
        transcript_.apply(*event);
        const bool isPartial = event->kind == TranscriptionEvent::Kind::partial;
        traceOutput_.write((isPartial ? kPartialPrefix : kFinalPrefix) + event->text);
    }
}

QCoro::Task<> MenuBarManager::runFinishTask(platform::Clock::Duration drainWait, bool discarding) {
    co_await finish(drainWait, discarding);
}

QCoro::Task<> MenuBarManager::finish(platform::Clock::Duration drainWait, bool discarding) {
    if (drainWait != platform::Clock::Duration::zero()) {
        auto waitMs = std::chrono::duration<double, std::milli>(drainWait).count();
        log("[KelvoVoice] Waiting " + platform::fixedText(waitMs, 0) +
            "ms before stopping dictation for final partial drain");
        // The microphone and the recogniser keep running meanwhile, so the words spoken just
        // before the key came up still reach a partial result.
        co_await sleepFor(clock_, drainWait);
    }
    audioCaptureService_.stop();
    // Words that are kept are first decoded to the end of what was captured; a discard need not.
    if (discarding) {
        co_await speechService_.stop();
    } else {
        co_await speechService_.stopAfterCatchingUp();
    }
    if (transcriptionTask_) {
        auto task = std::move(*transcriptionTask_);
        transcriptionTask_.reset();
        co_await task;
    }

    if (!discarding) {
        // Read at every stop, so a menu toggle applies from the next dictation on.
        DictationTranscript::Finished finished = transcript_.finished(
            dictionaryEngine_.get(), preferences_.boolValue(PreferenceKeys::fillerRemovalEnabled));
        if (finished.correctionCount > 0) {
            log("[KelvoVoice] Dictionary corrections applied count=" +
                std::to_string(finished.correctionCount));
        }
        if (finished.fillersRemoved) {
            log("[KelvoVoice] Filler removal applied");
        }
        if (!finished.text.empty()) {
            co_await insertAndRemember(std::move(finished.text));
        }
    }

    transcript_.clear();
    setRecordingState(RecordingState::idle);
    endTransition();
}

QCoro::Task<> MenuBarManager::insertAndRemember(std::string text) {
    bool inserted = false;
    try {
        inserted = co_await textInsertionService_.insert(text, true);
    } catch (const std::exception& error) {
        // Insertion is not meant to throw; if a backend does anyway, the session must still reach
        // its reset and the words must still be kept.
        log(std::string("[KelvoVoice] Insertion error: ") + error.what());
    }
    if (inserted) {
        lastInsertedText_ = std::move(text);
        lastUninsertedText_.reset();
    } else {
        // Whatever went wrong was traced by the inserter; the words themselves must survive it.
        log("[KelvoVoice] Insertion failed; dictated text kept for pasting again");
        lastUninsertedText_ = std::move(text);
    }
}

QCoro::Task<> MenuBarManager::runPasteLastText(std::string text) {
    co_await insertAndRemember(std::move(text));
    endTransition();
}

}  // namespace kelvo::app

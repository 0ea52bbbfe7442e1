#pragma once

// TextInsertionService puts the final dictated text at the cursor of the frontmost application.
// It first replaces the focused element's selection through the accessibility interface and
// checks, 120 ms later, that something visibly changed (many applications report success and do
// nothing); failing that it falls back to the clipboard: it writes the text, sends the paste chord
// and afterwards puts the user's previous clipboard text back. The restore waits until the target
// has really fetched the paste (at least 200 ms after the chord, at most 1 s), because on X11 an
// early restore pastes the old text; it is skipped when another application took the clipboard
// meanwhile, and when the paste was never fetched the dictated text is left on the clipboard so
// it is not lost. A password field gets nothing at all, not even through the clipboard. Progress
// lines go to the trace output with the prefix "[TextInsertion]".
//
// Before all that, when input-method committers are given and the preference
// "kvmac_inputMethodInsertionEnabled" (default true) allows it, the text is handed to the user's
// input-method framework, which commits it into the focused input context like converted text;
// only a committer that says it delivered ends the insertion there. Any other answer (no input
// context has the focus, framework not running) goes on to the next committer and then to the
// accessibility and clipboard paths exactly as without committers. A committer that reports the
// focused field as a password field ends the insertion with nothing inserted: no later path runs.
//
// Main thread only; no state survives a call except isInjectingKeys(). The waits suspend the
// caller's task without blocking the main thread. Collaborators are borrowed and must outlive it.

#include <QCoroTask>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/DictationTextInserter.h"
#include "platform/AccessibilityClient.h"
#include "platform/Clock.h"
#include "platform/InputMethodCommitter.h"
#include "platform/KeySynthesizer.h"
#include "platform/Pasteboard.h"
#include "platform/Preferences.h"
#include "platform/TraceOutput.h"
#include "platform/Workspace.h"

namespace kelvo::app {

class TextInsertionService final : public DictationTextInserter {
  public:
    struct Dependencies {
        platform::AccessibilityClient& accessibility;
        platform::Pasteboard& pasteboard;
        platform::KeySynthesizer& keySynthesizer;
        platform::Workspace& workspace;
        platform::Clock& clock;
        platform::TraceOutput& traceOutput;
        // Tried in order before the accessibility path; none by default.
        std::vector<platform::InputMethodCommitter*> inputMethods = {};
        // Where the route's switch is read at each insertion; without it the route is on.
        platform::Preferences* preferences = nullptr;
    };

    static constexpr platform::Clock::Duration verificationWait = std::chrono::milliseconds(120);
    // The earliest restore after the chord, even when the fetch is seen sooner: some targets
    // fetch more than once (several formats) right after the first request.
    static constexpr platform::Clock::Duration minimumRestoreWait = std::chrono::milliseconds(200);
    // The longest wait for the target to fetch the paste.
    static constexpr platform::Clock::Duration maximumFetchWait = std::chrono::seconds(1);

    explicit TextInsertionService(Dependencies dependencies);

    // Never throws; true when the text was inserted or was empty.
    QCoro::Task<bool> insert(std::string text, bool restore) override;

    // The "Open Accessibility Settings" menu action.
    void openAccessibilitySettings();

    // Which path took the text of the last insert() (none when it failed or was empty).
    enum class Route { none, inputMethod, accessibility, pasteboard };
    Route lastRoute() const noexcept { return lastRoute_; }

    // True from just before the paste chord is sent until the restore step is over; the gesture
    // recogniser drops synthetic key events meanwhile.
    bool isInjectingKeys() const noexcept { return isInjectingKeys_; }

  private:
    struct ElementState;
    // refused: the focused element is a field for secrets; no fallback may type there either.
    enum class AccessibilityResult { inserted, failed, refused };

    // refused: a committer reported the focused field as a password field; nothing may be
    // inserted.
    enum class InputMethodResult { inserted, notInserted, refused };
    QCoro::Task<InputMethodResult> insertWithInputMethod(const std::string& text);
    QCoro::Task<AccessibilityResult> insertWithAccessibility(const std::string& text);
    QCoro::Task<ElementState> readElementState(
        std::shared_ptr<platform::AccessibleElement> element);
    QCoro::Task<bool> insertWithPasteboard(const std::string& text, bool restore);
    QCoro::Task<bool> waitForPasteFetch();
    void restorePasteboard(const std::optional<std::string>& previous, bool restore);

    platform::AccessibilityClient& accessibility_;
    platform::Pasteboard& pasteboard_;
    platform::KeySynthesizer& keySynthesizer_;
    platform::Workspace& workspace_;
    platform::Clock& clock_;
    platform::TraceOutput& traceOutput_;
    std::vector<platform::InputMethodCommitter*> inputMethods_;
    platform::Preferences* preferences_;
    bool isInjectingKeys_ = false;
    Route lastRoute_ = Route::none;
};

}  // namespace kelvo::app

#include "KelvoVoiceMac/session/TextInsertionService.h"

#include <optional>

#include "KelvoVoiceMac/session/CancellationToken.h"
#include "KelvoVoiceMac/session/ClockSleep.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "platform/LogFormat.h"

namespace kelvo::app {

struct TextInsertionService::ElementState {
    std::optional<std::string> value;
    std::optional<std::string> selectedText;
    std::optional<platform::AccessibilityClient::TextRange> selectedTextRange;
};

TextInsertionService::TextInsertionService(Dependencies dependencies)
    : accessibility_(dependencies.accessibility),
      pasteboard_(dependencies.pasteboard),
      keySynthesizer_(dependencies.keySynthesizer),
      workspace_(dependencies.workspace),
      clock_(dependencies.clock),
      traceOutput_(dependencies.traceOutput),
      inputMethods_(std::move(dependencies.inputMethods)),
      preferences_(dependencies.preferences) {}

QCoro::Task<bool> TextInsertionService::insert(std::string text, bool restore) {
    lastRoute_ = Route::none;
    if (text.empty()) {
        traceOutput_.write("[TextInsertion] Empty text, skipping");
        co_return true;
    }
    // Needs no accessibility trust: the framework commits as the user's own input method does.
    InputMethodResult viaInputMethod = co_await insertWithInputMethod(text);
    if (viaInputMethod == InputMethodResult::inserted) {
        lastRoute_ = Route::inputMethod;
        co_return true;
    }
    if (viaInputMethod == InputMethodResult::refused) {
        // Seen already: no later path may look again and miss it (the paste types blindly).
        traceOutput_.write("[TextInsertion] Focused element is a password field, not inserting");
        co_return false;
    }
    // Without trust neither the accessibility calls nor the synthetic chord would reach other
    // applications, so the clipboard fallback is not even tried.
    if (!accessibility_.isTrusted()) {
        traceOutput_.write("[TextInsertion] Accessibility permission required");
        co_return false;
    }
    if (auto frontmost = workspace_.frontmostApplication()) {
        std::string name = frontmost->localizedName      ? *frontmost->localizedName
                           : frontmost->bundleIdentifier ? *frontmost->bundleIdentifier
                                                         : std::string("unknown");
        traceOutput_.write("[TextInsertion] Frontmost app: " + name);
    } else {
        traceOutput_.write("[TextInsertion] Frontmost app unavailable");
    }

    AccessibilityResult result = co_await insertWithAccessibility(text);
    if (result == AccessibilityResult::inserted) {
        traceOutput_.write("[TextInsertion] AX direct insertion succeeded");
        lastRoute_ = Route::accessibility;
        co_return true;
    }
    if (result == AccessibilityResult::refused) {
        traceOutput_.write("[TextInsertion] Focused element is a password field, not inserting");
        co_return false;
    }
    traceOutput_.write("[TextInsertion] AX direct insertion failed, falling back to pasteboard");
    bool pasted = co_await insertWithPasteboard(text, restore);
    lastRoute_ = pasted ? Route::pasteboard : Route::none;
    co_return pasted;
}

void TextInsertionService::openAccessibilitySettings() {
    if (!workspace_.openPermissionHelp(platform::Workspace::PermissionPane::accessibility)) {
        traceOutput_.write("[TextInsertion] Failed to build Accessibility settings URL");
    }
}

QCoro::Task<TextInsertionService::InputMethodResult> TextInsertionService::insertWithInputMethod(
    const std::string& text) {
    if (inputMethods_.empty() ||
        (preferences_ && !preferences_->boolValue(PreferenceKeys::inputMethodInsertionEnabled))) {
        co_return InputMethodResult::notInserted;
    }
    using Outcome = platform::InputMethodCommitter::Outcome;
    for (platform::InputMethodCommitter* inputMethod : inputMethods_) {
        const std::string name = inputMethod->name();
        platform::InputMethodCommitter::Result result = co_await inputMethod->commit(text);
        switch (result.outcome) {
            case Outcome::delivered:
                traceOutput_.write("[TextInsertion] Input method insertion succeeded: " + name +
                                   " (" + result.detail + ")");
                co_return InputMethodResult::inserted;
            case Outcome::passwordField:
                // The framework knows the field's purpose even where the accessibility interface
                // cannot see the focus; the paste after it would type there blindly.
                co_return InputMethodResult::refused;
            case Outcome::noFocusedInputContext:
                traceOutput_.write("[TextInsertion] Input method " + name +
                                   ": no focused input context");
                break;
            case Outcome::unavailable:
                traceOutput_.write("[TextInsertion] Input method " + name +
                                   " unavailable: " + result.detail);
                break;
        }
    }
    co_return InputMethodResult::notInserted;
}

QCoro::Task<TextInsertionService::ElementState> TextInsertionService::readElementState(
    std::shared_ptr<platform::AccessibleElement> element) {
    ElementState state;
    state.value = co_await accessibility_.value(element);
    state.selectedText = co_await accessibility_.selectedText(element);
    state.selectedTextRange = co_await accessibility_.selectedTextRange(element);
    co_return state;
}

QCoro::Task<TextInsertionService::AccessibilityResult>
TextInsertionService::insertWithAccessibility(const std::string& text) {
    auto focused = co_await accessibility_.focusedElement();
    if (focused.isSecureTextField) {
        co_return AccessibilityResult::refused;
    }
    if (!focused.element) {
        traceOutput_.write(std::string("[TextInsertion] Failed to get focused UI element: ") +
                           platform::AccessibilityClient::outcomeName(focused.outcome));
        co_return AccessibilityResult::failed;
    }
    auto element = focused.element;
    auto before = co_await readElementState(element);

    const platform::AccessibilityClient::Outcome outcome =
        co_await accessibility_.setSelectedText(element, text);
    if (outcome != platform::AccessibilityClient::Outcome::done) {
        traceOutput_.write(std::string("[TextInsertion] Failed to set selected text with AX: ") +
                           platform::AccessibilityClient::outcomeName(outcome));
        co_return AccessibilityResult::failed;
    }

    co_await sleepFor(clock_, verificationWait);
    auto after = co_await readElementState(element);

    bool valueChanged = before.value != after.value;
    bool selectedTextChanged = before.selectedText != after.selectedText;
    bool rangeChanged = before.selectedTextRange != after.selectedTextRange;
    if (!valueChanged && !selectedTextChanged && !rangeChanged) {
        traceOutput_.write(
            "[TextInsertion] AX set selected text returned success but no focused element change "
            "was detected");
        co_return AccessibilityResult::failed;
    }
    traceOutput_.write(std::string("[TextInsertion] AX verification changed: value=") +
                       platform::boolText(valueChanged) +
                       ", selectedText=" + platform::boolText(selectedTextChanged) +
                       ", range=" + platform::boolText(rangeChanged));
    co_return AccessibilityResult::inserted;
}

QCoro::Task<bool> TextInsertionService::insertWithPasteboard(const std::string& text,
                                                             bool restore) {
    std::optional<std::string> previous;
    if (restore) {
        previous = pasteboard_.readString();
    }
    if (!pasteboard_.writeString(text)) {
        traceOutput_.write("[TextInsertion] Failed to write text to pasteboard");
        co_return false;
    }

    isInjectingKeys_ = true;
    bool sent = keySynthesizer_.sendPaste();
    if (!sent) {
        traceOutput_.write("[TextInsertion] Failed to create Cmd+V events");
        restorePasteboard(previous, restore);
        isInjectingKeys_ = false;
        co_return false;
    }
    traceOutput_.write("[TextInsertion] Sent Cmd+V");

    bool fetched = co_await waitForPasteFetch();
    if (!fetched) {
        isInjectingKeys_ = false;
        // Restoring now would throw away the only copy of what the user said.
        traceOutput_.write(
            "[TextInsertion] Paste was not fetched within 1000 ms; dictated text left on "
            "pasteboard");
        co_return false;
    }
    if (restore && !pasteboard_.holdsLastWrite()) {
        isInjectingKeys_ = false;
        traceOutput_.write(
            "[TextInsertion] Pasteboard changed by another application, not restoring");
        traceOutput_.write("[TextInsertion] Pasteboard fallback completed");
        co_return true;
    }
    restorePasteboard(previous, restore);
    isInjectingKeys_ = false;
    traceOutput_.write("[TextInsertion] Pasteboard fallback completed");
    co_return true;
}

QCoro::Task<bool> TextInsertionService::waitForPasteFetch() {
    auto sentAt = clock_.now();
    co_await sleepFor(clock_, minimumRestoreWait);
    if (pasteboard_.lastWriteFetched()) {
        co_return true;
    }
    auto remaining = maximumFetchWait - (clock_.now() - sentAt);
    if (remaining > platform::Clock::Duration::zero()) {
        CancellationToken fetchedSignal;
        pasteboard_.setFetchedHandler([fetchedSignal]() mutable { fetchedSignal.cancel(); });
        // Interrupted (false) means the fetch arrived before the cap.
        co_await sleepFor(clock_, remaining, fetchedSignal);
        pasteboard_.setFetchedHandler({});
    }
    co_return pasteboard_.lastWriteFetched();
}

void TextInsertionService::restorePasteboard(const std::optional<std::string>& previous,
                                             bool restore) {
    if (!restore) {
        return;  // the dictated text stays on the clipboard
    }
    pasteboard_.clear();
    if (previous) {
        pasteboard_.writeString(*previous);
        traceOutput_.write("[TextInsertion] Restored previous pasteboard string");
    } else {
        traceOutput_.write("[TextInsertion] Cleared pasteboard after insertion");
    }
}

}  // namespace kelvo::app

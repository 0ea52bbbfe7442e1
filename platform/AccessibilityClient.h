#pragma once

// AccessibilityClient is the seam for reading and editing the focused text element of the
// frontmost application through the platform's accessibility interface (AX on macOS, AT-SPI on
// Linux). Calls that talk to the accessibility bus are coroutines so the main thread keeps running
// while another process answers; the backend decides on which thread it does the work, but every
// task resumes its awaiter on the main thread. Offsets and lengths in TextRange are in the
// element's own units (UTF-16 units for Qt, code points for GTK) and are only compared, never
// interpreted. Failures are named Outcomes, which callers print by name (outcomeName()). Owned by
// the application's wiring; called from the main thread.

#include <memory>
#include <optional>
#include <string>

#include <QCoroTask>

#include "platform/AccessibleElement.h"

namespace kelvo::platform {

class AccessibilityClient {
  public:
    // What became of a call: `done`, or why not.
    enum class Outcome {
        done,
        accessibilityBusUnavailable,
        noFocusedElement,
        foreignElement,  // an element this client did not hand out
        notText,
        notEditable,
        passwordField,
        unsupportedToolkit,
        noInsertionPoint,  // neither a selection nor a caret
        invalidText,       // not UTF-8, or holds a NUL
        callFailed,        // the application refused or did not answer in time
    };

    static constexpr const char* outcomeName(Outcome outcome) {
        switch (outcome) {
            case Outcome::done:
                return "done";
            case Outcome::accessibilityBusUnavailable:
                return "accessibilityBusUnavailable";
            case Outcome::noFocusedElement:
                return "noFocusedElement";
            case Outcome::foreignElement:
                return "foreignElement";
            case Outcome::notText:
                return "notText";
            case Outcome::notEditable:
                return "notEditable";
            case Outcome::passwordField:
                return "passwordField";
            case Outcome::unsupportedToolkit:
                return "unsupportedToolkit";
            case Outcome::noInsertionPoint:
                return "noInsertionPoint";
            case Outcome::invalidText:
                return "invalidText";
            case Outcome::callFailed:
                break;
        }
        return "callFailed";
    }

    struct TextRange {
        long location = 0;
        long length = 0;

        friend bool operator==(const TextRange&, const TextRange&) = default;
    };

    struct FocusedElement {
        // Empty when nothing focusable has the focus; then outcome says why.
        std::shared_ptr<AccessibleElement> element;
        Outcome outcome = Outcome::done;
        // A field for secrets (a password field): nothing may be put there, not even through a
        // fallback that types or pastes. Backends refuse to read or write it.
        bool isSecureTextField = false;
    };

    virtual ~AccessibilityClient() = default;

    // Whether this process may use the interface at all (AXIsProcessTrusted; on Linux, the
    // accessibility bus is reachable and enabled). Never prompts.
    virtual bool isTrusted() const = 0;

    virtual QCoro::Task<FocusedElement> focusedElement() = 0;

    // Each read yields nothing when the attribute is absent or the read fails.
    virtual QCoro::Task<std::optional<std::string>> value(
        std::shared_ptr<AccessibleElement> element) = 0;
    virtual QCoro::Task<std::optional<std::string>> selectedText(
        std::shared_ptr<AccessibleElement> element) = 0;
    virtual QCoro::Task<std::optional<TextRange>> selectedTextRange(
        std::shared_ptr<AccessibleElement> element) = 0;

    // Replaces the selection (or inserts at the caret) with text. `done` does not prove that
    // anything changed: many applications report success and do nothing.
    virtual QCoro::Task<Outcome> setSelectedText(std::shared_ptr<AccessibleElement> element,
                                                 std::string text) = 0;
};

}  // namespace kelvo::platform

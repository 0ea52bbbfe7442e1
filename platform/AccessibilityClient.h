#pragma once

// AccessibilityClient is the seam for reading and editing the focused text element of the
// frontmost application through the platform's accessibility interface (AX on macOS, AT-SPI on
// Linux). Calls that talk to the accessibility bus are coroutines so the main thread keeps running
// while another process answers; the backend decides on which thread it does the work, but every
// task resumes its awaiter on the main thread. Offsets and lengths in TextRange are in the
// element's own units (UTF-16 units for Qt, code points for GTK) and are only compared, never
// interpreted. Error codes are the backend's numeric codes, 0 meaning success; callers print them.
// Owned by the application's wiring; called from the main thread.

#include <memory>
#include <optional>
#include <string>

#include <QCoroTask>

#include "platform/AccessibleElement.h"

namespace kelvo::platform {

class AccessibilityClient {
  public:
    struct TextRange {
        long location = 0;
        long length = 0;

        friend bool operator==(const TextRange&, const TextRange&) = default;
    };

    struct FocusedElement {
        // Empty when nothing focusable has the focus; then errorCode says why.
        std::shared_ptr<AccessibleElement> element;
        int errorCode = 0;
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

    // Replaces the selection (or inserts at the caret) with text; yields 0 or the error code. A
    // 0 does not prove that anything changed: many applications report success and do nothing.
    virtual QCoro::Task<int> setSelectedText(std::shared_ptr<AccessibleElement> element,
                                             std::string text) = 0;
};

}  // namespace kelvo::platform

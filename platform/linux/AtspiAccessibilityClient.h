#pragma once

// AtspiAccessibilityClient is the AccessibilityClient of the Linux desktop: it reads and edits
// the focused text object of the active window through AT-SPI (libatspi). Every libatspi call
// runs on one thread of its own (AtspiMainLoopThread), because the calls are blocking D-Bus round
// trips and a query that reaches this very process must not wait on its busy main thread; each
// coroutine posts its work there and resumes its awaiter on the main thread.
//
// The focused object is looked up afresh on every focusedElement(): a depth-first search, below
// the ACTIVE windows of the desktop's applications, for the object whose state has FOCUSED,
// skipping hidden subtrees and containers that manage their own descendants (huge lists and
// tables). A lookup costs a few milliseconds and is right at the moment of the call; tracking
// focus events instead would need a listener for the process's whole life and would still miss
// an application that had the focus before we started.
//
// Offsets are the toolkit's own (code points for GTK, UTF-16 units for Qt), passed back unread.
// setSelectedText() deletes the selection and inserts at its start (or at the caret), giving the
// inserted length in the unit the toolkit reads it in: bytes for GTK, UTF-16 units for Qt. Other
// toolkits are refused rather than risk corrupt text, and so are objects that are not editable.
// The caret is never moved here, so a caller's verification sees only what the toolkit did.
// Password fields are never read (every read yields nothing) nor written, and focusedElement()
// marks them (FocusedElement::isSecureTextField) so that no fallback types into them either.
//
// Failures are named by AccessibilityClient::Outcome. Only one instance per process at a time:
// libatspi's state is process-wide. Construct and call on the main thread (a QCoreApplication must
// exist while tasks are awaited); elements may outlive the client.

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <QCoroTask>

#include "platform/AccessibilityClient.h"

namespace kelvo::platform {

class AtspiMainLoopThread;

class AtspiAccessibilityClient final : public AccessibilityClient {
  public:
    struct Timeouts {
        // Longest wait for one answer, so a frozen application cannot hang the session.
        std::chrono::milliseconds call{1500};
        // An application in its first seconds on the bus may take up to this long.
        std::chrono::milliseconds startup{3000};
    };

    AtspiAccessibilityClient();
    explicit AtspiAccessibilityClient(Timeouts timeouts);
    ~AtspiAccessibilityClient() override;

    AtspiAccessibilityClient(const AtspiAccessibilityClient&) = delete;
    AtspiAccessibilityClient& operator=(const AtspiAccessibilityClient&) = delete;

    // The session's accessibility bus answers and reports itself enabled (org.a11y.Status
    // IsEnabled). Blocks the caller for at most one D-Bus round trip on the session bus.
    bool isTrusted() const override;

    QCoro::Task<FocusedElement> focusedElement() override;
    QCoro::Task<std::optional<std::string>> value(
        std::shared_ptr<AccessibleElement> element) override;
    QCoro::Task<std::optional<std::string>> selectedText(
        std::shared_ptr<AccessibleElement> element) override;
    QCoro::Task<std::optional<TextRange>> selectedTextRange(
        std::shared_ptr<AccessibleElement> element) override;
    QCoro::Task<Outcome> setSelectedText(std::shared_ptr<AccessibleElement> element,
                                         std::string text) override;

  private:
    std::shared_ptr<AtspiMainLoopThread> thread_;
};

}  // namespace kelvo::platform

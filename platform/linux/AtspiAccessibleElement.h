#pragma once

// AtspiAccessibleElement is the AccessibleElement handed out by AtspiAccessibilityClient: one
// libatspi accessible plus what the client learnt about it when it found it (whether it is a
// password field, and in which unit its toolkit counts the length of inserted text). It holds a
// libatspi reference, which must only be touched on the client's libatspi thread: accessible()
// is for that thread, and the destructor, which may run on any thread, hands the reference back
// to that thread to be dropped. It keeps the thread alive for as long as it lives.

#include <atspi/atspi.h>

#include <memory>

#include "platform/AccessibleElement.h"
#include "platform/linux/AtspiMainLoopThread.h"

namespace kelvo::platform {

class AtspiAccessibleElement final : public AccessibleElement {
  public:
    // How the toolkit reads the length argument of EditableText.InsertText. Getting it wrong
    // corrupts text: Qt resizes the string to that many UTF-16 units (a byte count appends
    // uninitialised memory), GTK copies that many bytes (a UTF-16 count truncates).
    enum class InsertionLengthUnit { unsupported, utf8Bytes, utf16Units };

    // The unit of the toolkit that names itself so on the bus (the application's toolkit name).
    static InsertionLengthUnit lengthUnitOfToolkit(const char* toolkitName);

    // Takes over one reference to accessible; construct on the libatspi thread.
    AtspiAccessibleElement(AtspiAccessible* accessible, std::shared_ptr<AtspiMainLoopThread> thread,
                           bool isPasswordText, InsertionLengthUnit lengthUnit);
    ~AtspiAccessibleElement() override;

    AtspiAccessibleElement(const AtspiAccessibleElement&) = delete;
    AtspiAccessibleElement& operator=(const AtspiAccessibleElement&) = delete;

    // libatspi thread only; borrowed.
    AtspiAccessible* accessible() const noexcept { return accessible_; }
    bool isPasswordText() const noexcept { return isPasswordText_; }
    InsertionLengthUnit lengthUnit() const noexcept { return lengthUnit_; }
    // The thread on which accessible() may be used.
    const std::shared_ptr<AtspiMainLoopThread>& thread() const noexcept { return thread_; }

  private:
    AtspiAccessible* accessible_;
    std::shared_ptr<AtspiMainLoopThread> thread_;
    bool isPasswordText_;
    InsertionLengthUnit lengthUnit_;
};

}  // namespace kelvo::platform

#include "platform/linux/AtspiAccessibleElement.h"

#include <utility>

namespace kelvo::platform {

AtspiAccessibleElement::AtspiAccessibleElement(AtspiAccessible* accessible,
                                               std::shared_ptr<AtspiMainLoopThread> thread,
                                               bool isPasswordText, InsertionLengthUnit lengthUnit)
    : accessible_(accessible),
      thread_(std::move(thread)),
      isPasswordText_(isPasswordText),
      lengthUnit_(lengthUnit) {}

AtspiAccessibleElement::~AtspiAccessibleElement() {
    if (accessible_ == nullptr) {
        return;
    }
    // The last reference disposes of the object inside libatspi's tables, which only the
    // libatspi thread may touch.
    if (thread_->isLoopThread()) {
        g_object_unref(accessible_);
    } else {
        thread_->post([accessible = accessible_] { g_object_unref(accessible); });
    }
}

AtspiAccessibleElement::InsertionLengthUnit AtspiAccessibleElement::lengthUnitOfToolkit(
    const char* toolkitName) {
    // GTK 3 reports "gtk" (GTK 4 "GTK"); both copy `length` bytes. Qt 5 and 6 report "Qt" and
    // resize a QString to `length`.
    if (g_ascii_strcasecmp(toolkitName, "gtk") == 0) {
        return InsertionLengthUnit::utf8Bytes;
    }
    if (g_ascii_strcasecmp(toolkitName, "qt") == 0) {
        return InsertionLengthUnit::utf16Units;
    }
    return InsertionLengthUnit::unsupported;
}

}  // namespace kelvo::platform

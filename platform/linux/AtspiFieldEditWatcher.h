#pragma once

// AtspiFieldEditWatcher is the FieldEditWatcher of the Linux desktop. It finds the focused field
// through the AtspiAccessibilityClient it is given (password fields are refused there), reads the
// dictated text and its neighbourhood around the caret once, and then listens, on the client's
// libatspi thread, for "object:text-changed:insert", "object:text-changed:delete" and
// "object:state-changed:focused". Events of other objects are dropped there; the field's are
// handed to the main thread. Another object gaining the focus, or the field losing it, ends the
// watch. stop() deregisters the listeners (so applications stop sending these events, and
// nothing runs while no watch is on). libatspi 2.46 can match on the field's application alone
// (register_with_app), but deregistering such a listener ended the process here, so every
// application's events reach the filter during a watch.
//
// Text that arrived through an input method may show in the field a little after the commit
// returned: the baseline is read again, a few times 100 ms apart, until the dictated text is
// there. Offsets are the toolkit's characters (code points for GTK, UTF-16 units for Qt, the same
// for Japanese and English text).
//
// Main thread only; the client must be an AtspiAccessibilityClient and outlive the watcher.

#include <memory>

#include "platform/AccessibilityClient.h"
#include "platform/FieldEditWatcher.h"

namespace kelvo::platform {

class AtspiFieldEditWatcher final : public FieldEditWatcher {
  public:
    explicit AtspiFieldEditWatcher(AccessibilityClient& accessibility);
    ~AtspiFieldEditWatcher() override;

    AtspiFieldEditWatcher(const AtspiFieldEditWatcher&) = delete;
    AtspiFieldEditWatcher& operator=(const AtspiFieldEditWatcher&) = delete;

    QCoro::Task<std::optional<Baseline>> watch(std::string dictated, std::size_t neighbourhood,
                                               Handlers handlers) override;
    void stop() override;

    struct Watch;

  private:
    AccessibilityClient& accessibility_;
    std::shared_ptr<Watch> current_;
};

}  // namespace kelvo::platform

#pragma once

// XInputKeyMonitor is the X11 KeyMonitor: it watches the trigger key system-wide through XInput2
// raw key events selected on the root window. Raw events are copies: the key still reaches the
// focused window, nothing is grabbed. It speaks XInput 2.2, because a 2.0 client gets no raw
// events while another client holds a keyboard grab (an open menu). Events whose source device is
// an XTEST device (xdotool, our own paste chord) are marked synthetic. The trigger is an X keysym
// name; every keycode whose unmodified symbol it is counts, and the set follows keymap changes.
//
// Threads: the monitor reads its own X connection on its own thread, started by start(), and
// calls the handler there. A thread rather than a QSocketNotifier on the main loop because the
// monitor then needs no Qt event loop at all and keeps reading while the main thread is busy;
// the seam lets the handler run anywhere (the gesture recogniser posts to the main thread).
// Destruction stops and joins the thread; the handler is never called afterwards.

#include <memory>
#include <string>

#include "platform/KeyMonitor.h"

namespace kelvo::platform {

class XInputKeyMonitor final : public KeyMonitor {
  public:
    static constexpr const char* defaultTriggerKey = "Control_R";

    // Throws std::invalid_argument when triggerKeyName is not an X keysym name. Connects to
    // displayName, or to $DISPLAY when it is empty.
    explicit XInputKeyMonitor(const std::string& triggerKeyName = defaultTriggerKey,
                              const std::string& displayName = {});
    ~XInputKeyMonitor() override;

    XInputKeyMonitor(const XInputKeyMonitor&) = delete;
    XInputKeyMonitor& operator=(const XInputKeyMonitor&) = delete;

    // X11 asks no permission: true whenever the display is reachable and speaks XInput 2.2.
    bool hasListenAccess() const override;
    // Nothing to ask for; returns hasListenAccess().
    bool requestListenAccess() override;
    // Selects the raw events and starts the reading thread. Without access it does nothing.
    void start(Handler handler) override;

  private:
    struct Reader;
    std::unique_ptr<Reader> reader_;
};

}  // namespace kelvo::platform

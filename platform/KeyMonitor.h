#pragma once

// KeyMonitor is the seam for the system-wide observation of the one trigger key that drives the
// dictation gestures (Fn on a Mac; a configurable key, Right Ctrl by default, on Linux). It only
// observes: it never grabs or swallows the key. Each observed change of the keyboard state that
// may concern the trigger is delivered as a TriggerKeyEvent carrying the trigger's current
// up/down state, the way a flags-changed event carries the Fn bit: an event whose state equals the
// previous one (another modifier changed, a key repeat) is possible and is the caller's to ignore.
// Events from synthetic input (XTEST on X11) are delivered too, marked, so that the caller can drop
// the ones its own paste chord causes. The handler may be called on any thread; the monitor is
// owned by the application's wiring and outlives the handler's owner.

#include <functional>

namespace kelvo::platform {

struct TriggerKeyEvent {
    bool isTriggerDown = false;
    // The event was injected (XTest, uinput), not typed on a physical keyboard.
    bool isSynthetic = false;
};

class KeyMonitor {
  public:
    using Handler = std::function<void(TriggerKeyEvent)>;

    virtual ~KeyMonitor() = default;

    // Whether events can be observed now, without prompting (Input Monitoring on macOS, read
    // access to the input devices for evdev; always true on X11).
    virtual bool hasListenAccess() const = 0;
    // Asks for that access where the system can prompt; returns whether it was granted.
    virtual bool requestListenAccess() = 0;
    // Installs the observer; called once. Events before start() are not delivered.
    virtual void start(Handler handler) = 0;
};

}  // namespace kelvo::platform

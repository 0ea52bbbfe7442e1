#pragma once

// KeySynthesizer is the seam for injecting the paste chord into the focused application (Cmd+V on
// macOS; Ctrl+V through XTest on X11, Ctrl+Shift+V for terminal emulators, with modifiers the
// user still holds released first so the chord is not turned into another one). Called from the
// main thread; it returns once the events are queued to the system, not when the target has
// reacted. Owned by the application's wiring.

namespace kelvo::platform {

class KeySynthesizer {
  public:
    virtual ~KeySynthesizer() = default;

    // Posts key-down and key-up of the paste chord. Returns false, posting nothing, when the
    // events cannot be created (no display, no XTest, no keycode for V).
    virtual bool sendPaste() = 0;
};

}  // namespace kelvo::platform

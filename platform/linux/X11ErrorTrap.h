#pragma once

// X11ErrorTrap turns X protocol errors into a flag for as long as it lives. Xlib's default error
// handler ends the process, and a window can vanish between the moment we learn its id and the
// moment we read its properties, so every query about other clients' windows runs inside a trap.
// Xlib's handler is process-wide: the trap installs its own and puts the previous one (Qt's, in
// the application) back when it ends. Main thread only; traps do not nest across threads. An
// error caused meanwhile by another thread's connection is counted too, which only makes the
// trapped query give up.

struct _XDisplay;

namespace kelvo::platform {

class X11ErrorTrap {
  public:
    explicit X11ErrorTrap(_XDisplay* display);
    ~X11ErrorTrap();

    X11ErrorTrap(const X11ErrorTrap&) = delete;
    X11ErrorTrap& operator=(const X11ErrorTrap&) = delete;

    // Waits for the server to process every request sent so far, then tells whether any of them
    // failed since the trap was set.
    bool caughtError();

  private:
    _XDisplay* display_;
    // Xlib's handler type needs its headers; stored as the generic function pointer type.
    void (*previousHandler_)();
    bool previousCaught_;
};

}  // namespace kelvo::platform

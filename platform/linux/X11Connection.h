#pragma once

// X11Connection owns one Xlib connection to an X server, opened at construction and closed at
// destruction. The backends each keep their own connection rather than borrowing Qt's, so that
// they work without a QGuiApplication (tests, the key monitor's thread) and never disturb Qt's
// event queue. Xlib is not initialised for threads: a connection must be used by one thread at a
// time, which its owner guarantees.

#include <string>

struct _XDisplay;

namespace kelvo::platform {

class X11Connection {
  public:
    // Connects to displayName, or to $DISPLAY when it is empty. isOpen() tells whether it worked.
    explicit X11Connection(const std::string& displayName = {});
    ~X11Connection();

    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    bool isOpen() const noexcept { return display_ != nullptr; }
    // The Xlib display, or nullptr when the connection could not be opened.
    _XDisplay* display() const noexcept { return display_; }

  private:
    _XDisplay* display_ = nullptr;
};

}  // namespace kelvo::platform

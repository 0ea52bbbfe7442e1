#pragma once

// X11FrontmostWindow describes the application window in front: the one the window manager
// publishes as _NET_ACTIVE_WINDOW, or, without a manager that does, the window holding the input
// focus. From there the nearest window carrying WM_CLASS is taken (the focus often sits in a child
// of the application's toplevel, and a reparenting manager's frame carries none). Read on the
// thread that owns the connection; windows that vanish meanwhile make the read yield nothing.

#include <optional>
#include <string>

struct _XDisplay;

namespace kelvo::platform {

struct X11FrontmostWindow {
    unsigned long window = 0;
    // WM_CLASS: the instance (resource) name and the class name; either may be empty.
    std::string instanceName;
    std::string className;

    // Nothing when no application window is in front (the focus is on the root, or none).
    static std::optional<X11FrontmostWindow> read(_XDisplay* display);
};

}  // namespace kelvo::platform

#pragma once

// LinuxDesktopPermissions answers, for the menu's permission checks, the two questions that
// macOS answers with its privacy settings, and says in words how to change the answer:
// - Accessibility: whether the session's accessibility bus is on (org.a11y.Status.IsEnabled).
//   Applications, Qt ones in particular, expose their text fields only when it is on at their
//   start, so insertion through AT-SPI depends on it.
// - Input Monitoring: X11 lets any client watch the keyboard; elsewhere the trigger key is read
//   from /dev/input, which needs membership of the `input` group, or, without it, comes from the
//   desktop's global-shortcuts portal where there is one.
// Under Wayland the accessibility help also says what the clipboard paste needs (data control and
// a virtual keyboard on wlroots compositors, the remote-desktop consent on GNOME and KDE Plasma).
// Stateless; the D-Bus query runs on the calling thread (a short blocking call on the session
// bus, at most a few hundred milliseconds when the bus does not answer).

#include <string>

#include "platform/Workspace.h"

namespace kelvo::platform {

class LinuxDesktopPermissions {
  public:
    // Whether this session runs an X11 server we can use as such (not XWayland under Wayland).
    static bool isX11Session();

    // org.a11y.Status.IsEnabled on the session bus; false when the bus or the property is missing.
    static bool isAccessibilityEnabled();

    // True in an X11 session; elsewhere whether a keyboard reporting the trigger key is readable
    // (the portal's shortcut is the key monitor's to report).
    static bool hasInputMonitoringAccess(const std::string& triggerKeyName);

    // The text of the dialog shown when no settings page for the permission is known.
    static std::string helpText(Workspace::PermissionPane pane, bool x11Session);
};

}  // namespace kelvo::platform

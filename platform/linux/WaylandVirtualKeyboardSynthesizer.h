#pragma once

// WaylandVirtualKeyboardSynthesizer is the KeySynthesizer of Wayland compositors that offer the
// virtual-keyboard protocol (zwp_virtual_keyboard_v1: wlroots compositors such as Sway, also
// Hyprland and river; not GNOME, and KDE only to its own input method). It creates a keyboard of
// its own on the seat, with a US keymap made by xkbcommon, and types the paste chord on it. The
// compositor keeps each keyboard's modifiers apart and tells the focused client the state of the
// keyboard that sent the last key, so modifiers the user still holds on the real keyboard (the
// trigger key) do not turn the chord into another one: nothing has to be released first.
//
// Terminal emulators paste on Ctrl+Shift+V. Where the compositor also offers
// wlr-foreign-toplevel-management, the application id of the activated window is compared with
// the same terminal list as on X11 (XTestKeySynthesizer::isTerminalWindowClass); without it the
// chord is always Ctrl+V.
//
// Owns its own Wayland connection, read on the main thread through a socket notifier (needs a
// Qt event loop); main thread only. The user's list is read through the given function at every
// paste.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/KeySynthesizer.h"

namespace kelvo::platform {

class WaylandVirtualKeyboardSynthesizer final : public KeySynthesizer {
  public:
    using WindowClassList = std::function<std::vector<std::string>()>;

    // Connects to displayName, or to $WAYLAND_DISPLAY when it is empty.
    explicit WaylandVirtualKeyboardSynthesizer(WindowClassList extraTerminalClasses = {},
                                               const std::string& displayName = {});
    ~WaylandVirtualKeyboardSynthesizer() override;

    WaylandVirtualKeyboardSynthesizer(const WaylandVirtualKeyboardSynthesizer&) = delete;
    WaylandVirtualKeyboardSynthesizer& operator=(const WaylandVirtualKeyboardSynthesizer&) = delete;

    // Whether the compositor was reached and offers the protocol. The keyboard itself is made
    // at the first paste.
    bool isAvailable() const;
    // Whether the application id of the active window is known (foreign-toplevel management).
    bool knowsActiveWindow() const;

    // Returns false, posting nothing, when the keyboard is not available.
    bool sendPaste() override;

  private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
    WindowClassList extraTerminalClasses_;
};

}  // namespace kelvo::platform

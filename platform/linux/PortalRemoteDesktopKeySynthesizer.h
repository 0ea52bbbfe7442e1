#pragma once

// PortalRemoteDesktopKeySynthesizer is the KeySynthesizer of Wayland desktops that let no
// application type into others except through xdg-desktop-portal's RemoteDesktop interface
// (GNOME, KDE Plasma). It opens a remote-desktop session for the keyboard alone as soon as it is
// made: the first time the desktop asks the user to allow it, and the portal hands back a restore
// token, kept through the given functions (the settings), with which later starts restore the
// same permission without asking. sendPaste() then presses Ctrl+V as key symbols
// (NotifyKeyboardKeysym), so the desktop's own layout maps them; there is no way to learn the
// active window's application here, so terminals get Ctrl+V too.
//
// The session starts asynchronously: until the portal has answered (or when the user refused),
// sendPaste() returns false and the insertion keeps the text for "Paste Last Dictation". Main
// thread only (QtDBus on the session bus). Written from the portal's documentation and tried only
// against a stand-in portal: no desktop with this portal ran here.

#include <functional>
#include <memory>
#include <string>

#include "platform/KeySynthesizer.h"

namespace kelvo::platform {

class PortalRemoteDesktopKeySynthesizer final : public KeySynthesizer {
  public:
    using TokenGetter = std::function<std::string()>;
    using TokenSetter = std::function<void(const std::string&)>;

    PortalRemoteDesktopKeySynthesizer(TokenGetter restoreToken, TokenSetter keepRestoreToken);
    ~PortalRemoteDesktopKeySynthesizer() override;

    PortalRemoteDesktopKeySynthesizer(const PortalRemoteDesktopKeySynthesizer&) = delete;
    PortalRemoteDesktopKeySynthesizer& operator=(const PortalRemoteDesktopKeySynthesizer&) = delete;

    // Whether the session's portal has the RemoteDesktop interface with keyboard devices.
    static bool isOffered();

    // Whether the session has started with the keyboard granted.
    bool isStarted() const;

    bool sendPaste() override;

  private:
    class Session;
    std::unique_ptr<Session> session_;
};

}  // namespace kelvo::platform

#pragma once

// PortalGlobalShortcutsKeyMonitor is the KeyMonitor for Wayland desktops whose xdg-desktop-portal
// offers global shortcuts (org.freedesktop.portal.GlobalShortcuts: KDE Plasma 5.27+, GNOME 48+,
// Hyprland). No access to /dev/input is needed: the application binds one shortcut, the trigger,
// through the portal, and the desktop reports its press as Activated and its release as
// Deactivated. The desktop decides the actual key: the trigger key is only offered as the
// preferred one, and the user may confirm or change it in the desktop's dialog (the first time)
// or its shortcut settings (later); the desktop keeps that choice for the application.
//
// Binding runs asynchronously: requestListenAccess() and start() begin it and return at once,
// hasListenAccess() turns true once the portal has answered with the bound shortcut. Main thread
// only (QtDBus on the session bus); the handler runs on the main thread. Events are never
// synthetic: the portal reports the user's own key presses only.

#include <memory>
#include <string>

#include "platform/KeyMonitor.h"

namespace kelvo::platform {

class PortalGlobalShortcutsKeyMonitor final : public KeyMonitor {
  public:
    // The shortcut's id in the portal, the same for every trigger key.
    static constexpr const char* shortcutId = "dictation-trigger";

    // triggerKeyName is an X keysym name ("Control_R"), offered as the preferred trigger.
    explicit PortalGlobalShortcutsKeyMonitor(const std::string& triggerKeyName);
    ~PortalGlobalShortcutsKeyMonitor() override;

    PortalGlobalShortcutsKeyMonitor(const PortalGlobalShortcutsKeyMonitor&) = delete;
    PortalGlobalShortcutsKeyMonitor& operator=(const PortalGlobalShortcutsKeyMonitor&) = delete;

    // Whether the session's portal has the GlobalShortcuts interface (a short blocking call).
    static bool isOffered();

    bool hasListenAccess() const override;
    // Starts binding the shortcut (once); returns whether it is bound already.
    bool requestListenAccess() override;
    void start(Handler handler) override;

  private:
    class Session;
    std::unique_ptr<Session> session_;
};

}  // namespace kelvo::platform

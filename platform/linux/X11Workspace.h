#pragma once

// X11Workspace is the X11 Workspace. The frontmost application is the window in front (see
// X11FrontmostWindow): its WM_CLASS class (else instance) name is both its name and its
// identifier; the window title is left alone, as it often names the user's document. Permission
// help opens the desktop's own settings page where one is known (GNOME, KDE Plasma, Xfce, MATE,
// Cinnamon: named by XDG_CURRENT_DESKTOP and installed), launched detached; everywhere else, and
// for Input Monitoring on X11, which needs no permission, it returns false and the caller shows
// LinuxDesktopPermissions::helpText instead.
//
// Owns its own X connection; main thread only.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Workspace.h"

namespace kelvo::platform {

class X11Connection;

class X11Workspace final : public Workspace {
  public:
    // A program and its arguments that show a settings page.
    struct SettingsCommand {
        std::string program;
        std::vector<std::string> arguments;
    };

    // Connects to displayName, or to $DISPLAY when it is empty; without a display there is never
    // a frontmost application.
    explicit X11Workspace(const std::string& displayName = {});
    ~X11Workspace() override;

    X11Workspace(const X11Workspace&) = delete;
    X11Workspace& operator=(const X11Workspace&) = delete;

    std::optional<Application> frontmostApplication() const override;
    bool openPermissionHelp(PermissionPane pane) override;

    // The installed settings command for pane on the desktops named by currentDesktop (the
    // colon-separated XDG_CURRENT_DESKTOP), or nothing.
    static std::optional<SettingsCommand> settingsCommand(PermissionPane pane,
                                                          const std::string& currentDesktop,
                                                          bool x11Session);

  private:
    std::unique_ptr<X11Connection> connection_;
};

}  // namespace kelvo::platform

#pragma once

// PermissionHelpWorkspace completes the desktop's Workspace for the two "Open ... Settings" menu
// items: where the desktop has a settings page for the permission, the wrapped workspace opens it;
// where it has none (most desktops for accessibility, and every X11 session for input monitoring,
// which needs no permission there), a window says in words what the permission means on Linux
// and how to grant it. Everything else is passed through. Main thread only; needs a
// QApplication. Owns the wrapped workspace.

#include <memory>

#include "platform/Workspace.h"

namespace kelvo::app {

class PermissionHelpWorkspace final : public platform::Workspace {
  public:
    PermissionHelpWorkspace(std::unique_ptr<platform::Workspace> desktop, bool x11Session);

    std::optional<Application> frontmostApplication() const override;
    // Always shows something, so always true.
    bool openPermissionHelp(PermissionPane pane) override;

  private:
    std::unique_ptr<platform::Workspace> desktop_;
    bool x11Session_;
};

}  // namespace kelvo::app

#pragma once

// Workspace is the seam for the few desktop-wide facts and actions the application needs: which
// application is in front (reported in traces only), and showing the user where to grant one of
// the two permissions the application depends on (System Settings deep links on macOS; on Linux
// the desktop's settings panel where one exists, else a help dialog that says what to do). Called
// from the main thread. Owned by the application's wiring.

#include <optional>
#include <string>

namespace kelvo::platform {

class Workspace {
  public:
    struct Application {
        std::optional<std::string> localizedName;
        // Bundle identifier on macOS; WM_CLASS on X11.
        std::optional<std::string> bundleIdentifier;
    };

    enum class PermissionPane { accessibility, inputMonitoring };

    virtual ~Workspace() = default;

    // The frontmost application, or nothing when none can be determined.
    virtual std::optional<Application> frontmostApplication() const = 0;

    // Shows where to grant the permission. Returns false when no target for it can be built on
    // this system; nothing is shown then.
    virtual bool openPermissionHelp(PermissionPane pane) = 0;
};

}  // namespace kelvo::platform

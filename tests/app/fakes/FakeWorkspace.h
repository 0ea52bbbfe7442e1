#pragma once

// Workspace with a scripted frontmost application; opening a permission pane always succeeds.

#include <optional>

#include "platform/Workspace.h"

namespace kelvo::test {

class FakeWorkspace final : public platform::Workspace {
  public:
    std::optional<Application> frontmostApplication() const override { return frontmost; }
    bool openPermissionHelp(PermissionPane) override { return true; }

    std::optional<Application> frontmost = Application{"gedit", "org.gnome.gedit"};
};

}  // namespace kelvo::test

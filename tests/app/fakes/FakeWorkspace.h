#pragma once

// Workspace with a scripted frontmost application and a record of the permission panes opened;
// canOpenHelp=false simulates a system where no help target can be built.

#include <optional>
#include <vector>

#include "platform/Workspace.h"

namespace kelvo::test {

class FakeWorkspace final : public platform::Workspace {
  public:
    std::optional<Application> frontmostApplication() const override { return frontmost; }
    bool openPermissionHelp(PermissionPane pane) override {
        if (!canOpenHelp) {
            return false;
        }
        openedPanes.push_back(pane);
        return true;
    }

    std::optional<Application> frontmost = Application{"gedit", "org.gnome.gedit"};
    bool canOpenHelp = true;
    std::vector<PermissionPane> openedPanes;
};

}  // namespace kelvo::test

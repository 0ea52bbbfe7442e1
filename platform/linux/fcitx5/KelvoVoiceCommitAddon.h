#pragma once

// KelvoVoiceCommitAddon is the Fcitx5 module (addon "kelvovoicecommit", loaded at fcitx5's start,
// depends on the dbus module) that exports InputMethodCommitObject on fcitx5's session-bus
// connection. It also knows fcitx5's Wayland connections (when the wayland module runs): fcitx5
// sends a Wayland input method's requests out only when something else flushes the connection,
// normally the user's next key, so after our commit it flushes the connection itself. Made and
// owned by fcitx5's addon manager through KelvoVoiceCommitAddonFactory; lives on fcitx5's main
// loop.

#include <dbus_public.h>
#include <fcitx/addonfactory.h>
#include <fcitx/addoninstance.h>
#include <fcitx/addonmanager.h>
#include <fcitx/focusgroup.h>
#include <fcitx/instance.h>
#include <wayland_public.h>

#include <memory>
#include <unordered_map>

#include "InputMethodCommitObject.h"

namespace kelvo::platform::fcitx5 {

class KelvoVoiceCommitAddon : public fcitx::AddonInstance {
  public:
    explicit KelvoVoiceCommitAddon(fcitx::Instance* instance);

  private:
    FCITX_ADDON_DEPENDENCY_LOADER(dbus, instance_->addonManager());
    FCITX_ADDON_DEPENDENCY_LOADER(wayland, instance_->addonManager());

    void watchWaylandConnections();
    // Sends out what the context's frontend has queued, when that is a Wayland connection.
    void flushConnectionOf(fcitx::InputContext& context);

    fcitx::Instance* instance_;
    // Each Wayland connection by the focus group of its input contexts.
    std::unordered_map<fcitx::FocusGroup*, wl_display*> waylandDisplays_;
    std::unique_ptr<fcitx::HandlerTableEntry<fcitx::WaylandConnectionCreated>> waylandCreated_;
    std::unique_ptr<fcitx::HandlerTableEntry<fcitx::WaylandConnectionClosed>> waylandClosed_;
    InputMethodCommitObject object_;
};

class KelvoVoiceCommitAddonFactory : public fcitx::AddonFactory {
  public:
    fcitx::AddonInstance* create(fcitx::AddonManager* manager) override;
};

}  // namespace kelvo::platform::fcitx5

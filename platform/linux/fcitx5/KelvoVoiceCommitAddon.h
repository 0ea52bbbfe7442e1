#pragma once

// KelvoVoiceCommitAddon is the Fcitx5 module (addon "kelvovoicecommit", loaded at fcitx5's start,
// depends on the dbus module) that exports InputMethodCommitObject on fcitx5's session-bus
// connection. Made and owned by fcitx5's addon manager through KelvoVoiceCommitAddonFactory; lives
// on fcitx5's main loop.

#include <dbus_public.h>
#include <fcitx/addonfactory.h>
#include <fcitx/addoninstance.h>
#include <fcitx/addonmanager.h>
#include <fcitx/instance.h>

#include "InputMethodCommitObject.h"

namespace kelvo::platform::fcitx5 {

class KelvoVoiceCommitAddon : public fcitx::AddonInstance {
  public:
    explicit KelvoVoiceCommitAddon(fcitx::Instance* instance);

  private:
    FCITX_ADDON_DEPENDENCY_LOADER(dbus, instance_->addonManager());
    fcitx::Instance* instance_;
    InputMethodCommitObject object_;
};

class KelvoVoiceCommitAddonFactory : public fcitx::AddonFactory {
  public:
    fcitx::AddonInstance* create(fcitx::AddonManager* manager) override;
};

}  // namespace kelvo::platform::fcitx5

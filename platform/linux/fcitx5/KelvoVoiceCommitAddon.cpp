#include "KelvoVoiceCommitAddon.h"

#include <fcitx-utils/dbus/bus.h>
#include <fcitx-utils/log.h>

namespace kelvo::platform::fcitx5 {

KelvoVoiceCommitAddon::KelvoVoiceCommitAddon(fcitx::Instance* instance)
    : instance_(instance), object_(instance) {
    auto* bus = dbus()->call<fcitx::IDBusModule::bus>();
    if (!bus->addObjectVTable(commitObjectPath, commitInterface, object_)) {
        FCITX_ERROR() << "kelvovoicecommit: cannot export " << commitInterface << " at "
                      << commitObjectPath;
    }
}

fcitx::AddonInstance* KelvoVoiceCommitAddonFactory::create(fcitx::AddonManager* manager) {
    return new KelvoVoiceCommitAddon(manager->instance());
}

}  // namespace kelvo::platform::fcitx5

FCITX_ADDON_FACTORY(kelvo::platform::fcitx5::KelvoVoiceCommitAddonFactory);

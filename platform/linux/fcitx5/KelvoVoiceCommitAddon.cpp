#include "KelvoVoiceCommitAddon.h"

#include <fcitx-utils/dbus/bus.h>
#include <fcitx-utils/log.h>

namespace kelvo::platform::fcitx5 {

KelvoVoiceCommitAddon::KelvoVoiceCommitAddon(fcitx::Instance* instance)
    : instance_(instance),
      object_(instance, [this](fcitx::InputContext& context) { flushConnectionOf(context); }) {
    watchWaylandConnections();
    auto* bus = dbus()->call<fcitx::IDBusModule::bus>();
    if (!bus->addObjectVTable(commitObjectPath, commitInterface, object_)) {
        FCITX_ERROR() << "kelvovoicecommit: cannot export " << commitInterface << " at "
                      << commitObjectPath;
    }
}

void KelvoVoiceCommitAddon::watchWaylandConnections() {
    fcitx::AddonInstance* module = wayland();
    if (!module) {
        return;  // an X11 session, or the module disabled
    }
    // Called at once for the connections already open.
    waylandCreated_ = module->call<fcitx::IWaylandModule::addConnectionCreatedCallback>(
        [this](const std::string&, wl_display* display, fcitx::FocusGroup* group) {
            waylandDisplays_[group] = display;
        });
    waylandClosed_ = module->call<fcitx::IWaylandModule::addConnectionClosedCallback>(
        [this](const std::string&, wl_display* display) {
            std::erase_if(waylandDisplays_,
                          [display](const auto& entry) { return entry.second == display; });
        });
}

void KelvoVoiceCommitAddon::flushConnectionOf(fcitx::InputContext& context) {
    auto found = waylandDisplays_.find(context.focusGroup());
    if (found != waylandDisplays_.end()) {
        wl_display_flush(found->second);
    }
}

fcitx::AddonInstance* KelvoVoiceCommitAddonFactory::create(fcitx::AddonManager* manager) {
    return new KelvoVoiceCommitAddon(manager->instance());
}

}  // namespace kelvo::platform::fcitx5

FCITX_ADDON_FACTORY(kelvo::platform::fcitx5::KelvoVoiceCommitAddonFactory);

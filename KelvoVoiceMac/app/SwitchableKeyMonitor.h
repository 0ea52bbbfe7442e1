#pragma once

// SwitchableKeyMonitor lets the user change the trigger key while the application runs: it owns
// the monitor of the current key and, when told of a new key, makes a monitor for it with the
// factory, starts it with the handler already given and only then drops the old one (whose
// destruction stops its thread). The gesture recogniser keeps its one KeyMonitor reference
// throughout. A key the factory refuses leaves the old monitor in place.
//
// Main thread only; the handler runs on whichever thread the current monitor calls it.

#include <functional>
#include <memory>
#include <string>

#include "platform/KeyMonitor.h"

namespace kelvo::app {

class SwitchableKeyMonitor final : public platform::KeyMonitor {
  public:
    // Throws what the factory throws (std::invalid_argument for an unknown key name).
    using Factory = std::function<std::unique_ptr<platform::KeyMonitor>(const std::string& key)>;

    SwitchableKeyMonitor(Factory factory, const std::string& key);

    bool hasListenAccess() const override;
    bool requestListenAccess() override;
    void start(Handler handler) override;

    // Watches `key` from now on; false (nothing changed) when the factory refuses it.
    bool setTriggerKey(const std::string& key);
    const std::string& triggerKey() const noexcept { return key_; }

  private:
    Factory factory_;
    std::string key_;
    std::unique_ptr<platform::KeyMonitor> monitor_;
    Handler handler_;
    bool started_ = false;
};

}  // namespace kelvo::app

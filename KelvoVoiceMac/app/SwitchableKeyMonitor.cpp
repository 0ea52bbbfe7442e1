#include "KelvoVoiceMac/app/SwitchableKeyMonitor.h"

#include <stdexcept>

namespace kelvo::app {

SwitchableKeyMonitor::SwitchableKeyMonitor(Factory factory, const std::string& key)
    : factory_(std::move(factory)), key_(key), monitor_(factory_(key)) {}

bool SwitchableKeyMonitor::hasListenAccess() const {
    return monitor_->hasListenAccess();
}

bool SwitchableKeyMonitor::requestListenAccess() {
    return monitor_->requestListenAccess();
}

void SwitchableKeyMonitor::start(Handler handler) {
    handler_ = std::move(handler);
    started_ = true;
    monitor_->start(handler_);
}

bool SwitchableKeyMonitor::setTriggerKey(const std::string& key) {
    if (key == key_) {
        return true;
    }
    std::unique_ptr<platform::KeyMonitor> replacement;
    try {
        replacement = factory_(key);
    } catch (const std::invalid_argument&) {
        return false;
    }
    if (started_) {
        replacement->start(handler_);
    }
    // The old monitor stops (and joins its thread) only once the new one watches.
    monitor_ = std::move(replacement);
    key_ = key;
    return true;
}

}  // namespace kelvo::app

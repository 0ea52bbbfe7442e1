#include "platform/QSettingsPreferences.h"

namespace kelvo::platform {

QSettingsPreferences::QSettingsPreferences() : settings_(std::make_unique<QSettings>()) {}

QSettingsPreferences::QSettingsPreferences(const QString& iniFilePath)
    : settings_(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat)) {}

void QSettingsPreferences::registerDefault(const std::string& key, bool value) {
    defaults_[key] = value;
}

bool QSettingsPreferences::boolValue(const std::string& key) const {
    auto name = QString::fromStdString(key);
    if (settings_->contains(name)) {
        return settings_->value(name).toBool();
    }
    auto it = defaults_.find(key);
    return it != defaults_.end() && it->second;
}

void QSettingsPreferences::setBool(const std::string& key, bool value) {
    settings_->setValue(QString::fromStdString(key), value);
    settings_->sync();
}

}  // namespace kelvo::platform

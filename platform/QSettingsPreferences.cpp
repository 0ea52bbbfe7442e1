#include "platform/QSettingsPreferences.h"

#include <QStringList>

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
    store(key, value);
}

std::string QSettingsPreferences::stringValue(const std::string& key,
                                              const std::string& fallback) const {
    auto value = settings_->value(QString::fromStdString(key));
    // An INI file gives every scalar back as a string; a list or a missing key is not one.
    if (!value.isValid() || value.typeId() != QMetaType::QString) {
        return fallback;
    }
    return value.toString().toStdString();
}

void QSettingsPreferences::setString(const std::string& key, const std::string& value) {
    store(key, QString::fromStdString(value));
}

std::vector<std::string> QSettingsPreferences::stringListValue(const std::string& key) const {
    std::vector<std::string> result;
    // A one-element list comes back from an INI file as a plain string; toStringList() covers both.
    for (const auto& item : settings_->value(QString::fromStdString(key)).toStringList()) {
        result.push_back(item.toStdString());
    }
    return result;
}

void QSettingsPreferences::setStringList(const std::string& key,
                                         const std::vector<std::string>& value) {
    QStringList list;
    for (const auto& item : value) {
        list.append(QString::fromStdString(item));
    }
    store(key, list);
}

int QSettingsPreferences::intValue(const std::string& key, int fallback) const {
    bool ok = false;
    int value = settings_->value(QString::fromStdString(key)).toInt(&ok);
    return ok ? value : fallback;
}

void QSettingsPreferences::setInt(const std::string& key, int value) {
    store(key, value);
}

void QSettingsPreferences::store(const std::string& key, const QVariant& value) {
    settings_->setValue(QString::fromStdString(key), value);
    settings_->sync();
}

}  // namespace kelvo::platform

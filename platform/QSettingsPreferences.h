#pragma once

// QSettingsPreferences is the production Preferences: values live in a QSettings file (by default
// the application's native settings under $XDG_CONFIG_HOME), registered defaults in memory. Main
// thread only.

#include <QSettings>
#include <map>
#include <memory>
#include <string>

#include "platform/Preferences.h"

namespace kelvo::platform {

class QSettingsPreferences final : public Preferences {
  public:
    // Uses QSettings() of the running application (organisation and application names).
    QSettingsPreferences();
    // Uses the INI file at path; for tools and tests.
    explicit QSettingsPreferences(const QString& iniFilePath);

    void registerDefault(const std::string& key, bool value) override;
    bool boolValue(const std::string& key) const override;
    void setBool(const std::string& key, bool value) override;

  private:
    std::unique_ptr<QSettings> settings_;
    std::map<std::string, bool> defaults_;
};

}  // namespace kelvo::platform

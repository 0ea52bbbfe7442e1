#pragma once

// QSettingsPreferences is the production Preferences: values live in a QSettings file (by default
// the application's native settings under $XDG_CONFIG_HOME), registered defaults in memory. Every
// write is synced at once, so another process (or a crash) never sees a half-applied change. Main
// thread only.

#include <QSettings>
#include <map>
#include <memory>
#include <string>
#include <vector>

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

    std::string stringValue(const std::string& key, const std::string& fallback) const override;
    void setString(const std::string& key, const std::string& value) override;

    std::vector<std::string> stringListValue(const std::string& key) const override;
    void setStringList(const std::string& key, const std::vector<std::string>& value) override;

    int intValue(const std::string& key, int fallback) const override;
    void setInt(const std::string& key, int value) override;

  private:
    void store(const std::string& key, const QVariant& value);

    std::unique_ptr<QSettings> settings_;
    std::map<std::string, bool> defaults_;
};

}  // namespace kelvo::platform

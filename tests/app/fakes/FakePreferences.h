#pragma once

// In-memory Preferences with registered defaults, like the real one minus the file.

#include <map>
#include <string>

#include "platform/Preferences.h"

namespace kelvo::test {

class FakePreferences final : public platform::Preferences {
  public:
    void registerDefault(const std::string& key, bool value) override { defaults[key] = value; }
    bool boolValue(const std::string& key) const override {
        if (auto it = values.find(key); it != values.end()) {
            return it->second;
        }
        auto it = defaults.find(key);
        return it != defaults.end() && it->second;
    }
    void setBool(const std::string& key, bool value) override { values[key] = value; }

    std::map<std::string, bool> defaults;
    std::map<std::string, bool> values;
};

}  // namespace kelvo::test

#pragma once

// In-memory Preferences with registered defaults, like the real one minus the file.

#include <map>
#include <string>
#include <vector>

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

    std::string stringValue(const std::string& key, const std::string& fallback) const override {
        auto it = strings.find(key);
        return it != strings.end() ? it->second : fallback;
    }
    void setString(const std::string& key, const std::string& value) override {
        strings[key] = value;
    }

    std::vector<std::string> stringListValue(const std::string& key) const override {
        auto it = stringLists.find(key);
        return it != stringLists.end() ? it->second : std::vector<std::string>{};
    }
    void setStringList(const std::string& key, const std::vector<std::string>& value) override {
        stringLists[key] = value;
    }

    int intValue(const std::string& key, int fallback) const override {
        auto it = ints.find(key);
        return it != ints.end() ? it->second : fallback;
    }
    void setInt(const std::string& key, int value) override { ints[key] = value; }

    std::map<std::string, bool> defaults;
    std::map<std::string, bool> values;
    std::map<std::string, std::string> strings;
    std::map<std::string, std::vector<std::string>> stringLists;
    std::map<std::string, int> ints;
};

}  // namespace kelvo::test

#pragma once

// In-memory Preferences with registered defaults, like the real one minus the file.

#include <map>
#include <string>
#include <vector>

#include "platform/Preferences.h"

namespace kelvo::test {

class FakePreferences final : public platform::Preferences {
  public:
    // A default answers until a value is stored, so it only fills a gap.
    void registerDefault(const std::string& key, bool value) override {
        values.try_emplace(key, value);
    }
    bool boolValue(const std::string& key) const override { return valueOr(values, key, false); }
    void setBool(const std::string& key, bool value) override { values[key] = value; }

    std::string stringValue(const std::string& key, const std::string& fallback) const override {
        return valueOr(strings, key, fallback);
    }
    void setString(const std::string& key, const std::string& value) override {
        strings[key] = value;
    }

    std::vector<std::string> stringListValue(const std::string& key) const override {
        return valueOr(stringLists, key, std::vector<std::string>{});
    }
    void setStringList(const std::string& key, const std::vector<std::string>& value) override {
        stringLists[key] = value;
    }

    int intValue(const std::string& key, int fallback) const override {
        return valueOr(ints, key, fallback);
    }
    void setInt(const std::string& key, int value) override { ints[key] = value; }

    std::map<std::string, bool> values;
    std::map<std::string, std::string> strings;
    std::map<std::string, std::vector<std::string>> stringLists;
    std::map<std::string, int> ints;

  private:
    template <typename T>
    static T valueOr(const std::map<std::string, T>& map, const std::string& key, T fallback) {
        const auto it = map.find(key);
        return it != map.end() ? it->second : fallback;
    }
};

}  // namespace kelvo::test

#pragma once

// Preferences is the seam for the application's persistent user defaults (UserDefaults on macOS,
// QSettings on Linux). Registered defaults answer for boolean keys that were never written and are
// not persisted themselves; the other value types take their default from the caller, which keeps
// it beside the key. A stored value of the wrong type reads as the default. Main thread only.
// Owned by the application's wiring.

#include <string>
#include <vector>

namespace kelvo::platform {

class Preferences {
  public:
    virtual ~Preferences() = default;

    virtual void registerDefault(const std::string& key, bool value) = 0;
    // The stored value, else the registered default, else false.
    virtual bool boolValue(const std::string& key) const = 0;
    virtual void setBool(const std::string& key, bool value) = 0;

    // The stored value, else `fallback`.
    virtual std::string stringValue(const std::string& key, const std::string& fallback) const = 0;
    virtual void setString(const std::string& key, const std::string& value) = 0;

    // The stored list in its stored order, else an empty list.
    virtual std::vector<std::string> stringListValue(const std::string& key) const = 0;
    virtual void setStringList(const std::string& key, const std::vector<std::string>& value) = 0;

    // The stored value, else `fallback`.
    virtual int intValue(const std::string& key, int fallback) const = 0;
    virtual void setInt(const std::string& key, int value) = 0;
};

}  // namespace kelvo::platform

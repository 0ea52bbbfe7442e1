#pragma once

// Preferences is the seam for the application's persistent user defaults (UserDefaults on macOS,
// QSettings on Linux). Registered defaults answer for keys that were never written and are not
// persisted themselves. Main thread only. Owned by the application's wiring.

#include <string>

namespace kelvo::platform {

class Preferences {
  public:
    virtual ~Preferences() = default;

    virtual void registerDefault(const std::string& key, bool value) = 0;
    // The stored value, else the registered default, else false.
    virtual bool boolValue(const std::string& key) const = 0;
    virtual void setBool(const std::string& key, bool value) = 0;
};

}  // namespace kelvo::platform

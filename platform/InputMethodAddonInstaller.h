#pragma once

// InputMethodAddonInstaller is the seam for the input-method framework's addon that commits our
// text (Fcitx5's "kelvovoicecommit" on Linux): whether the framework can find it, and installing
// it for the current user, without root, where the build carries the addon's library. The
// framework loads addons only when it starts, so after an install it must be restarted once.
// Blocking file work, small; main thread. Owned by the application's wiring.

#include <optional>
#include <string>

namespace kelvo::platform {

class InputMethodAddonInstaller {
  public:
    enum class Installation { none, forUser, systemWide };

    virtual ~InputMethodAddonInstaller() = default;

    virtual Installation installation() const = 0;
    // The addon library an install would name, or nothing when this build has none.
    virtual std::optional<std::string> library() const = 0;
    // Returns an empty text on success, else what went wrong.
    virtual std::string installForUser() const = 0;
};

}  // namespace kelvo::platform

#pragma once

// Fcitx5AddonInstaller tells whether fcitx5 can find our addon ("kelvovoicecommit") and installs
// it for the current user without root: fcitx5 reads addon descriptions from
// $XDG_DATA_HOME/fcitx5/addon before the system's, and a description may name its library by an
// absolute path. The library itself stays where the build or the package put it. fcitx5 loads
// addons only when it starts, so after an install it must be restarted once.
//
// Blocking file work, small; main thread. Holds no state beyond the library's candidate paths.

#include <optional>
#include <string>
#include <vector>

#include "platform/InputMethodAddonInstaller.h"

namespace kelvo::platform {

class Fcitx5AddonInstaller final : public InputMethodAddonInstaller {
  public:
    static constexpr char addonName[] = "kelvovoicecommit";

    // Where the addon library may be, in order: the installed one, then the build folder's.
    static std::vector<std::string> defaultLibraryCandidates();

    explicit Fcitx5AddonInstaller(
        std::vector<std::string> libraryCandidates = defaultLibraryCandidates());

    Installation installation() const override;
    // The first candidate library that exists.
    std::optional<std::string> library() const override;
    // $XDG_DATA_HOME/fcitx5/addon/kelvovoicecommit.conf
    std::string userDescriptionPath() const;

    // Writes the user's addon description (atomically) naming library(). Returns an empty text on
    // success, else what went wrong.
    std::string installForUser() const override;

  private:
    std::vector<std::string> libraryCandidates_;
};

}  // namespace kelvo::platform

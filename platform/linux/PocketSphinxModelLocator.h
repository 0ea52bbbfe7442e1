#pragma once

// PocketSphinxModelLocator finds the PocketSphinx model of a locale. Models live in folders named
// after their locale under a list of roots, searched in order:
//
//   $XDG_DATA_HOME/KelvoVoiceMac/models/pocketsphinx/<locale>/   the user's models (first)
//   /usr/share/pocketsphinx/model/<locale>/                      Debian's (pocketsphinx-en-us:
//   en-us)
//
// A model folder holds one acoustic model folder (any name; the one that contains "mdef"), one
// pronunciation dictionary "*.dict" and one n-gram language model "*.lm.bin" (a phone-loop
// "*-phone.lm.bin" beside it is ignored); when there are several, the first by name is taken. A
// folder with a missing or empty file holds no model (PocketSphinx would end the process on it).
// Folder names match locales without regard to case or to "-" versus "_" ("en-us" serves en-US);
// a folder named by the language alone ("ja") serves every region of that language. A locale with
// no such folder has no model: there is no fallback to another language here (SpeechService asks
// for the system locale's model itself). Reads the file system on every call; stateless and
// callable from any thread.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/PocketSphinxModel.h"

namespace kelvo::platform {

class PocketSphinxModelLocator {
  public:
    static constexpr const char* systemModelsFolder = "/usr/share/pocketsphinx/model";

    explicit PocketSphinxModelLocator(std::vector<std::filesystem::path> roots);

    // The user's folder (DataLocations::pocketSphinxModelsFolder() in the core), then Debian's.
    static PocketSphinxModelLocator standard(const std::filesystem::path& userModelsFolder);

    const std::vector<std::filesystem::path>& roots() const noexcept { return roots_; }

    std::optional<PocketSphinxModel> find(std::string_view locale) const;

    // Every complete model, first root first, one per locale.
    std::vector<PocketSphinxModel> installed() const;

    // "en_US.UTF-8" -> "en-US", "ja" -> "ja"; std::nullopt for "C", "POSIX" and empty values.
    static std::optional<std::string> localeFromPosix(std::string_view posixLocale);

    // The locale of messages as POSIX decides it: LC_ALL, else LC_MESSAGES, else LANG (the first
    // set and non-empty one), converted with localeFromPosix.
    static std::optional<std::string> systemLocale();

  private:
    static std::optional<PocketSphinxModel> modelIn(const std::filesystem::path& folder,
                                                    std::string locale);

    std::vector<std::filesystem::path> roots_;
};

}  // namespace kelvo::platform

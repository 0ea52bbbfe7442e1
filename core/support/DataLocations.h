#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kelvo {

/// Where the user's files live, for the application, `kelvo` and the model code alike: the
/// application's folder "KelvoVoiceMac" under the XDG data home — `$XDG_DATA_HOME`, or
/// `$HOME/.local/share` when that is unset, empty or not absolute (relative values are ignored, as
/// the XDG base directory rules ask) — and everything under it. One rule, so that the tool edits
/// the dictionary the application reads and finds the models it installed. Nothing here touches
/// the file system; the environment is read at each call.
class DataLocations {
  public:
    /// The value of an environment variable, or nothing when it is unset.
    using Lookup = std::function<std::optional<std::string>(std::string_view name)>;

    explicit DataLocations(Lookup environment) : environment_(std::move(environment)) {}

    /// Reads the process's own environment.
    static DataLocations ofProcess();

    /// "<data home>/KelvoVoiceMac". Throws kelvo::Error when neither XDG_DATA_HOME nor HOME
    /// gives an absolute folder.
    std::filesystem::path applicationFolder() const;
    std::filesystem::path dictionaryFile() const { return applicationFolder() / "dictionary.json"; }
    std::filesystem::path historyFile() const { return applicationFolder() / "history.json"; }
    /// Downloaded speech models (ModelInventory).
    std::filesystem::path modelsFolder() const { return applicationFolder() / "models"; }
    /// The user's own PocketSphinx models, one folder per locale.
    std::filesystem::path pocketSphinxModelsFolder() const {
        return modelsFolder() / "pocketsphinx";
    }

    static constexpr const char* applicationFolderName = "KelvoVoiceMac";

  private:
    Lookup environment_;
};

/// Creates the folder that will hold `file` (and its parents) if it does not exist yet. The
/// stores never create folders; callers do just before their first write, never on a read, so
/// looking at a missing dictionary leaves no folder behind. Throws FileError.
void createParentFolder(const std::filesystem::path& file);

}  // namespace kelvo

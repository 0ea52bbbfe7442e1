#pragma once

#include <filesystem>

#include "cli/Environment.h"

namespace kelvo::cli {

/// Where the tool keeps the user's files when no path is given: the application's folder
/// "KelvoVoiceMac" under the XDG data home — `$XDG_DATA_HOME`, or `~/.local/share` when that is
/// unset, empty or not absolute (relative values are ignored, as the XDG base directory rules
/// ask). The same folder the desktop application uses, so the tool edits the live dictionary.
/// Nothing here touches the file system.
class DataLocations {
  public:
    explicit DataLocations(const Environment& environment) : environment_(environment) {}

    /// "<data home>/KelvoVoiceMac". Throws kelvo::Error when neither XDG_DATA_HOME nor HOME
    /// gives an absolute folder.
    std::filesystem::path applicationFolder() const;
    std::filesystem::path defaultDictionaryFile() const;
    std::filesystem::path defaultHistoryFile() const;

    static constexpr const char* kApplicationFolderName = "KelvoVoiceMac";
    static constexpr const char* kDictionaryFileName = "dictionary.json";
    static constexpr const char* kHistoryFileName = "history.json";

  private:
    const Environment& environment_;
};

/// Creates the folder that will hold `file` (and its parents) if it does not exist yet. The
/// stores never create folders; commands call this just before their first write, never on a
/// read, so looking at a missing dictionary leaves no folder behind. Throws FileError.
void createParentFolder(const std::filesystem::path& file);

}  // namespace kelvo::cli

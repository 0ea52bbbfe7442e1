#include "cli/DataLocations.h"

#include <system_error>

#include "core/support/Error.h"

namespace kelvo::cli {

namespace {

std::optional<std::filesystem::path> absoluteFolder(const std::optional<std::string>& value) {
    if (!value || value->empty()) {
        return std::nullopt;
    }
    std::filesystem::path folder(*value);
    if (!folder.is_absolute()) {
        return std::nullopt;
    }
    return folder;
}

}  // namespace

std::filesystem::path DataLocations::applicationFolder() const {
    if (const auto dataHome = absoluteFolder(environment_.get("XDG_DATA_HOME"))) {
        return *dataHome / kApplicationFolderName;
    }
    if (const auto home = absoluteFolder(environment_.get("HOME"))) {
        return *home / ".local" / "share" / kApplicationFolderName;
    }
    throw Error("cannot locate the data folder: neither XDG_DATA_HOME nor HOME is set");
}

std::filesystem::path DataLocations::defaultDictionaryFile() const {
    return applicationFolder() / kDictionaryFileName;
}

std::filesystem::path DataLocations::defaultHistoryFile() const {
    return applicationFolder() / kHistoryFileName;
}

void createParentFolder(const std::filesystem::path& file) {
    const std::filesystem::path folder = file.parent_path();
    if (folder.empty()) {
        return;
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw FileError("cannot create the folder " + folder.string() + ": " + error.message());
    }
}

}  // namespace kelvo::cli

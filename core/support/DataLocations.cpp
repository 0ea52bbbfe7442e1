#include "core/support/DataLocations.h"

#include <cstdlib>
#include <system_error>

#include "core/support/Error.h"

namespace kelvo {
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

DataLocations DataLocations::ofProcess() {
    return DataLocations([](std::string_view name) -> std::optional<std::string> {
        const char* value = std::getenv(std::string(name).c_str());
        if (value == nullptr) {
            return std::nullopt;
        }
        return std::string(value);
    });
}

std::filesystem::path DataLocations::applicationFolder() const {
    if (const auto dataHome = absoluteFolder(environment_("XDG_DATA_HOME"))) {
        return *dataHome / applicationFolderName;
    }
    if (const auto home = absoluteFolder(environment_("HOME"))) {
        return *home / ".local" / "share" / applicationFolderName;
    }
    throw Error("cannot locate the data folder: neither XDG_DATA_HOME nor HOME is set");
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

}  // namespace kelvo

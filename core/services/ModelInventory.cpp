#include "core/services/ModelInventory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "core/services/JsonFile.h"
#include "core/support/Error.h"

namespace kelvo {
namespace {

std::optional<std::uint64_t> regularFileSize(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return std::nullopt;
    }
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        return std::nullopt;
    }
    return size;
}

// The installation record, when it is readable and describes this file of this catalogue entry.
std::optional<Json> matchingRecord(const ModelCatalogEntry& entry,
                                   const std::filesystem::path& model,
                                   const std::filesystem::path& record) {
    const std::optional<std::uint64_t> modelSize = regularFileSize(model);
    if (!modelSize) {
        return std::nullopt;
    }
    Json document;
    try {
        document = jsonfile::parse(record, readWholeFile(record));
        // Strictly: a size that is not a whole number of bytes matches no file (and a huge
        // fraction must not be converted to an integer at all).
        const std::optional<std::int64_t> recordedSize =
            json::optional<std::int64_t>(document, "sizeBytes");
        if (!recordedSize || *recordedSize < 0 ||
            static_cast<std::uint64_t>(*recordedSize) != *modelSize) {
            return std::nullopt;
        }
        // A catalogue that now publishes another digest than the one the file was checked
        // against means the file is not that model any more.
        if (!entry.sha1.empty() && document.value("sha1", std::string()) != entry.sha1) {
            return std::nullopt;
        }
        if (!entry.sha256.empty() && document.value("sha256", std::string()) != entry.sha256) {
            return std::nullopt;
        }
    } catch (const std::exception&) {
        return std::nullopt;
    }
    if (entry.sizeIsExact && *modelSize != entry.sizeBytes) {
        return std::nullopt;
    }
    return document;
}

void removeIfPresent(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::remove(path, error);
    if (error) {
        throw FileError("Could not delete " + path.string() + ": " + error.message());
    }
}

}  // namespace

ModelInventory::ModelInventory(ModelCatalog catalog, std::filesystem::path modelsFolder,
                               Settings settings)
    : catalog_(std::move(catalog)),
      modelsFolder_(std::move(modelsFolder)),
      settings_(std::move(settings)) {}

ModelInventory::Settings ModelInventory::settings() const {
    std::lock_guard lock(settingsMutex_);
    return settings_;
}

void ModelInventory::setSettings(Settings settings) {
    std::lock_guard lock(settingsMutex_);
    settings_ = std::move(settings);
}

std::filesystem::path ModelInventory::modelFile(const ModelCatalogEntry& entry) const {
    return modelsFolder_ / entry.fileName;
}

std::filesystem::path ModelInventory::partialFile(const ModelCatalogEntry& entry) const {
    return modelsFolder_ / (entry.fileName + ".part");
}

std::filesystem::path ModelInventory::recordFile(const ModelCatalogEntry& entry) const {
    return modelsFolder_ / (entry.fileName + ".verified");
}

std::string ModelInventory::downloadURL(const ModelCatalogEntry& entry) const {
    std::string base = settings().downloadBaseURL;
    if (base.empty()) {
        return entry.url;
    }
    if (base.back() != '/') {
        base += '/';
    }
    return base + entry.fileName;
}

bool ModelInventory::isInstalled(const ModelCatalogEntry& entry) const {
    return matchingRecord(entry, modelFile(entry), recordFile(entry)).has_value();
}

bool ModelInventory::isInstallationRunning(const ModelCatalogEntry& entry) const {
    const int fd = ::open(partialFile(entry).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    // flock locks belong to open file descriptions, so this probe also sees a lock held by an
    // installation running in this very process.
    const bool running = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return running;
}

std::uint64_t ModelInventory::partialSizeBytes(const ModelCatalogEntry& entry) const {
    return regularFileSize(partialFile(entry)).value_or(0);
}

ModelAssetStatus ModelInventory::status(const ModelCatalogEntry& entry) const {
    if (isInstalled(entry)) {
        return ModelAssetStatus::installed;
    }
    // An empty partial file is a download that never got a byte: nothing to resume.
    if (regularFileSize(partialFile(entry)).value_or(0) > 0 || isInstallationRunning(entry)) {
        return ModelAssetStatus::downloading;
    }
    return ModelAssetStatus::supported;
}

std::optional<std::string> ModelInventory::verificationText(const ModelCatalogEntry& entry) const {
    const std::optional<Json> record = matchingRecord(entry, modelFile(entry), recordFile(entry));
    if (!record) {
        return std::nullopt;
    }
    // Compared as JSON: a member of another kind is simply not "checksum".
    if (const auto verifiedBy = record->find("verifiedBy"); verifiedBy != record->end()) {
        if (*verifiedBy == "checksum") {
            return "checksum verified";
        }
        if (*verifiedBy == "size and header") {
            return "size and model header verified; no published checksum";
        }
    }
    // Installed before the header was checked, or a record of another shape.
    return "size verified; no published checksum";
}

std::vector<const ModelCatalogEntry*> ModelInventory::installedModels() const {
    std::vector<const ModelCatalogEntry*> installed;
    for (const ModelCatalogEntry& entry : catalog_.entries()) {
        if (isInstalled(entry)) {
            installed.push_back(&entry);
        }
    }
    return installed;
}

const ModelCatalogEntry* ModelInventory::modelForLocale(std::string_view locale) const {
    const std::string language = ModelCatalog::languageOfLocale(locale);
    const std::string chosen = settings().chosenModel;
    if (!chosen.empty()) {
        const ModelCatalogEntry* entry = catalog_.find(chosen);
        if (entry && ModelCatalog::serves(*entry, language)) {
            return entry;
        }
    }
    const std::vector<const ModelCatalogEntry*> candidates = catalog_.modelsForLanguage(language);
    for (const ModelCatalogEntry* entry : candidates) {
        if (isInstalled(*entry)) {
            return entry;
        }
    }
    // Nothing installed: a download in progress is what the user is waiting for.
    for (const ModelCatalogEntry* entry : candidates) {
        if (status(*entry) == ModelAssetStatus::downloading) {
            return entry;
        }
    }
    return candidates.empty() ? nullptr : candidates.front();
}

ModelAssetStatus ModelInventory::statusForLocale(std::string_view locale) const {
    const ModelCatalogEntry* entry = modelForLocale(locale);
    return entry ? status(*entry) : ModelAssetStatus::unsupported;
}

std::vector<std::string> ModelInventory::installedLanguages() const {
    std::vector<std::string> languages;
    for (const ModelCatalogEntry* entry : installedModels()) {
        for (const std::string& language :
             entry->languages.empty() ? ModelCatalog::whisperLanguages() : entry->languages) {
            if (std::find(languages.begin(), languages.end(), language) == languages.end()) {
                languages.push_back(language);
            }
        }
    }
    return languages;
}

void ModelInventory::remove(const ModelCatalogEntry& entry) const {
    if (isInstallationRunning(entry)) {
        throw FileError("Model " + entry.name +
                        " is being installed; cancel the installation before removing it");
    }
    // The record goes first, so a removal cut short never leaves a file that looks installed.
    removeIfPresent(recordFile(entry));
    removeIfPresent(modelFile(entry));
    removeIfPresent(partialFile(entry));
}

}  // namespace kelvo

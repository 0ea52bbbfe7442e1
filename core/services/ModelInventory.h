#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/services/ModelAssetStatus.h"
#include "core/services/ModelCatalog.h"

namespace kelvo {

/// The speech models on this machine, measured against a catalogue: which are installed, which
/// are half downloaded, which model serves a locale, and where each file lives. Models live in one
/// folder (by default "$XDG_DATA_HOME/KelvoVoiceMac/models"); a model counts as installed only when
/// its file sits beside the record "<file>.verified" that a successful, verified installation
/// writes, with the size that record names. A download in progress is "<file>.part", locked
/// (flock) by the process that runs it, so every process sees the same status.
///
/// Nothing is cached: every query looks at the folder. The settings (the user's model choice and
/// the download mirror) may be changed from any thread while other threads query; everything
/// else is immutable, so one inventory may be shared by the settings window, `kelvo models` and
/// the model engine.
class ModelInventory {
  public:
    struct Settings {
        /// The catalogue name the user picked; empty means the best installed model.
        std::string chosenModel;
        /// A mirror that replaces the folder part of every catalogue URL; empty means none.
        std::string downloadBaseURL;
    };

    ModelInventory(ModelCatalog catalog, std::filesystem::path modelsFolder,
                   Settings settings = {});

    const ModelCatalog& catalog() const { return catalog_; }
    const std::filesystem::path& modelsFolder() const { return modelsFolder_; }

    Settings settings() const;
    void setSettings(Settings settings);

    std::filesystem::path modelFile(const ModelCatalogEntry& entry) const;
    std::filesystem::path partialFile(const ModelCatalogEntry& entry) const;
    std::filesystem::path recordFile(const ModelCatalogEntry& entry) const;
    /// The catalogue URL, or the mirror's when one is set.
    std::string downloadURL(const ModelCatalogEntry& entry) const;

    ModelAssetStatus status(const ModelCatalogEntry& entry) const;
    bool isInstalled(const ModelCatalogEntry& entry) const;
    /// True while some process holds the partial file's lock.
    bool isInstallationRunning(const ModelCatalogEntry& entry) const;
    /// Bytes already in the partial file (0 without one).
    std::uint64_t partialSizeBytes(const ModelCatalogEntry& entry) const;
    /// How the installed file was checked: "checksum verified", "size and model header verified;
    /// no published checksum" (or, for a model installed by an older version, "size verified; no
    /// published checksum"), or nothing when the model is not installed.
    std::optional<std::string> verificationText(const ModelCatalogEntry& entry) const;

    std::vector<const ModelCatalogEntry*> installedModels() const;

    /// The model that serves `locale`: the user's choice when it knows the locale's language,
    /// else the best installed model for the language, else the best model there is for it (to
    /// report its status). nullptr when no model serves the language.
    const ModelCatalogEntry* modelForLocale(std::string_view locale) const;
    /// Status of modelForLocale(); `unsupported` when there is none.
    ModelAssetStatus statusForLocale(std::string_view locale) const;
    /// The languages (whisper codes) that installed models serve.
    std::vector<std::string> installedLanguages() const;

    /// Deletes the model's file, its record and any partial download. Throws FileError when an
    /// installation of it is running or a file cannot be deleted.
    void remove(const ModelCatalogEntry& entry) const;

  private:
    const ModelCatalog catalog_;
    const std::filesystem::path modelsFolder_;
    mutable std::mutex settingsMutex_;
    Settings settings_;
};

}  // namespace kelvo

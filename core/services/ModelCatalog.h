#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "core/services/ModelCatalogEntry.h"

namespace kelvo {

/// The list of speech models that can be installed: whisper.cpp's multilingual ggml models from
/// tiny to large-v3-turbo with their quantised variants, and kotoba-whisper's Japanese ggml
/// models. `builtIn()` is the list this release knows; `fromJsonFile()` reads a replacement list
/// (a private mirror with models of its own, or a test). Immutable after construction; entry
/// addresses stay valid for the catalogue's life. Safe to read from any thread.
class ModelCatalog {
  public:
    explicit ModelCatalog(std::vector<ModelCatalogEntry> entries);

    static ModelCatalog builtIn();

    /// A JSON array of objects with the entry's fields ("name", "fileName", "url", "sizeBytes",
    /// "sizeIsExact", "sha1", "sha256", "languages", "rank", "description"); "name", "url" and
    /// "sizeBytes" are required, "fileName" defaults to the last path component of "url".
    /// Throws FileError or DecodingError naming the file.
    static ModelCatalog fromJsonFile(const std::filesystem::path& file);

    const std::vector<ModelCatalogEntry>& entries() const { return entries_; }
    /// The entry called `name`, or nullptr.
    const ModelCatalogEntry* find(std::string_view name) const;
    /// Entries serving `language`, best first.
    std::vector<const ModelCatalogEntry*> modelsForLanguage(const std::string& language) const;

    /// Whether `entry` recognises `language` (a code from whisperLanguages()).
    static bool serves(const ModelCatalogEntry& entry, const std::string& language);
    /// The two- or three-letter language code of a locale identifier: "ja" for "ja-JP", "ja_JP"
    /// or "ja"; lower-cased.
    static std::string languageOfLocale(std::string_view locale);
    /// The language codes whisper's multilingual models understand.
    static const std::vector<std::string>& whisperLanguages();
    /// A model's size as people read it, in decimal units: "0.6 MB", "148 MB", "1.6 GB".
    static std::string sizeText(std::uint64_t bytes);

  private:
    std::vector<ModelCatalogEntry> entries_;
};

}  // namespace kelvo

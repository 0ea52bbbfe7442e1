#include "platform/model/ModelFileEngine.h"

#include <algorithm>

#include "platform/ModelTranscriber.h"
#include "platform/model/ModelAssetInstallationRequest.h"

namespace kelvo::platform {

std::vector<std::string> ModelFileEngine::supportedLocales() {
    std::vector<std::string> languages;
    for (const ModelCatalogEntry& entry : inventory_.catalog().entries()) {
        for (const std::string& language :
             entry.languages.empty() ? ModelCatalog::whisperLanguages() : entry.languages) {
            if (std::find(languages.begin(), languages.end(), language) == languages.end()) {
                languages.push_back(language);
            }
        }
    }
    return languages;
}

std::optional<std::string> ModelFileEngine::supportedLocaleEquivalent(const std::string& locale) {
    const std::string language = ModelCatalog::languageOfLocale(locale);
    if (inventory_.catalog().modelsForLanguage(language).empty()) {
        return std::nullopt;
    }
    return language;
}

std::vector<std::string> ModelFileEngine::installedLocales() {
    return inventory_.installedLanguages();
}

AssetStatus ModelFileEngine::assetStatus(const ModelTranscriber& transcriber) {
    switch (inventory_.statusForLocale(transcriber.locale())) {
        case ModelAssetStatus::unsupported:
            return AssetStatus::unsupported;
        case ModelAssetStatus::supported:
            return AssetStatus::supported;
        case ModelAssetStatus::downloading:
            return AssetStatus::downloading;
        case ModelAssetStatus::installed:
            return AssetStatus::installed;
    }
    return AssetStatus::unknown;
}

std::unique_ptr<AssetInstallationRequest> ModelFileEngine::assetInstallationRequest(
    const ModelTranscriber& transcriber) {
    const ModelCatalogEntry* entry = inventory_.modelForLocale(transcriber.locale());
    if (!entry || inventory_.isInstalled(*entry) || inventory_.isInstallationRunning(*entry)) {
        return nullptr;
    }
    const bool chosen = inventory_.settings().chosenModel == entry->name;
    const bool resumable = inventory_.partialSizeBytes(*entry) > 0;
    if (!chosen && !resumable) {
        return nullptr;
    }
    return std::make_unique<ModelAssetInstallationRequest>(inventory_, *entry);
}

}  // namespace kelvo::platform

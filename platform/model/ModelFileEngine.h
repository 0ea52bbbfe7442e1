#pragma once

// ModelFileEngine is the part of a model engine that is about model files rather than decoding:
// the languages the catalogue's models serve (as locales: "ja" answers for "ja-JP"), those the
// installed models serve, a transcriber's asset status (the status of the model that serves its
// language, see ModelInventory::modelForLocale) and installation requests. An installation is
// only offered where the user asked for the model: it is the model chosen in the settings, or
// one whose download was started and left partial; a dictation never starts a download of
// hundreds of megabytes on its own. Subclasses make the transcribers (WhisperModelEngine).
// Thread-safe as the inventory is; the inventory must outlive the engine.

#include <memory>

#include "core/services/ModelInventory.h"
#include "platform/AssetInstallationRequest.h"
#include "platform/ModelEngine.h"

namespace kelvo::platform {

class ModelFileEngine : public ModelEngine {
  public:
    explicit ModelFileEngine(ModelInventory& inventory) : inventory_(inventory) {}

    bool isAvailable() override { return true; }
    std::vector<std::string> supportedLocales() override;
    std::optional<std::string> supportedLocaleEquivalent(const std::string& locale) override;
    std::vector<std::string> installedLocales() override;
    AssetStatus assetStatus(const ModelTranscriber& transcriber) override;
    std::unique_ptr<AssetInstallationRequest> assetInstallationRequest(
        const ModelTranscriber& transcriber) override;

    ModelInventory& inventory() { return inventory_; }

  private:
    ModelInventory& inventory_;
};

}  // namespace kelvo::platform

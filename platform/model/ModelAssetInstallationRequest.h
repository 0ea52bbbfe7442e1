#pragma once

// ModelAssetInstallationRequest is the asset installation request of an engine whose assets are
// model files in a ModelInventory: one ModelInstallation of one catalogue entry, its progress
// read from any thread, its failures turned into SpeechEngineError with the installation's own
// message. The inventory must outlive the request.

#include <memory>

#include "core/services/ModelInstallation.h"
#include "platform/AssetInstallationRequest.h"

namespace kelvo::platform {

class ModelAssetInstallationRequest final : public AssetInstallationRequest {
  public:
    ModelAssetInstallationRequest(const ModelInventory& inventory, ModelCatalogEntry entry);

    double fractionCompleted() const override;
    void downloadAndInstall() override;

  private:
    ModelInstallation installation_;
};

}  // namespace kelvo::platform

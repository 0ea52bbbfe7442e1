#include "platform/model/ModelAssetInstallationRequest.h"

#include "platform/SpeechEngineError.h"

namespace kelvo::platform {

ModelAssetInstallationRequest::ModelAssetInstallationRequest(const ModelInventory& inventory,
                                                             ModelCatalogEntry entry)
    : installation_(inventory, std::move(entry)) {}

double ModelAssetInstallationRequest::fractionCompleted() const {
    return installation_.fractionCompleted();
}

void ModelAssetInstallationRequest::downloadAndInstall() {
    try {
        installation_.run();
    } catch (const kelvo::Error& error) {
        throw SpeechEngineError(error.what());
    }
}

}  // namespace kelvo::platform

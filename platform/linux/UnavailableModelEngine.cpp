#include "platform/linux/UnavailableModelEngine.h"

#include "platform/AssetInstallationRequest.h"
#include "platform/ModelTranscriber.h"
#include "platform/SpeechEngineError.h"

namespace kelvo::platform {

std::unique_ptr<ModelTranscriber> UnavailableModelEngine::makeTranscriber(
    const std::string& locale) {
    throw SpeechEngineError("No model engine is built in; cannot transcribe " + locale);
}

std::unique_ptr<AssetInstallationRequest> UnavailableModelEngine::assetInstallationRequest(
    const ModelTranscriber&) {
    return nullptr;
}

}  // namespace kelvo::platform

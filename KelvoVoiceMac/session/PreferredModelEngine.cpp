#include "KelvoVoiceMac/session/PreferredModelEngine.h"

#include <utility>

#include "platform/AssetInstallationRequest.h"
#include "platform/ModelTranscriber.h"

namespace kelvo::app {

PreferredModelEngine::PreferredModelEngine(platform::ModelEngine& engine,
                                           std::function<bool()> isModelEngineWanted)
    : engine_(engine), isModelEngineWanted_(std::move(isModelEngineWanted)) {}

bool PreferredModelEngine::isAvailable() {
    return isModelEngineWanted_() && engine_.isAvailable();
}

std::vector<std::string> PreferredModelEngine::supportedLocales() {
    return engine_.supportedLocales();
}

std::optional<std::string> PreferredModelEngine::supportedLocaleEquivalent(
    const std::string& locale) {
    return engine_.supportedLocaleEquivalent(locale);
}

std::vector<std::string> PreferredModelEngine::installedLocales() {
    return engine_.installedLocales();
}

std::unique_ptr<platform::ModelTranscriber> PreferredModelEngine::makeTranscriber(
    const std::string& locale) {
    return engine_.makeTranscriber(locale);
}

platform::AssetStatus PreferredModelEngine::assetStatus(
    const platform::ModelTranscriber& transcriber) {
    return engine_.assetStatus(transcriber);
}

std::unique_ptr<platform::AssetInstallationRequest> PreferredModelEngine::assetInstallationRequest(
    const platform::ModelTranscriber& transcriber) {
    return engine_.assetInstallationRequest(transcriber);
}

}  // namespace kelvo::app

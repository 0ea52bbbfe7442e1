#pragma once

// UnavailableModelEngine is the ModelEngine of a build without an on-device model engine (no
// whisper.cpp): isAvailable() is false, so SpeechService's readiness check fails with
// "moduleUnavailable" and every dictation runs on the segment recogniser. The other operations
// answer "nothing supported, nothing installed" and makeTranscriber() throws, should anything ask
// anyway. Stateless; callable from any thread.

#include "platform/ModelEngine.h"

namespace kelvo::platform {

class UnavailableModelEngine final : public ModelEngine {
  public:
    bool isAvailable() override { return false; }
    std::vector<std::string> supportedLocales() override { return {}; }
    std::optional<std::string> supportedLocaleEquivalent(const std::string&) override {
        return std::nullopt;
    }
    std::vector<std::string> installedLocales() override { return {}; }

    // Throws SpeechEngineError: there is no engine to make one with.
    std::unique_ptr<ModelTranscriber> makeTranscriber(const std::string& locale) override;

    AssetStatus assetStatus(const ModelTranscriber&) override { return AssetStatus::unsupported; }
    std::unique_ptr<AssetInstallationRequest> assetInstallationRequest(
        const ModelTranscriber& transcriber) override;
};

}  // namespace kelvo::platform

#pragma once

// PreferredModelEngine is the model engine as the user's recognition setting lets the session see
// it: with "fallback" chosen in the settings it reports no engine at all, so SpeechService takes
// the segment recogniser with its usual log lines; with "automatic" every call goes to the real
// engine. The setting is read at each readiness check, so a change applies from the next
// dictation. Callable from any thread, as the engine it wraps; the engine and the preference
// reader must outlive it.

#include <functional>

#include "platform/ModelEngine.h"

namespace kelvo::app {

class PreferredModelEngine final : public platform::ModelEngine {
  public:
    PreferredModelEngine(platform::ModelEngine& engine, std::function<bool()> isModelEngineWanted);

    bool isAvailable() override;
    std::vector<std::string> supportedLocales() override;
    std::optional<std::string> supportedLocaleEquivalent(const std::string& locale) override;
    std::vector<std::string> installedLocales() override;
    std::unique_ptr<platform::ModelTranscriber> makeTranscriber(const std::string& locale) override;
    platform::AssetStatus assetStatus(const platform::ModelTranscriber& transcriber) override;
    std::unique_ptr<platform::AssetInstallationRequest> assetInstallationRequest(
        const platform::ModelTranscriber& transcriber) override;

  private:
    platform::ModelEngine& engine_;
    std::function<bool()> isModelEngineWanted_;
};

}  // namespace kelvo::app

#pragma once

// FakeModelEngine scripts the model engine's answers: availability, locales, the asset status
// (a sequence: each query takes the next, the last repeats) and an optional installation request
// with its progress and outcome. The transcriber it makes stays reachable through transcriber()
// (owned by the service; valid while the service holds it). Calls come from the service's
// start-up thread; the test reads the counters afterwards.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fakes/FakeModelTranscriber.h"
#include "platform/AssetInstallationRequest.h"
#include "platform/ModelEngine.h"

namespace kelvo::test {

class FakeModelEngine final : public platform::ModelEngine {
  public:
    struct Installation {
        double fractionCompleted = 0;
        std::optional<std::string> failure;
    };

    bool isAvailable() override { return available; }
    std::vector<std::string> supportedLocales() override { return supported; }
    std::optional<std::string> supportedLocaleEquivalent(const std::string& locale) override;
    std::vector<std::string> installedLocales() override { return installed; }
    std::unique_ptr<platform::ModelTranscriber> makeTranscriber(const std::string& locale) override;
    platform::AssetStatus assetStatus(const platform::ModelTranscriber& transcriber) override;
    std::unique_ptr<platform::AssetInstallationRequest> assetInstallationRequest(
        const platform::ModelTranscriber& transcriber) override;

    FakeModelTranscriber* transcriber() const;
    int installationRequests() const;
    int installationsRun() const;

    bool available = true;
    std::vector<std::string> supported = {"en-US", "ja-JP", "zh-CN"};
    std::optional<std::string> equivalent = "ja-JP";
    std::vector<std::string> installed = {"ja-JP"};
    std::vector<platform::AssetStatus> statuses = {platform::AssetStatus::installed};
    std::optional<Installation> installation;
    // Applied to every transcriber made, before the service sees it.
    std::function<void(FakeModelTranscriber&)> configureTranscriber;

  private:
    mutable std::mutex mutex_;
    std::size_t statusQueries_ = 0;
    int installationRequests_ = 0;
    std::shared_ptr<int> installationsRun_ = std::make_shared<int>(0);
    FakeModelTranscriber* transcriber_ = nullptr;
};

}  // namespace kelvo::test

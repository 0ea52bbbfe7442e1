#include "fakes/FakeModelEngine.h"

#include "platform/SpeechEngineError.h"

namespace kelvo::test {
namespace {

class FakeInstallationRequest final : public platform::AssetInstallationRequest {
  public:
    FakeInstallationRequest(FakeModelEngine::Installation installation, std::shared_ptr<int> runs,
                            std::mutex& mutex)
        : installation_(std::move(installation)), runs_(std::move(runs)), mutex_(mutex) {}

    double fractionCompleted() const override { return installation_.fractionCompleted; }

    void downloadAndInstall() override {
        {
            std::lock_guard lock(mutex_);
            ++*runs_;
        }
        if (installation_.failure) {
            throw platform::SpeechEngineError(*installation_.failure);
        }
    }

  private:
    FakeModelEngine::Installation installation_;
    std::shared_ptr<int> runs_;
    std::mutex& mutex_;
};

}  // namespace

std::optional<std::string> FakeModelEngine::supportedLocaleEquivalent(const std::string&) {
    return equivalent;
}

std::unique_ptr<platform::ModelTranscriber> FakeModelEngine::makeTranscriber(
    const std::string& locale) {
    auto transcriber = std::make_unique<FakeModelTranscriber>(locale);
    if (configureTranscriber) {
        configureTranscriber(*transcriber);
    }
    std::lock_guard lock(mutex_);
    transcriber_ = transcriber.get();
    return transcriber;
}

platform::AssetStatus FakeModelEngine::assetStatus(const platform::ModelTranscriber&) {
    std::lock_guard lock(mutex_);
    const std::size_t index = std::min(statusQueries_, statuses.size() - 1);
    ++statusQueries_;
    return statuses[index];
}

std::unique_ptr<platform::AssetInstallationRequest> FakeModelEngine::assetInstallationRequest(
    const platform::ModelTranscriber&) {
    std::lock_guard lock(mutex_);
    ++installationRequests_;
    if (!installation) {
        return nullptr;
    }
    return std::make_unique<FakeInstallationRequest>(*installation, installationsRun_, mutex_);
}

FakeModelTranscriber* FakeModelEngine::transcriber() const {
    std::lock_guard lock(mutex_);
    return transcriber_;
}

int FakeModelEngine::installationRequests() const {
    std::lock_guard lock(mutex_);
    return installationRequests_;
}

int FakeModelEngine::installationsRun() const {
    std::lock_guard lock(mutex_);
    return *installationsRun_;
}

}  // namespace kelvo::test

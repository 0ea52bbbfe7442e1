#pragma once

// FakeModelEngine scripts the model engine's answers: availability, locales, the asset status
// (a sequence: each query takes the next, the last repeats) and an optional installation request
// with its progress and outcome. Its FakeModelTranscriber is a scripted engine session: the test
// pushes results (they come out of nextResult() on the service's reader thread) and scripts
// failures; finalizeThroughEndOfInput() waits for the end of input, queues the finals still
// outstanding and ends the result sequence, as a real engine flushing its last segment would (or
// at once when its input failed). The transcriber stays reachable through transcriber() while the
// service holds it. The test reads while service threads run: what it reads is atomic, a channel,
// or written before the engine is chosen.

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "KelvoVoiceMac/session/Channel.h"
#include "platform/AssetInstallationRequest.h"
#include "platform/ModelEngine.h"
#include "platform/ModelTranscriber.h"
#include "platform/SpeechEngineError.h"

namespace kelvo::test {

class FakeModelTranscriber final : public platform::ModelTranscriber {
  public:
    explicit FakeModelTranscriber(std::string locale) : locale_(std::move(locale)) {}

    const std::string& locale() const override { return locale_; }
    void setContextualStrings(const std::vector<std::string>&) override { failIf(contextFailure); }
    void prepare() override { failIf(prepareFailure); }
    void analyze(std::span<const std::int16_t> samples16kMono) override {
        if (analyzeFailure) {
            inputEnded_.close();  // an engine whose input failed has nothing left to finalise
            failIf(analyzeFailure);
        }
        analyzedSampleCount += samples16kMono.size();
    }
    void finishInput() override { inputEnded_.close(); }
    std::optional<Result> nextResult() override {
        const std::optional<std::variant<Result, std::string>> next = results_.receive();
        if (next && std::holds_alternative<std::string>(*next)) {
            throw platform::SpeechEngineError(std::get<std::string>(*next));
        }
        return next ? std::optional(std::get<Result>(*next)) : std::nullopt;
    }
    void finalizeThroughEndOfInput() override {
        failIf(finalizeFailure);
        inputEnded_.receive();  // nothing is ever sent: returns once the input has ended
        for (const std::string& text : finalsOutstandingAtFinalize) {
            results_.send(Result{text, true});
        }
        results_.close();
    }
    void cancel() override {
        inputEnded_.close();
        results_.close();
        if (onCancel) {
            onCancel();
        }
    }

    // Test side.
    void pushResult(std::string text, bool isFinal) {
        results_.send(Result{std::move(text), isFinal});
    }
    void failResults(std::string description) { results_.send(std::move(description)); }

    // Scripted behaviour, set before the service starts.
    std::optional<std::string> contextFailure, prepareFailure, analyzeFailure, finalizeFailure;
    std::vector<std::string> finalsOutstandingAtFinalize;
    // Told on cancel(); lets a test learn of it after the service has freed this transcriber.
    std::function<void()> onCancel;
    std::atomic<std::size_t> analyzedSampleCount = 0;

  private:
    static void failIf(const std::optional<std::string>& failure) {
        if (failure) {
            throw platform::SpeechEngineError(*failure);
        }
    }

    std::string locale_;
    app::Channel<bool> inputEnded_;
    // A result, or the failure the result sequence ends with.
    app::Channel<std::variant<Result, std::string>> results_;
};

class FakeModelEngine final : public platform::ModelEngine {
  public:
    struct Installation {
        double fractionCompleted = 0;
        std::optional<std::string> failure;
    };

    bool isAvailable() override { return available; }
    std::vector<std::string> supportedLocales() override { return supported; }
    std::optional<std::string> supportedLocaleEquivalent(const std::string&) override {
        return equivalent;
    }
    std::vector<std::string> installedLocales() override { return installed; }
    std::unique_ptr<platform::ModelTranscriber> makeTranscriber(
        const std::string& locale) override {
        auto transcriber = std::make_unique<FakeModelTranscriber>(locale);
        if (configureTranscriber) {
            configureTranscriber(*transcriber);
        }
        transcriber_ = transcriber.get();
        return transcriber;
    }
    platform::AssetStatus assetStatus(const platform::ModelTranscriber&) override {
        return statuses[std::min(statusQueries_++, statuses.size() - 1)];
    }
    std::unique_ptr<platform::AssetInstallationRequest> assetInstallationRequest(
        const platform::ModelTranscriber&) override {
        return installation ? std::make_unique<Request>(*installation) : nullptr;
    }

    FakeModelTranscriber* transcriber() const { return transcriber_; }

    bool available = true;
    std::vector<std::string> supported = {"en-US", "ja-JP", "zh-CN"};
    std::optional<std::string> equivalent = "ja-JP";
    std::vector<std::string> installed = {"ja-JP"};
    std::vector<platform::AssetStatus> statuses = {platform::AssetStatus::installed};
    std::optional<Installation> installation;
    // Applied to every transcriber made, before the service sees it.
    std::function<void(FakeModelTranscriber&)> configureTranscriber;

  private:
    class Request final : public platform::AssetInstallationRequest {
      public:
        explicit Request(Installation installation) : installation_(std::move(installation)) {}
        double fractionCompleted() const override { return installation_.fractionCompleted; }
        void downloadAndInstall() override {
            if (installation_.failure) {
                throw platform::SpeechEngineError(*installation_.failure);
            }
        }

      private:
        Installation installation_;
    };

    std::atomic<std::size_t> statusQueries_ = 0;
    std::atomic<FakeModelTranscriber*> transcriber_ = nullptr;
};

}  // namespace kelvo::test

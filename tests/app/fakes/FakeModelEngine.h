#pragma once

// FakeModelEngine scripts the model engine's answers: availability, locales, the asset status
// (a sequence: each query takes the next, the last repeats) and an optional installation request
// with its progress and outcome. Its FakeModelTranscriber is a scripted engine session: the test
// pushes results (they come out of nextResult() on the service's reader thread) and scripts
// failures; finalizeThroughEndOfInput() waits for the end of input, queues the finals still
// outstanding and ends the result sequence, as a real engine flushing its last segment would (or
// at once when its input failed). The transcriber stays reachable through transcriber() while the
// service holds it. Everything is thread-safe; the test reads while service threads run.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/AssetInstallationRequest.h"
#include "platform/ModelEngine.h"
#include "platform/ModelTranscriber.h"
#include "platform/SpeechEngineError.h"

namespace kelvo::test {

class FakeModelTranscriber final : public platform::ModelTranscriber {
  public:
    explicit FakeModelTranscriber(std::string locale) : locale_(std::move(locale)) {}

    const std::string& locale() const override { return locale_; }
    void setContextualStrings(const std::vector<std::string>& strings) override {
        failIf(contextFailure);
        std::lock_guard lock(mutex_);
        contextualStrings_ = strings;
    }
    void prepare() override { failIf(prepareFailure); }
    void analyze(std::span<const std::int16_t> samples16kMono) override {
        std::lock_guard lock(mutex_);
        changed_.notify_all();
        // An engine whose input failed has nothing left to finalise.
        engineFailed_ = analyzeFailure.has_value();
        failIf(analyzeFailure);
        analyzedSamples_ += samples16kMono.size();
    }
    void finishInput() override {
        update([this] { inputFinished_ = true; });
    }
    std::optional<Result> nextResult() override {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] {
            return !results_.empty() || resultsEnded_ || cancelled_ || resultsFailure_;
        });
        if (cancelled_) {
            return std::nullopt;
        }
        if (!results_.empty()) {
            Result result = results_.front();
            results_.pop_front();
            return result;
        }
        failIf(resultsFailure_);
        return std::nullopt;
    }
    void finalizeThroughEndOfInput() override {
        failIf(finalizeFailure);
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return inputFinished_ || cancelled_ || engineFailed_; });
        for (const std::string& text : finalsOutstandingAtFinalize) {
            results_.push_back(Result{text, true});
        }
        resultsEnded_ = true;
        changed_.notify_all();
    }
    void cancel() override {
        update([this] { cancelled_ = true; });
        if (onCancel) {
            onCancel();
        }
    }

    // Test side.
    void pushResult(std::string text, bool isFinal) {
        update([&] { results_.push_back(Result{std::move(text), isFinal}); });
    }
    void failResults(std::string description) {
        update([&] { resultsFailure_ = std::move(description); });
    }
    std::size_t analyzedSampleCount() const { return read(analyzedSamples_); }
    std::vector<std::string> appliedContextualStrings() const { return read(contextualStrings_); }

    // Scripted behaviour, set before the service starts.
    std::optional<std::string> contextFailure, prepareFailure, analyzeFailure, finalizeFailure;
    std::vector<std::string> finalsOutstandingAtFinalize;
    // Told on cancel(); lets a test learn of it after the service has freed this transcriber.
    std::function<void()> onCancel;

  private:
    static void failIf(const std::optional<std::string>& failure) {
        if (failure) {
            throw platform::SpeechEngineError(*failure);
        }
    }
    template <typename Change>
    void update(Change change) {
        std::lock_guard lock(mutex_);
        change();
        changed_.notify_all();
    }
    template <typename T>
    T read(const T& member) const {
        std::lock_guard lock(mutex_);
        return member;
    }

    std::string locale_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> contextualStrings_;
    std::deque<Result> results_;
    std::optional<std::string> resultsFailure_;
    bool resultsEnded_ = false, inputFinished_ = false, cancelled_ = false, engineFailed_ = false;
    std::size_t analyzedSamples_ = 0;
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

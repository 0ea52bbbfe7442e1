#pragma once

// FakeModelTranscriber is a scripted model-engine session. The test pushes results (they come out
// of nextResult() on the service's reader thread), scripts failures, and lists the finals that are
// still outstanding when finalisation starts: finalizeThroughEndOfInput() waits for the end of
// input, queues them and ends the result sequence, as a real engine flushing its last segment
// would (or at once when its input loop already failed). Thread-safe; counters are read by the test
// while service threads run.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/ModelTranscriber.h"

namespace kelvo::test {

class FakeModelTranscriber final : public platform::ModelTranscriber {
  public:
    explicit FakeModelTranscriber(std::string locale) : locale_(std::move(locale)) {}

    const std::string& locale() const override { return locale_; }
    void setContextualStrings(const std::vector<std::string>& strings) override;
    void prepare() override;
    void analyze(std::span<const std::int16_t> samples16kMono) override;
    void finishInput() override;
    std::optional<Result> nextResult() override;
    void finalizeThroughEndOfInput() override;
    void cancel() override;

    // Test side.
    void pushResult(std::string text, bool isFinal);
    void failResults(std::string description);
    std::size_t analyzedSampleCount() const;
    bool inputFinished() const;
    // Told on cancel(); lets a test learn of it after the service has freed this transcriber.
    std::function<void()> onCancel;
    std::vector<std::string> appliedContextualStrings() const;

    // Scripted behaviour, set before the service starts.
    std::optional<std::string> contextFailure;
    std::optional<std::string> prepareFailure;
    std::optional<std::string> analyzeFailure;
    std::optional<std::string> finalizeFailure;
    std::vector<std::string> finalsOutstandingAtFinalize;

  private:
    std::string locale_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> contextualStrings_;
    std::deque<Result> results_;
    std::optional<std::string> resultsFailure_;
    bool resultsEnded_ = false;
    bool inputFinished_ = false;
    bool cancelled_ = false;
    // An engine whose input failed has nothing left to finalise.
    bool engineFailed_ = false;
    std::size_t analyzedSamples_ = 0;
};

}  // namespace kelvo::test

#include "fakes/FakeModelTranscriber.h"

#include "platform/SpeechEngineError.h"

namespace kelvo::test {

void FakeModelTranscriber::setContextualStrings(const std::vector<std::string>& strings) {
    if (contextFailure) {
        throw platform::SpeechEngineError(*contextFailure);
    }
    std::lock_guard lock(mutex_);
    contextualStrings_ = strings;
}

void FakeModelTranscriber::prepare() {
    if (prepareFailure) {
        throw platform::SpeechEngineError(*prepareFailure);
    }
}

void FakeModelTranscriber::analyze(std::span<const std::int16_t> samples16kMono) {
    std::lock_guard lock(mutex_);
    if (analyzeFailure) {
        engineFailed_ = true;
        changed_.notify_all();
        throw platform::SpeechEngineError(*analyzeFailure);
    }
    analyzedSamples_ += samples16kMono.size();
    changed_.notify_all();
}

void FakeModelTranscriber::finishInput() {
    std::lock_guard lock(mutex_);
    inputFinished_ = true;
    changed_.notify_all();
}

std::optional<platform::ModelTranscriber::Result> FakeModelTranscriber::nextResult() {
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
    if (resultsFailure_) {
        throw platform::SpeechEngineError(*resultsFailure_);
    }
    return std::nullopt;
}

void FakeModelTranscriber::finalizeThroughEndOfInput() {
    if (finalizeFailure) {
        throw platform::SpeechEngineError(*finalizeFailure);
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return inputFinished_ || cancelled_ || engineFailed_; });
    for (const std::string& text : finalsOutstandingAtFinalize) {
        results_.push_back(Result{text, true});
    }
    resultsEnded_ = true;
    changed_.notify_all();
}

void FakeModelTranscriber::cancel() {
    {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
        changed_.notify_all();
    }
    if (onCancel) {
        onCancel();
    }
}

void FakeModelTranscriber::pushResult(std::string text, bool isFinal) {
    std::lock_guard lock(mutex_);
    results_.push_back(Result{std::move(text), isFinal});
    changed_.notify_all();
}

void FakeModelTranscriber::failResults(std::string description) {
    std::lock_guard lock(mutex_);
    resultsFailure_ = std::move(description);
    changed_.notify_all();
}

std::size_t FakeModelTranscriber::analyzedSampleCount() const {
    std::lock_guard lock(mutex_);
    return analyzedSamples_;
}

bool FakeModelTranscriber::inputFinished() const {
    std::lock_guard lock(mutex_);
    return inputFinished_;
}

std::vector<std::string> FakeModelTranscriber::appliedContextualStrings() const {
    std::lock_guard lock(mutex_);
    return contextualStrings_;
}

}  // namespace kelvo::test

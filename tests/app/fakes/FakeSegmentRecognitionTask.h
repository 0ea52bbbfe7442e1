#pragma once

// FakeSegmentRecognitionTask records what the service does with one recognition request (audio
// appended, end of audio, catch-up, cancel) and lets the test play the recogniser's thread with
// deliver().

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>

#include "platform/SegmentRecognitionTask.h"
#include "platform/SegmentRecognizer.h"

namespace kelvo::test {

class FakeSegmentRecognitionTask final : public platform::SegmentRecognitionTask {
  public:
    FakeSegmentRecognitionTask(platform::SegmentRecognizer::RequestOptions options,
                               ResultHandler handler)
        : options(std::move(options)), handler_(std::move(handler)) {}

    void appendAudio(std::span<const std::int16_t> samples16kMono) override {
        std::lock_guard lock(mutex_);
        appendedSamples_ += samples16kMono.size();
    }
    // The end of the audio counts as decoded when the test says so (decodeEnd()).
    void endAudio(std::function<void()> decoded) override {
        std::lock_guard lock(mutex_);
        ++endAudioCount_;
        if (decoded) {
            decoded_ = std::move(decoded);
        }
    }
    // Caught up when the test says so (decodeEnd() too).
    void catchUp(std::function<void()> caughtUp) override {
        std::lock_guard lock(mutex_);
        ++catchUpCount_;
        decoded_ = std::move(caughtUp);
    }
    void decodeEnd() {
        std::function<void()> decoded;
        {
            std::lock_guard lock(mutex_);
            decoded = std::move(decoded_);
        }
        if (decoded) {
            decoded();
        }
    }
    void cancel() override {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
    }

    void deliver(std::optional<Result> result, std::optional<Error> error = std::nullopt) {
        handler_(result, error);
    }
    void deliverPartial(std::string text) { deliver(Result{std::move(text), false}); }
    void deliverFinal(std::string text) { deliver(Result{std::move(text), true}); }
    void deliverError(long code, std::string description) {
        deliver(std::nullopt, Error{code, std::move(description)});
    }

    std::size_t appendedSamples() const {
        std::lock_guard lock(mutex_);
        return appendedSamples_;
    }
    int endAudioCount() const {
        std::lock_guard lock(mutex_);
        return endAudioCount_;
    }
    int catchUpCount() const {
        std::lock_guard lock(mutex_);
        return catchUpCount_;
    }
    bool wasCancelled() const {
        std::lock_guard lock(mutex_);
        return cancelled_;
    }

    const platform::SegmentRecognizer::RequestOptions options;

  private:
    ResultHandler handler_;
    mutable std::mutex mutex_;
    std::size_t appendedSamples_ = 0;
    int endAudioCount_ = 0;
    int catchUpCount_ = 0;
    std::function<void()> decoded_;
    bool cancelled_ = false;
};

}  // namespace kelvo::test

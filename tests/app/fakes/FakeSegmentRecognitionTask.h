#pragma once

// FakeSegmentRecognitionTask records what the service does with one recognition request (audio
// appended, end of audio, catch-up, cancel) and lets the test play the recogniser's thread.

#include <atomic>
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
        appendedSamples += samples16kMono.size();
    }
    // The end of the audio counts as decoded when the test says so (decodeEnd()).
    void endAudio(std::function<void()> decoded) override {
        std::lock_guard lock(mutex_);
        ++endAudioCount;
        if (decoded) {
            decoded_ = std::move(decoded);
        }
    }
    // Caught up when the test says so (decodeEnd() too).
    void catchUp(std::function<void()> caughtUp) override {
        std::lock_guard lock(mutex_);
        ++catchUpCount;
        decoded_ = std::move(caughtUp);
    }
    void decodeEnd() {
        std::unique_lock lock(mutex_);
        std::function<void()> decoded = std::move(decoded_);
        lock.unlock();
        if (decoded) {
            decoded();
        }
    }
    void cancel() override { cancelled = true; }

    void deliverPartial(std::string text) { handler_(Result{std::move(text), false}, {}); }
    void deliverFinal(std::string text) { handler_(Result{std::move(text), true}, {}); }
    void deliverError(long code, std::string description) {
        handler_(std::nullopt, Error{code, std::move(description)});
    }

    const platform::SegmentRecognizer::RequestOptions options;
    std::atomic<std::size_t> appendedSamples = 0;
    std::atomic<int> endAudioCount = 0;
    std::atomic<int> catchUpCount = 0;
    std::atomic<bool> cancelled = false;

  private:
    ResultHandler handler_;
    std::mutex mutex_;
    std::function<void()> decoded_;
};

}  // namespace kelvo::test

#pragma once

// ScriptedDecoder stands in for a loaded speech model: it answers each decode with a text made
// by a script (by default "partial N" / "final N"), records every call, counts prompt tokens as
// code points, and can block until aborted or throw. Called on the transcriber's worker thread;
// the test reads calls() from its own thread.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/SpeechEngineError.h"
#include "platform/model/SegmentDecoder.h"

namespace kelvo::test {

class ScriptedDecoder final : public platform::SegmentDecoder {
  public:
    struct Call {
        std::size_t sampleCount;
        std::string language;
        std::string prompt;
        Purpose purpose;
    };

    std::string decode(std::span<const float> samples, const std::string& language,
                       const std::string& prompt, Purpose purpose,
                       const std::atomic<bool>& abort) override {
        std::size_t index;
        {
            std::lock_guard lock(mutex_);
            calls_.push_back(Call{samples.size(), language, prompt, purpose});
            index = calls_.size();
        }
        if (blockUntilAborted) {
            // Bounded, so that a transcriber that never aborts fails its test instead of hanging.
            const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (!abort && std::chrono::steady_clock::now() < giveUp) {
                std::this_thread::yield();
            }
            return abort ? "" : "never aborted";
        }
        if (failure) {
            throw platform::SpeechEngineError(*failure);
        }
        if (script) {
            return script(purpose, index);
        }
        return (purpose == Purpose::partial ? " partial " : " final ") + std::to_string(index);
    }

    std::size_t promptTokenCount(const std::string& text) override {
        return std::count_if(text.begin(), text.end(),
                             [](unsigned char c) { return (c & 0xC0) != 0x80; });
    }
    std::size_t promptTokenLimit() override { return tokenLimit; }

    std::vector<Call> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }

    std::function<std::string(Purpose, std::size_t)> script;
    std::optional<std::string> failure;
    std::atomic<bool> blockUntilAborted = false;
    std::size_t tokenLimit = 224;

  private:
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};

}  // namespace kelvo::test

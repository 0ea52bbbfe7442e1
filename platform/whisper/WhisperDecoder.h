#pragma once

// WhisperDecoder is one whisper.cpp model loaded for decoding: the context (the model's weights,
// shared by nothing else) and one decoding state. It decodes on the CPU with the language forced
// (never detected), no carried-over context (the transcriber passes its prompt every time), no
// timestamps, and non-speech tokens suppressed. Partial hypotheses are decoded for speed: one
// greedy pass without temperature fallback, and an encoder context cut to the audio's length
// (whisper otherwise encodes a full 30 s window however short the audio). Finals get the full
// window and a bounded fallback (two more temperatures, two candidates each). Used by one thread
// at a time (see SegmentDecoder); frees the model when destroyed.

#include <filesystem>
#include <memory>
#include <vector>

#include "platform/model/SegmentDecoder.h"

struct whisper_context;
struct whisper_state;

namespace kelvo::platform {

class WhisperDecoder final : public SegmentDecoder {
  public:
    // How it decodes; the defaults are the product's (bench/WhisperBench measures the others).
    struct Settings {
        int threads = 1;
        // whisper.cpp's flash attention kernels.
        bool flashAttention = true;
        // Cut a final's encoder context to its audio as well, instead of a full 30 s window.
        bool trimFinalContext = false;
    };

    // Throws SpeechEngineError when the file is not a model whisper.cpp can load.
    static std::shared_ptr<WhisperDecoder> load(const std::filesystem::path& model,
                                                Settings settings);
    static std::shared_ptr<WhisperDecoder> load(const std::filesystem::path& model, int threads) {
        return load(model, Settings{.threads = threads});
    }
    ~WhisperDecoder() override;

    // For benchmarks on whisper.cpp's weightless for-tests models, which would stop at once or
    // run to the token limit: from now on every decode emits the first tokens of `text`, as many
    // as `tokensPerSecond` of its audio yield, and stops, as a real model would on speech.
    void imitateSpeech(const std::string& text, double tokensPerSecond);

    WhisperDecoder(const WhisperDecoder&) = delete;
    WhisperDecoder& operator=(const WhisperDecoder&) = delete;

    std::string decode(std::span<const float> samples, const std::string& language,
                       const std::string& prompt, Purpose purpose,
                       const std::atomic<bool>& abort) override;
    std::size_t promptTokenCount(const std::string& text) override;
    std::size_t promptTokenLimit() override;

  private:
    WhisperDecoder(whisper_context* context, whisper_state* state, Settings settings)
        : context_(context), state_(state), settings_(settings) {}

    whisper_context* context_;
    whisper_state* state_;
    const Settings settings_;
    std::vector<int> imitatedTokens_;
    double imitatedTokensPerSecond_ = 0;
};

}  // namespace kelvo::platform
